// A dictionary inferred from a CSV export of a survey platform: the types,
// string widths and (for columns of few values) categories of the columns,
// and the multi-select questions that runs of columns spell:
//   PREFIX_1 .. PREFIX_n holding 0/1 (or blank/1): a dichotomy set counting 1;
//   PREFIX_1 .. PREFIX_n holding codes: a category set;
//   PREFIX/OPTION holding 0/1, or blank and one mark: a dichotomy set.
// The sets found are only proposed (as commands for the user to review);
// the dictionary itself holds none.
#pragma once

#include <string>
#include <vector>

#include "hostlib/data/dataset_store.h"
#include "hostlib/formats/csv.h"

namespace hostlib::formats {

struct InferredDictionary {
  data::DatasetContents contents;  // "path" and "fields", no sets
  std::vector<VariableSet> proposedSets;
  std::vector<std::string> notes;  // runs of columns seen but not proposed, and why
};

// `dataPath` is what the codebook's "path" names: the CSV itself. A column
// whose header is no valid name gets one made of it (the header becomes the
// title).
InferredDictionary InferDictionary(const CsvTable& table, const std::string& dataPath);

// The commands for the proposed sets, preceded by comments saying where they
// came from and what was left out.
std::string RenderProposal(const InferredDictionary& inferred, const std::string& source);

}  // namespace hostlib::formats
