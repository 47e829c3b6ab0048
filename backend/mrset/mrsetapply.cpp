#include "backend/mrset/mrsetapply.h"

#include <algorithm>

#include "backend/mrset/mrsetassert.h"
#include "backend/mrset/mrsetparse.h"
#include "host/output.h"
#include "host/platform_strings.h"

#define APPLY_ASSERT(condition, text) MRSET_ASSERT(condition, text, "backend/mrset/mrsetapply")

// ---- the driver ----------------------------------------------------------

void ApplySubcommands(const MRSetSubcommands& subcommands, VORN_DataSource& dataset,
                      BpProcedure& procedure) {
  SetList setList = VariableSets(dataset, kMultipleResponseSets);
  for (const MRSetSubcommand& subcmd : subcommands) {
    switch (subcmd.fType) {
      case MRSetSubcommand::kMDGROUP:
        BuildDichotomySet(subcmd, dataset, setList);
        break;
      case MRSetSubcommand::kMCGROUP:
        BuildCategorySet(subcmd, dataset, setList);
        break;
      case MRSetSubcommand::kDISPLAY:
        if (setList.empty()) {
          ReportWarning("No MRSET to display", "", "");
          break;
        }
        // Sorting the list itself is deliberate: after a DISPLAY the sets are
        // saved in name order.
        std::sort(setList.begin(), setList.end(), CompareSetNames);
        DisplaySets(subcmd, dataset, setList, procedure);
        break;
      case MRSetSubcommand::kDELETE:
        DeleteSets(subcmd, setList);
        break;
      case MRSetSubcommand::kNone:
        break;
    }
  }
  SaveVariableSets(setList, dataset, kMultipleResponseSets);
}

bool CompareSetNames(const VariableSet& a, const VariableSet& b) {
  return a.GetName(kUpperCase) < b.GetName(kUpperCase);
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
                       SetList& setList) {
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
  StoreVariableSet(set, setList);
}

void BuildCategorySet(const MRSetSubcommand& subcmd, const VORN_DataSource& dataset,
                      SetList& setList) {
  APPLY_ASSERT(!subcmd.fName.empty(), "!subcmd.fName.empty()");
  APPLY_ASSERT(subcmd.fName[0] == '$', "subcmd.fName[0] == '$'");
  APPLY_ASSERT(subcmd.fType == MRSetSubcommand::kMCGROUP,
               "subcmd.fType == MRSetSubcommand::kMCGROUP");

  VariableSet set(subcmd.fName, VariableSet::kMultipleCategorySet);
  if (!subcmd.fLabel.empty()) set.SetLabel(subcmd.fLabel);
  AddVariables(subcmd, dataset, set);
  StoreVariableSet(set, setList);
}

// A set whose name equals an existing one's, in any letter case, takes that
// set's place whole; a new name goes to the end.
void StoreVariableSet(const VariableSet& set, SetList& setList) {
  const SetNameEquals sameName(set.GetName(kAsStored));
  const auto location = std::find_if(setList.begin(), setList.end(), sameName);
  if (location == setList.end()) {
    setList.push_back(set);
    return;
  }
  APPLY_ASSERT(location <= setList.end(), "location <= end");
  *location = set;
}

// ---- deleting ------------------------------------------------------------

SetNameEquals::SetNameEquals(const std::string& name) : upperName_(name) {
  VORNMBstrupr_A(upperName_);
}

bool SetNameEquals::operator()(const VariableSet& set) const {
  return set.GetName(kUpperCase) == upperName_;
}

void DeleteSets(const MRSetSubcommand& subcmd, SetList& setList) {
  APPLY_ASSERT(subcmd.fType == MRSetSubcommand::kDELETE,
               "subcmd.fType == MRSetSubcommand::kDELETE");
  if (subcmd.fAll) {
    if (setList.empty()) {
      ReportWarning("No MRSETs to delete", "", "");
    } else {
      setList.clear();
    }
    return;
  }
  APPLY_ASSERT(!subcmd.fNames.empty(), "!subcmd.fNames.empty()");
  if (subcmd.fNames.empty()) return;
  for (auto namesIter = subcmd.fNames.begin(); namesIter != subcmd.fNames.end(); ++namesIter) {
    APPLY_ASSERT((*namesIter)[0] == '$', "(*namesIter)[0] == '$'");
    DeleteSetByName(*namesIter, setList);
  }
}

void DeleteSetByName(const std::string& name, SetList& setList) {
  const auto end = setList.end();
  const auto last = std::remove_if(setList.begin(), end, SetNameEquals(name));
  if (last == end) {
    ReportWarning("^1 MRSET can not be found in the dataset.", name, "");
    return;
  }
  APPLY_ASSERT((end - 1) == last, "(end - 1) == last");
  setList.pop_back();
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
