// Builds output the way the MRSET command does, through the same calls.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/output.h"

namespace output_test {

struct SetRow {
  std::string name;
  std::optional<std::string> label;  // none: the cell stays unset
  bool categories = false;           // a category set; else dichotomies
  std::string countedValue;          // dichotomies only
  bool valueLabelsNote = false;      // dichotomies only
  std::string dataType;
  std::vector<std::string> variables;
};

inline void WriteDisplayTable(BpProcedure& procedure, const std::vector<SetRow>& sets) {
  const BpString title("Multiple Response Sets", true);
  BpPivotTable table = procedure.PivotTable(title, title, false);
  BpDimension attributes = table.Dimension(BpString("Attributes", true), 2);
  attributes.Position(1, 1, true, false);
  BpDimension names = table.Dimension(BpString("Name", true), 2);
  BpCategory label = attributes.Category(BpString("Label", true));
  BpCategory codedAs = attributes.Category(BpString("Coded As", true));
  BpCategory countedValue = attributes.Category(BpString("Counted Value", true));
  BpCategory dataType = attributes.Category(BpString("Data Type", true));
  BpCategory elementary = attributes.Category(BpString("Elementary Variables", true));
  const BpAnnotation note(BpCellText::Replicate(BpString("Using variable value labels", true)), -1,
                          false);

  for (const SetRow& set : sets) {
    BpCategory name = names.Category(BpString(set.name, false));
    if (set.label) label.Cell(BpString(*set.label, false));
    if (set.categories) {
      codedAs.Cell(BpString("Categories", true));
      countedValue.Cell(BpString("N/A", true));
    } else {
      codedAs.Cell(BpString("Dichotomies", true));
      countedValue.Cell(BpString(set.countedValue, false));
      if (set.valueLabelsNote) countedValue.CellNote(note);
    }
    dataType.Cell(BpString(set.dataType, true));
    BpComposite variables("[:^1\r:$1]1", false);
    variables.Sublist();
    for (const std::string& variable : set.variables) variables.Add(BpString(variable, false));
    variables.EndSublist();
    elementary.Cell(variables);
    name.Release();
  }
}

inline void Warn(const std::string& text, const std::vector<std::string>& sublist) {
  BpComposite message(text, true);
  message.Sublist();
  for (const std::string& item : sublist) message.Add(BpString(item, false));
  message.EndSublist();
  BpError(message, kShowInOutput, kWarningLevel);
}

inline void Report(const std::string& text, const std::string& arg, int level = kErrorLevel) {
  BpComposite message(text, true);
  if (!arg.empty()) message.Add(BpString(arg, false));
  message.Finish();
  BpError(message, kShowInOutput, level);
}

}  // namespace output_test
