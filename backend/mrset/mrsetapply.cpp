#include "backend/mrset/mrsetapply.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <system_error>
#include <utility>

#include "backend/mrset/mrsetassert.h"
#include "backend/mrset/mrsetparse.h"
#include "host/output.h"
#include "host/platform_strings.h"

#define APPLY_ASSERT(condition, text) MRSET_ASSERT(condition, text, "backend/mrset/mrsetapply")

// ---- the driver ----------------------------------------------------------

void ApplySubcommands(const MRSetSubcommands& subcommands, VORN_DataSource& dataset,
                      BpProcedure& procedure) {
  IndexedSetList setList(VariableSets(dataset, kMultipleResponseSets));
  for (const MRSetSubcommand& subcmd : subcommands) {
    switch (subcmd.fType) {
      case MRSetSubcommand::kMDGROUP:
        BuildDichotomySet(subcmd, dataset, setList);
        break;
      case MRSetSubcommand::kMCGROUP:
        BuildCategorySet(subcmd, dataset, setList);
        break;
      case MRSetSubcommand::kDISPLAY:
        if (setList.Empty()) {
          ReportWarning("No MRSET to display", "", "");
          break;
        }
        // Sorting the list itself is deliberate: after a DISPLAY the sets are
        // saved in name order.
        setList.SortByName();
        DisplaySets(subcmd, dataset, setList.Sets(), procedure);
        break;
      case MRSetSubcommand::kDELETE:
        DeleteSets(subcmd, setList);
        break;
      case MRSetSubcommand::kNone:
        break;
    }
  }
  SaveVariableSets(setList.Take(), dataset, kMultipleResponseSets);
}

// ---- the set list --------------------------------------------------------

IndexedSetList::IndexedSetList(SetList sets) : sets_(std::move(sets)) {
  // As much room as the host left in the list for the sets a command adds.
  upperNames_.reserve(sets_.capacity());
  deleted_.reserve(sets_.capacity());
  for (const VariableSet& set : sets_) upperNames_.push_back(set.GetName(kUpperCase));
  deleted_.assign(sets_.size(), false);
  live_ = sets_.size();
}

// Where the live sets of that upper-cased name stand, if any. The first few
// look-ups of a command scan the names (a command that adds or deletes a
// set or two to a long list need not index it); later ones use an index,
// built then and kept until the list moves.
std::optional<IndexedSetList::NamePositions> IndexedSetList::Find(const std::string& upperName) {
  constexpr int kScannedLookups = 16;
  if (!indexed_ && scannedLookups_ < kScannedLookups) {
    ++scannedLookups_;
    std::optional<NamePositions> found;
    for (std::size_t i = 0; i < sets_.size(); ++i) {
      if (deleted_[i] || upperNames_[i] != upperName) continue;
      if (found) {
        found->more.push_back(i);
      } else {
        found = NamePositions{i, {}};
      }
    }
    return found;
  }
  EnsureIndexed();
  const auto found = positions_.find(upperName);
  if (found == positions_.end()) return std::nullopt;
  return found->second;
}

void IndexedSetList::EnsureIndexed() {
  if (indexed_) return;
  positions_.clear();
  positions_.reserve(sets_.size());
  for (std::size_t i = 0; i < sets_.size(); ++i) {
    if (deleted_[i]) continue;
    const auto [entry, added] = positions_.try_emplace(upperNames_[i], NamePositions{i, {}});
    if (!added) entry->second.more.push_back(i);
  }
  indexed_ = true;
}

void IndexedSetList::Store(VariableSet set) {
  std::string upperName = set.GetName(kUpperCase);
  if (const auto found = Find(upperName)) {
    sets_[found->first] = std::move(set);
    return;
  }
  if (indexed_) positions_.emplace(upperName, NamePositions{sets_.size(), {}});
  sets_.push_back(std::move(set));
  upperNames_.push_back(std::move(upperName));
  deleted_.push_back(false);
  ++live_;
}

bool IndexedSetList::Delete(const std::string& name) {
  std::string upperName = name;
  VORNMBstrupr_A(upperName);
  const auto found = Find(upperName);
  if (!found) return false;
  APPLY_ASSERT(found->more.empty(), "(end - 1) == last");
  deleted_[found->first] = true;
  for (const std::size_t i : found->more) deleted_[i] = true;
  live_ -= 1 + found->more.size();
  if (indexed_) positions_.erase(upperName);
  return true;
}

void IndexedSetList::Clear() {
  sets_.clear();
  upperNames_.clear();
  deleted_.clear();
  positions_.clear();
  live_ = 0;
  indexed_ = true;
}

void IndexedSetList::Compact() {
  if (live_ == sets_.size()) return;
  std::size_t kept = 0;
  for (std::size_t i = 0; i < sets_.size(); ++i) {
    if (deleted_[i]) continue;
    if (kept != i) {
      sets_[kept] = std::move(sets_[i]);
      upperNames_[kept] = std::move(upperNames_[i]);
    }
    ++kept;
  }
  sets_.erase(sets_.begin() + static_cast<std::ptrdiff_t>(kept), sets_.end());
  upperNames_.resize(kept);
  deleted_.assign(kept, false);
  indexed_ = false;
}

// A stable sort; a list sorted before but for the sets added since sorts
// only those and merges them in.
void IndexedSetList::SortByName() {
  Compact();
  const auto byName = [this](std::size_t a, std::size_t b) {
    return upperNames_[a] < upperNames_[b];
  };
  std::vector<std::size_t> order(sets_.size());
  for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
  const auto sortedEnd = std::is_sorted_until(order.begin(), order.end(), byName);
  if (sortedEnd == order.end()) return;
  std::stable_sort(sortedEnd, order.end(), byName);
  std::inplace_merge(order.begin(), sortedEnd, order.end(), byName);
  Reorder(order);
  indexed_ = false;
}

// Moves the set at order[i] to position i, for every i, in place: each set
// moves once, along the cycles of the permutation. A cycle jumps about the
// list: the sets a few steps ahead on it are fetched while one moves.
void IndexedSetList::Reorder(std::vector<std::size_t>& order) {
  constexpr int kStepsAhead = 8;
  for (std::size_t start = 0; start < order.size(); ++start) {
    if (order[start] == start) continue;
    VariableSet set = std::move(sets_[start]);
    std::string name = std::move(upperNames_[start]);
    // The set `kStepsAhead` moves ahead on the cycle, fetched; the cycle's
    // own order entries are left as they are until their set moves.
    std::size_t ahead = order[start];
    const auto fetchAhead = [&] {
      const auto* set = reinterpret_cast<const char*>(&sets_[ahead]);
      __builtin_prefetch(set, 1);
      __builtin_prefetch(set + sizeof(VariableSet) - 1, 1);  // it may end on the next line
      __builtin_prefetch(&upperNames_[ahead], 1);
      ahead = order[ahead];
    };
    for (int k = 0; k < kStepsAhead && ahead != start; ++k) fetchAhead();
    std::size_t at = start;
    for (std::size_t from = order[at]; from != start; from = order[at]) {
      if (ahead != start) fetchAhead();
      sets_[at] = std::move(sets_[from]);
      upperNames_[at] = std::move(upperNames_[from]);
      order[at] = at;
      at = from;
    }
    order[at] = at;
    sets_[at] = std::move(set);
    upperNames_[at] = std::move(name);
  }
}

const SetList& IndexedSetList::Sets() {
  Compact();
  return sets_;
}

SetList IndexedSetList::Take() {
  Compact();
  SetList taken = std::move(sets_);
  Clear();
  return taken;
}

namespace {

void AddVariables(const MRSetSubcommand& subcmd, const VORN_DataSource& dataset, VariableSet& set) {
  if (subcmd.fAll) {
    for (unsigned int index = 0; index < dataset.ColumnCount(); ++index) {
      set.AddVariableName(dataset.GetVariable(static_cast<int>(index)).GetName());
    }
    return;
  }
  APPLY_ASSERT(!subcmd.fVariables.empty(), "!subcmd.fVariables.empty()");
  for (const std::string& name : subcmd.fVariables) set.AddVariableName(name);
}

}  // namespace

void BuildDichotomySet(const MRSetSubcommand& subcmd, const VORN_DataSource& dataset,
                       IndexedSetList& setList) {
  APPLY_ASSERT(!subcmd.fName.empty(), "!subcmd.fName.empty()");
  APPLY_ASSERT(subcmd.fName[0] == '$', "subcmd.fName[0] == '$'");
  APPLY_ASSERT(subcmd.fType == MRSetSubcommand::kMDGROUP,
               "subcmd.fType == MRSetSubcommand::kMDGROUP");
  APPLY_ASSERT(!subcmd.fValue.empty(), "!subcmd.fValue.empty()");

  VariableSet set(subcmd.fName, VariableSet::kMultipleDichotomySet);
  if (!subcmd.fLabel.empty()) set.SetLabel(subcmd.fLabel);
  set.SetValue(subcmd.fValue);
  set.UseVariableCategoryLabels(subcmd.fCountedValueLabels);
  set.LabelSetByVariable(subcmd.fLabelFromVarLabel);
  AddVariables(subcmd, dataset, set);
  setList.Store(std::move(set));
}

void BuildCategorySet(const MRSetSubcommand& subcmd, const VORN_DataSource& dataset,
                      IndexedSetList& setList) {
  APPLY_ASSERT(!subcmd.fName.empty(), "!subcmd.fName.empty()");
  APPLY_ASSERT(subcmd.fName[0] == '$', "subcmd.fName[0] == '$'");
  APPLY_ASSERT(subcmd.fType == MRSetSubcommand::kMCGROUP,
               "subcmd.fType == MRSetSubcommand::kMCGROUP");

  VariableSet set(subcmd.fName, VariableSet::kMultipleCategorySet);
  if (!subcmd.fLabel.empty()) set.SetLabel(subcmd.fLabel);
  AddVariables(subcmd, dataset, set);
  setList.Store(std::move(set));
}

// ---- deleting ------------------------------------------------------------

void DeleteSets(const MRSetSubcommand& subcmd, IndexedSetList& setList) {
  APPLY_ASSERT(subcmd.fType == MRSetSubcommand::kDELETE,
               "subcmd.fType == MRSetSubcommand::kDELETE");
  if (subcmd.fAll) {
    if (setList.Empty()) {
      ReportWarning("No MRSETs to delete", "", "");
    } else {
      setList.Clear();
    }
    return;
  }
  APPLY_ASSERT(!subcmd.fNames.empty(), "!subcmd.fNames.empty()");
  if (subcmd.fNames.empty()) return;
  for (auto namesIter = subcmd.fNames.begin(); namesIter != subcmd.fNames.end(); ++namesIter) {
    APPLY_ASSERT((*namesIter)[0] == '$', "(*namesIter)[0] == '$'");
    if (!setList.Delete(*namesIter)) {
      ReportWarning("^1 MRSET can not be found in the dataset.", *namesIter, "");
    }
  }
}

// ---- the display table ---------------------------------------------------

SetList SelectSetsToDisplay(const MRSetSubcommand& subcmd, const SetList& setList,
                            std::vector<std::string>& missing) {
  missing.clear();
  if (subcmd.fAll) return setList;
  // Where each name was requested, names equal by VORNMBstricmp_A together.
  const auto before = [](auto& a, auto& b) { return VORNMBstricmp_A(a.c_str(), b.c_str()) < 0; };
  std::map<std::string, std::vector<std::size_t>, decltype(before)> places(before);
  for (std::size_t i = subcmd.fNames.size(); i-- > 0;) places[subcmd.fNames[i]].push_back(i);
  SetList selection;
  for (const VariableSet& set : setList) {
    const auto found = places.find(set.GetName(kAsStored));
    if (found == places.end()) continue;
    // Only the first requested entry left is struck off per set, so a name
    // written twice is reported as missing the second time.
    if (!found->second.empty()) found->second.pop_back();
    selection.push_back(set);
  }
  std::vector<std::size_t> left;  // the places not struck off
  for (const auto& [name, rest] : places) left.insert(left.end(), rest.begin(), rest.end());
  std::sort(left.begin(), left.end());
  for (const std::size_t i : left) missing.push_back(subcmd.fNames[i]);
  return selection;
}

std::string DataTypeText(const VariableSet& set, const VORN_DataSource& dataset) {
  for (const std::string& name : set.GetVariableNames(kUpperCase)) {
    const int index = dataset.FindVarIndex(name.c_str(), 0);
    if (index != -1) return dataset.GetVariable(index).GetType() == 0 ? "Numeric" : "String";
  }
  return "Unknown";
}

std::string ElementaryVariableText(const std::string& name, const VORN_DataSource& dataset,
                                   bool showVariableLabels) {
  const int index = dataset.FindVarIndex(name.c_str(), 0);
  if (index == -1) return name + "(no longer exists)";
  const VORN_Variable& var = dataset.GetVariable(index);
  const char* label = var.GetLabel();
  if (showVariableLabels && label != nullptr && label[0] != '\0') return label;
  return var.GetName();
}

namespace {

void WarnAboutMissingSets(const std::vector<std::string>& missing) {
  BpComposite message("One or more of the sets specified do not exist...", true);
  message.Sublist();
  for (const std::string& name : missing) message.Add(BpString(name, false));
  message.EndSublist();
  BpError(message, kShowInOutput, kWarningLevel);
}

// ---- the set as data ------------------------------------------------------
// The table shows a set as texts made for reading ("N/A", labels in place of
// names); programs reading the output get the set itself beside it, attached
// to the row's category. The module builds it because only the module knows
// what its sets mean; the host only carries the data to the formats that
// show it, and the table, its texts and their order stay as they were.

BpData CountedValueData(const VariableSet& set, const VORN_DataSource& dataset) {
  if (set.GetType() == VariableSet::kMultipleCategorySet) return {};
  const std::string& value = set.GetValue();
  if (DataTypeText(set, dataset) == "Numeric") {
    double number = 0;
    const char* end = value.data() + value.size();
    const auto [stop, error] = std::from_chars(value.data(), end, number);
    // "nan" and "inf" read as numbers but are none that JSON can hold.
    if (error == std::errc() && stop == end && std::isfinite(number)) return BpData::Number(number);
  }
  return BpData::String(value);
}

BpData VariablesData(const VariableSet& set, const VORN_DataSource& dataset) {
  BpData variables = BpData::List();
  for (const std::string& name : set.GetVariableNames(kAsStored)) {
    BpData variable = BpData::Record();
    const int index = dataset.FindVarIndex(name.c_str(), 0);
    const char* label = index == -1 ? nullptr : dataset.GetVariable(index).GetLabel();
    variable.Set("name", BpData::String(index == -1 ? name : dataset.GetVariable(index).GetName()));
    variable.Set("label", BpData::StringOrNull(label != nullptr ? label : ""));
    variables.Append(std::move(variable));
  }
  return variables;
}

BpData SetData(const VariableSet& set, const VORN_DataSource& dataset) {
  const bool dichotomy = set.GetType() == VariableSet::kMultipleDichotomySet;
  BpData labelSource;
  if (set.qLabelSetByVariable()) {
    labelSource = BpData::String("variables");
  } else if (!set.GetLabel().empty()) {
    labelSource = BpData::String("set");
  }
  BpData categoryLabels;
  if (dichotomy) {
    categoryLabels =
        BpData::String(set.qUseVariableCategoryLabels() ? "countedValue" : "variables");
  }
  BpData data = BpData::Record();
  data.Set("name", BpData::String(set.GetName(kAsStored)))
      .Set("type", BpData::String(dichotomy ? "dichotomy" : "category"))
      .Set("label", BpData::StringOrNull(set.GetLabel()))
      .Set("labelSource", std::move(labelSource))
      .Set("countedValue", CountedValueData(set, dataset))
      .Set("categoryLabels", std::move(categoryLabels))
      .Set("variables", VariablesData(set, dataset));
  return data;
}

struct AttributeCategories {
  BpCategory label;
  BpCategory codedAs;
  BpCategory countedValue;
  BpCategory dataType;
  BpCategory elementaryVariables;
};

void AddSetRow(const VariableSet& set, const VORN_DataSource& dataset, BpDimension& names,
               AttributeCategories& attributes, const BpAnnotation& valueLabelsNote) {
  bool showVariableLabels = true;
  APPLY_ASSERT(set.GetType() != VariableSet::kVarSet, "iter->GetType() != VariableSet::kVarSet");
  BpCategory row = names.Category(BpString(set.GetName(kAsStored), false));

  if (set.qLabelSetByVariable()) {
    attributes.label.Cell(BpString("(use variable label)", true));
  } else if (!set.GetLabel().empty()) {
    attributes.label.Cell(BpString(set.GetLabel(), false));
  }

  if (set.GetType() == VariableSet::kMultipleCategorySet) {
    attributes.codedAs.Cell(BpString("Categories", true));
    attributes.countedValue.Cell(BpString("N/A", true));
  } else {
    attributes.codedAs.Cell(BpString("Dichotomies", true));
    attributes.countedValue.Cell(BpString(set.GetValue(), false));
    if (set.qUseVariableCategoryLabels()) {
      showVariableLabels = false;
      attributes.countedValue.CellNote(valueLabelsNote);
    }
  }

  attributes.dataType.Cell(BpString(DataTypeText(set, dataset), true));

  BpComposite variables("[:^1\r:$1]1", false);
  variables.Sublist();
  for (const std::string& name : set.GetVariableNames(kAsStored)) {
    variables.Add(BpString(ElementaryVariableText(name, dataset, showVariableLabels), false));
  }
  variables.EndSublist();
  attributes.elementaryVariables.Cell(variables);
  row.AttachData("set", SetData(set, dataset));
  row.Release();
}

}  // namespace

void DisplaySets(const MRSetSubcommand& subcmd, const VORN_DataSource& dataset,
                 const SetList& setList, BpProcedure& procedure) {
  APPLY_ASSERT(subcmd.fType == MRSetSubcommand::kDISPLAY,
               "subcmd.fType == MRSetSubcommand::kDISPLAY");

  std::vector<std::string> missing;
  const SetList selection = SelectSetsToDisplay(subcmd, setList, missing);
  if (!missing.empty()) WarnAboutMissingSets(missing);

  const BpString title("Multiple Response Sets", true);
  BpPivotTable table = procedure.PivotTable(title, title, false);
  BpDimension attributeDimension = table.Dimension(BpString("Attributes", true), 2);
  attributeDimension.Position(1, 1, true, false);
  BpDimension names = table.Dimension(BpString("Name", true), 2);
  AttributeCategories attributes{
      attributeDimension.Category(BpString("Label", true)),
      attributeDimension.Category(BpString("Coded As", true)),
      attributeDimension.Category(BpString("Counted Value", true)),
      attributeDimension.Category(BpString("Data Type", true)),
      attributeDimension.Category(BpString("Elementary Variables", true)),
  };
  const BpAnnotation valueLabelsNote(
      BpCellText::Replicate(BpString("Using variable value labels", true)), -1, false);

  for (const VariableSet& set : selection) {
    AddSetRow(set, dataset, names, attributes, valueLabelsNote);
  }
}
