// A dataset as the host holds it in memory: the dictionary (variables in
// column order) and the stored multiple response sets.
//
// Guarantees: variable names are unique without regard to case; FindVarIndex
// goes through a hash index of the case-folded names (no scan); the set list
// is kept exactly as it was last replaced.
#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/data_source.h"

namespace hostlib::data {

// A dataset that cannot be read, built or written. The message is meant for
// the user: it names the file (when there is one), the place and the fault.
class DatasetError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class Dataset {
 public:
  Dataset() = default;
  // Throws DatasetError when two variables share a name (any letter case).
  explicit Dataset(std::vector<VORN_Variable> variables, std::vector<VariableSet> sets = {});

  unsigned int ColumnCount() const { return static_cast<unsigned int>(variables_.size()); }
  int FindVarIndex(std::string_view name) const;  // -1 when none
  // Throws std::out_of_range for an index outside the dictionary.
  const VORN_Variable& Variable(int index) const {
    return variables_.at(static_cast<std::size_t>(index));
  }
  const std::vector<VORN_Variable>& Variables() const { return variables_; }
  void AddVariable(VORN_Variable variable);  // throws DatasetError on a repeated name

  const std::vector<VariableSet>& MultipleResponseSets() const { return sets_; }
  // Only kinds 1 and 2 belong here; throws std::invalid_argument for a set of
  // another kind and then leaves the list as it was.
  void ReplaceMultipleResponseSets(std::vector<VariableSet> sets);
  // Counts the replacements, so that a host can tell that a command saved.
  std::uint64_t SetsRevision() const { return setsRevision_; }

 private:
  std::vector<VORN_Variable> variables_;
  std::unordered_map<std::string, int> indexByFoldedName_;
  std::vector<VariableSet> sets_;
  std::uint64_t setsRevision_ = 0;
};

// The key under which names are matched without regard to case.
std::string FoldName(std::string_view name);

}  // namespace hostlib::data
