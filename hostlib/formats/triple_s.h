// Triple-S XML (version 2.0 and later) in: a survey's variables (single,
// multiple, quantity, character, logical) with labels, values and widths.
//
// A multiple variable becomes member variables and a set labelled like it:
// the bitstring form one member per code (NAME_CODE, 1 where chosen, 0 where
// not), a dichotomy set counting 1; the spread form one member per subfield
// (NAME_1 .. NAME_n, holding codes), a category set.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "hostlib/data/dataset.h"

namespace hostlib::formats {

// Where each dictionary variable's values sit in a data record.
struct TripleSColumn {
  std::size_t start = 0;           // from 1: the column (fixed) or field (CSV)
  std::size_t width = 0;           // characters (fixed) of this variable's value
  std::optional<std::size_t> bit;  // a bitstring member: which character of the field
  bool zeroIsEmpty = false;        // a spread subfield: zeros fill the unused ones
};

struct TripleSSurvey {
  data::Dataset dataset;
  std::vector<TripleSColumn> columns;  // one per dictionary variable
  bool csvData = false;                // the data file is CSV rather than fixed columns
  std::size_t skipLines = 0;           // header lines of a CSV data file
  std::string dataHref;                // the data file the record names, if any
  bool severalRecords = false;         // a hierarchy, whose data are not converted
  // The data are in the encoding the XML declares: ISO-8859-1 or
  // Windows-1252 (converted), else UTF-8.
  int dataSingleByte = 0;  // an xml::SingleByte
};

// Throws DatasetError naming `file`, the line and the fault.
TripleSSurvey ReadTripleS(const std::string& text, const std::string& file);

// Whether the XML text's root element is <sss>.
bool IsTripleS(const std::string& text);

// The data as CSV (a header of the variable names, then one record per case),
// in UTF-8. Throws DatasetError naming `file` and the line of a record that is
// too short or of bytes that are not UTF-8 when no other encoding is declared.
std::string ConvertTripleSData(const TripleSSurvey& survey, const std::string& data,
                               const std::string& file);

}  // namespace hostlib::formats
