#include "hostlib/formats/ddi.h"

#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <map>
#include <optional>
#include <set>
#include <unordered_map>

#include "hostlib/formats/xml.h"

namespace hostlib::formats {
namespace {

using data::DatasetError;

constexpr int kDefaultStringWidth = 255;
constexpr int kMaxStringWidth = 32767;
constexpr std::string_view kCountedValueNote = "countedValue";
constexpr std::string_view kCategoryLabelsNote = "categoryLabels";
constexpr std::string_view kLabelSourceNote = "labelSource";

std::optional<double> AsNumber(std::string_view text) {
  double value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

std::string RenderNumber(double value) {
  char buffer[40];
  if (std::trunc(value) == value && std::fabs(value) < 1e15) {
    std::snprintf(buffer, sizeof buffer, "%.0f", value);
  } else {
    std::snprintf(buffer, sizeof buffer, "%.17g", value);
  }
  return buffer;
}

// A variable's categories that are answers, with their labels.
// The values as written back (numbers as RenderNumber writes them).
using Categories = std::map<std::string, std::string>;
const Categories kNoCategories;

class Reader {
 public:
  Reader(const std::string& text, std::string file) : text_(text), file_(std::move(file)) {}

  data::Dataset Read() {
    pugi::xml_document document;
    xml::Parse(document, text_, file_);
    const pugi::xml_node root = document.document_element();
    if (xml::LocalName(root) != "codeBook") Fail(root, "the root element is not <codeBook>");
    data::Dataset dataset;
    std::vector<pugi::xml_node> groups;
    for (const pugi::xml_node& dataDscr : xml::Children(root, "dataDscr")) {
      for (const pugi::xml_node& var : xml::Children(dataDscr, "var")) ReadVar(var, dataset);
      CollectGroups(dataDscr, groups);
    }
    std::vector<VariableSet> sets;
    std::set<std::string> setNames;
    for (const pugi::xml_node& group : groups) {
      sets.push_back(ReadGroup(group, dataset));
      if (!setNames.insert(data::FoldName(sets.back().GetName(kAsStored))).second) {
        Fail(group, "a second set named " + sets.back().GetName(kAsStored));
      }
    }
    dataset.ReplaceMultipleResponseSets(std::move(sets));
    return dataset;
  }

 private:
  [[noreturn]] void Fail(const pugi::xml_node& node, const std::string& fault) const {
    throw DatasetError(file_ + ": " + xml::Place(node, text_) + ": " + fault);
  }

  // The multipleResp groups in document order, wherever they stand: groups
  // may hold groups. Walked without recursion, as the file decides the depth.
  static void CollectGroups(const pugi::xml_node& dataDscr, std::vector<pugi::xml_node>& groups) {
    pugi::xml_node node = dataDscr.first_child();
    while (node && node != dataDscr) {
      const bool group = node.type() == pugi::node_element && xml::LocalName(node) == "varGrp";
      if (group && std::string_view(node.attribute("type").as_string()) == "multipleResp") {
        groups.push_back(node);
      }
      if (group && node.first_child()) {
        node = node.first_child();
        continue;
      }
      while (node != dataDscr && !node.next_sibling()) node = node.parent();
      if (node != dataDscr) node = node.next_sibling();
    }
  }

  // Of several <labl>s the one of the element's own level (or of none), then
  // any but a short one, then the first: a short label is a code.
  static std::string Label(const pugi::xml_node& element, std::string_view level) {
    pugi::xml_node best;
    int bestRank = 3;
    for (const pugi::xml_node& label : xml::Children(element, "labl")) {
      const std::string_view own = label.attribute("level").as_string();
      const int rank = own.empty() || own == level ? 0 : own == "short" ? 2 : 1;
      if (rank < bestRank) {
        best = label;
        bestRank = rank;
      }
    }
    return best ? xml::Text(best) : std::string();
  }

  // Without a varFormat the codes tell the type: letters make a string.
  static bool HasTextCodes(const pugi::xml_node& var) {
    for (const pugi::xml_node& category : xml::Children(var, "catgry")) {
      if (std::string_view(category.attribute("missing").as_string()) == "Y") continue;
      if (!AsNumber(xml::Text(xml::Child(category, "catValu")))) return true;
    }
    return false;
  }

  void ReadVar(const pugi::xml_node& var, data::Dataset& dataset) {
    const std::string name = var.attribute("name").as_string();
    if (name.empty()) Fail(var, "a <var> has no name");
    const pugi::xml_node format = xml::Child(var, "varFormat");
    const std::string type = format.attribute("type").as_string("numeric");
    if (type != "numeric" && type != "character") {
      Fail(format, "unknown varFormat type \"" + type + "\"");
    }
    const bool isString = type == "character" || (!format && HasTextCodes(var));
    VORN_ValueLabels labels;
    Categories categories;
    int width = 0;
    for (const pugi::xml_node& category : xml::Children(var, "catgry")) {
      const std::string value = xml::Text(xml::Child(category, "catValu"));
      const bool hasLabel = static_cast<bool>(xml::Child(category, "labl"));
      const std::string label = Label(category, "category");
      if (isString) {
        width = std::max(width, static_cast<int>(value.size()));
        if (hasLabel) labels.text.emplace(value, label);
        if (std::string_view(category.attribute("missing").as_string()) != "Y") {
          categories.emplace(value, label);
        }
        continue;
      }
      const auto number = AsNumber(value);
      const bool missing = std::string_view(category.attribute("missing").as_string()) == "Y";
      // Statistics packages list their own missing codes (".", ".a") among the
      // categories of a numeric variable: no value this dictionary can hold.
      if (!number && missing) continue;
      if (!number)
        Fail(category, "the category value \"" + value + "\" of " + name + " is not a number");
      // A missing category (no answer, refused) is no answer to the question.
      if (!missing) categories.emplace(RenderNumber(*number), label);
      if (hasLabel) labels.numeric.emplace(*number, label);
    }
    if (isString) {
      const pugi::xml_node location = xml::Child(var, "location");
      if (location && location.attribute("width")) {
        width = location.attribute("width").as_int(0);
        if (width < 1 || width > kMaxStringWidth)
          Fail(location, "the width must be from 1 to 32767");
      } else if (location && location.attribute("StartPos") && location.attribute("EndPos")) {
        const long long first = location.attribute("StartPos").as_llong(0);
        const long long last = location.attribute("EndPos").as_llong(0);
        if (first < 1 || last < first || last - first >= kMaxStringWidth)
          Fail(location, "the width must be from 1 to 32767");
        width = static_cast<int>(last - first + 1);
      } else if (width == 0) {
        width = kDefaultStringWidth;
      }
    }
    // Without a label, the question's text says what the variable holds.
    std::string label = Label(var, "variable");
    if (label.empty()) label = xml::Text(xml::Child(xml::Child(var, "qstn"), "qstnLit"));
    try {
      dataset.AddVariable(
          VORN_Variable(name, isString ? width : 0, std::move(label), std::move(labels)));
    } catch (const DatasetError& error) {
      Fail(var, error.what());
    }
    if (const std::string id = var.attribute("ID").as_string(); !id.empty()) nameById_[id] = name;
    categories_[data::FoldName(name)] = std::move(categories);
  }

  std::string Note(const pugi::xml_node& group, std::string_view type) const {
    for (const pugi::xml_node& note : xml::Children(group, "notes")) {
      if (type == note.attribute("type").as_string()) return xml::Text(note);
    }
    return {};
  }

  bool HasNote(const pugi::xml_node& group, std::string_view type) const {
    for (const pugi::xml_node& note : xml::Children(group, "notes")) {
      if (type == note.attribute("type").as_string()) return true;
    }
    return false;
  }

  // The value that marks a checked box, when every member is one: members
  // coded 0 and 1 only count 1; members that share their codes, one of them
  // labelled as a yes ("Yes", "Selected", "Mentioned"...), count that one
  // (the others being no, don't know and the like).
  std::optional<std::string> CheckedValue(const std::vector<std::string>& members) const {
    const Categories* shared = nullptr;
    bool zeroOne = true;
    for (const std::string& member : members) {
      const auto found = categories_.find(data::FoldName(member));
      if (found == categories_.end()) return std::nullopt;
      if (found->second.empty()) continue;  // lists no codes: tells nothing
      for (const auto& [value, label] : found->second)
        zeroOne = zeroOne && (value == "0" || value == "1");
      if (shared != nullptr && *shared != found->second) shared = &kNoCategories;
      if (shared == nullptr) shared = &found->second;
    }
    if (shared == nullptr) return std::nullopt;
    if (zeroOne) return "1";
    if (shared->size() < 2) return std::nullopt;
    std::optional<std::string> yes;
    for (const auto& [value, label] : *shared) {
      if (!IsYes(label)) continue;
      if (yes) return std::nullopt;
      yes = value;
    }
    return yes;
  }

  static bool IsYes(std::string label) {
    for (char& c : label) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    static const std::set<std::string> kYes = {
        "yes",    "selected", "checked", "mentioned", "chosen", "ticked", "true",
        "marked", "applies",  "y",       "oui",       "ja",     "si",     "s\u00ed"};
    return kYes.count(label) > 0;
  }

  VariableSet ReadGroup(const pugi::xml_node& group, const data::Dataset& dataset) const {
    std::string name = group.attribute("name").as_string();
    if (name.empty()) name = group.attribute("ID").as_string();
    if (name.empty()) Fail(group, "a multipleResp <varGrp> has neither name nor ID");
    if (name.front() != '$') name = "$" + name;
    std::vector<std::string> members;
    const std::string refs = group.attribute("var").as_string();
    for (std::size_t at = 0; at < refs.size();) {
      const std::size_t end = std::min(refs.find_first_of(" \t\r\n", at), refs.size());
      if (end > at) {
        const std::string ref = refs.substr(at, end - at);
        const auto byId = nameById_.find(ref);
        if (byId != nameById_.end()) {
          members.push_back(byId->second);
        } else if (dataset.FindVarIndex(ref) >= 0) {
          members.push_back(dataset.Variable(dataset.FindVarIndex(ref)).GetName());
        } else {
          Fail(group, "the group " + name + " refers to " + ref + ", which is no <var>");
        }
      }
      at = end + 1;
    }
    if (members.empty()) Fail(group, "the group " + name + " lists no variables");
    const bool counted = HasNote(group, kCountedValueNote);
    const auto checked = counted ? std::nullopt : CheckedValue(members);
    const bool dichotomies = counted || checked;
    VariableSet set(
        name, dichotomies ? VariableSet::kMultipleDichotomySet : VariableSet::kMultipleCategorySet);
    set.SetLabel(Label(group, "varGrp"));
    if (dichotomies) {
      set.SetValue(counted ? Note(group, kCountedValueNote) : *checked);
      set.UseVariableCategoryLabels(Note(group, kCategoryLabelsNote) == "countedValues");
      set.LabelSetByVariable(Note(group, kLabelSourceNote) == "variableLabel");
    }
    for (const std::string& member : members) set.AddVariableName(member);
    return set;
  }

  std::string text_;  // as UTF-8 once parsed
  std::string file_;
  std::unordered_map<std::string, std::string> nameById_;
  std::unordered_map<std::string, Categories> categories_;  // not missing, by folded name
};

std::string VarId(int index) { return "V" + std::to_string(index + 1); }

// The counted values that each member must list as a category.
std::map<int, std::set<std::string>> CountedValuesByMember(const data::Dataset& dataset) {
  std::map<int, std::set<std::string>> counted;
  for (const VariableSet& set : dataset.MultipleResponseSets()) {
    if (set.GetType() != VariableSet::kMultipleDichotomySet) continue;
    for (const std::string& member : set.GetVariableNames(kAsStored)) {
      const int index = dataset.FindVarIndex(member);
      if (index >= 0) counted[index].insert(set.GetValue());
    }
  }
  return counted;
}

void RenderCategory(std::string& out, const std::string& value, const std::string* label) {
  out += "      <catgry>\n        <catValu>" + xml::Escape(value) + "</catValu>\n";
  if (label != nullptr) out += "        <labl>" + xml::Escape(*label) + "</labl>\n";
  out += "      </catgry>\n";
}

void RenderVar(std::string& out, const VORN_Variable& variable, int index,
               const std::set<std::string>& counted) {
  const bool isString = variable.GetType() > 0;
  out += "    <var ID=\"" + VarId(index) + "\" name=\"" + xml::Escape(variable.GetName()) + "\">\n";
  if (isString) out += "      <location width=\"" + std::to_string(variable.GetType()) + "\"/>\n";
  if (variable.GetLabel() != nullptr) {
    out += "      <labl>" + xml::Escape(variable.GetLabel()) + "</labl>\n";
  }
  const VORN_ValueLabels& labels = variable.GetValueLabels().Labels();
  std::set<std::string> listed;
  if (isString) {
    for (const auto& [value, label] : labels.text) {
      RenderCategory(out, value, &label);
      listed.insert(value);
    }
  } else {
    for (const auto& [value, label] : labels.numeric) {
      RenderCategory(out, RenderNumber(value), &label);
      listed.insert(RenderNumber(value));
    }
  }
  for (const std::string& value : counted) {
    const auto number = AsNumber(value);
    const std::string shown = !isString && number ? RenderNumber(*number) : value;
    if (!isString && !number) continue;  // a numeric member cannot hold it
    if (listed.insert(shown).second) RenderCategory(out, shown, nullptr);
  }
  out += std::string("      <varFormat type=\"") + (isString ? "character" : "numeric") + "\"/>\n";
  out += "    </var>\n";
}

void RenderGroup(std::string& out, const data::Dataset& dataset, const VariableSet& set,
                 int index) {
  std::string refs;
  for (const std::string& member : set.GetVariableNames(kAsStored)) {
    const int var = dataset.FindVarIndex(member);
    if (var < 0) {
      throw DatasetError("set " + set.GetName(kAsStored) + ": the member " + member +
                         " is not in the dictionary");
    }
    refs += (refs.empty() ? "" : " ") + VarId(var);
  }
  out += "    <varGrp ID=\"G" + std::to_string(index + 1) + "\" type=\"multipleResp\" name=\"" +
         xml::Escape(set.GetName(kAsStored)) + "\" var=\"" + refs + "\">\n";
  if (!set.GetLabel().empty()) out += "      <labl>" + xml::Escape(set.GetLabel()) + "</labl>\n";
  if (set.GetType() == VariableSet::kMultipleDichotomySet) {
    out += "      <notes type=\"countedValue\">" + xml::Escape(set.GetValue()) + "</notes>\n";
    out += std::string("      <notes type=\"categoryLabels\">") +
           (set.qUseVariableCategoryLabels() ? "countedValues" : "variableLabels") + "</notes>\n";
    if (set.qLabelSetByVariable())
      out += "      <notes type=\"labelSource\">variableLabel</notes>\n";
  }
  out += "    </varGrp>\n";
}

}  // namespace

data::Dataset ReadDdi(const std::string& text, const std::string& file) {
  return Reader(text, file).Read();
}

bool IsDdi(const std::string& text) {
  pugi::xml_document document;
  if (!document.load_buffer(text.data(), text.size())) return false;
  return xml::LocalName(document.document_element()) == "codeBook";
}

std::string RenderDdi(const data::Dataset& dataset, const std::string& title) {
  std::string out =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<codeBook xmlns=\"ddi:codebook:2_5\" version=\"2.5\">\n"
      "  <stdyDscr>\n    <citation>\n      <titlStmt>\n        <titl>" +
      xml::Escape(title) +
      "</titl>\n      </titlStmt>\n    </citation>\n  </stdyDscr>\n  <dataDscr>\n";
  const auto& sets = dataset.MultipleResponseSets();
  for (std::size_t i = 0; i < sets.size(); ++i)
    RenderGroup(out, dataset, sets[i], static_cast<int>(i));
  const auto counted = CountedValuesByMember(dataset);
  static const std::set<std::string> kNone;
  for (int i = 0; i < static_cast<int>(dataset.ColumnCount()); ++i) {
    const auto found = counted.find(i);
    RenderVar(out, dataset.Variable(i), i, found == counted.end() ? kNone : found->second);
  }
  return out + "  </dataDscr>\n</codeBook>\n";
}

}  // namespace hostlib::formats
