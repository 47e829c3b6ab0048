// A dataset as the host holds it: the dictionary (variables in column order)
// and the stored multiple response sets.
//
// The dictionary is either held in memory or read on demand from a
// DictionarySource: a variable is built when first asked for and kept, so a
// reference to it stays valid while the dataset lives; Variables() builds
// them all.
//
// Guarantees: variable names are unique without regard to case (a source
// vouches for its own); FindVarIndex goes through an index of the
// case-folded names (no scan); the set list is kept exactly as it was last
// replaced.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/data_source.h"
#include "hostlib/data/dictionary_source.h"

namespace hostlib::data {

// A dataset that cannot be read, built or written. The message is meant for
// the user: it names the file (when there is one), the place and the fault.
class DatasetError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A list of sets that never changes, shared by whoever holds it.
using SharedSetList = std::shared_ptr<const std::vector<VariableSet>>;

class Dataset {
 public:
  Dataset() = default;
  // Throws DatasetError when two variables share a name (any letter case).
  explicit Dataset(std::vector<VORN_Variable> variables, std::vector<VariableSet> sets = {});
  // A dictionary read on demand from `dictionary`.
  explicit Dataset(std::shared_ptr<const DictionarySource> dictionary,
                   std::vector<VariableSet> sets = {});
  // The same, the sets shared with whoever holds `sets` (a store).
  Dataset(std::shared_ptr<const DictionarySource> dictionary, SharedSetList sets);

  unsigned int ColumnCount() const;
  int FindVarIndex(std::string_view name) const;  // -1 when none
  // Throws std::out_of_range for an index outside the dictionary, and
  // DatasetError when the source cannot read the variable.
  const VORN_Variable& Variable(int index) const;
  // Every variable; throws DatasetError as Variable.
  const std::vector<VORN_Variable>& Variables() const;
  void AddVariable(VORN_Variable variable);  // throws DatasetError on a repeated name

  const std::vector<VariableSet>& MultipleResponseSets() const { return *sets_; }
  // The list as it is now; a replacement is a new list.
  const SharedSetList& SharedMultipleResponseSets() const { return sets_; }
  // Only kinds 1 and 2 belong here; throws std::invalid_argument for a set of
  // another kind and then leaves the list as it was.
  void ReplaceMultipleResponseSets(std::vector<VariableSet> sets);
  // Counts the replacements, so that a host can tell that a command saved.
  std::uint64_t SetsRevision() const { return setsRevision_; }

 private:
  // Copies the dictionary of the source into memory, the source let go.
  void TakeIntoMemory();

  std::shared_ptr<const DictionarySource> dictionary_;
  // The variables read from the source so far (nodes: they do not move).
  mutable std::unordered_map<int, VORN_Variable> readVariables_;
  // In memory: the dictionary; with a source: all of it once Variables() ran.
  mutable std::vector<VORN_Variable> variables_;
  std::unordered_map<std::string, int> indexByFoldedName_;
  SharedSetList sets_ = std::make_shared<const std::vector<VariableSet>>();
  std::uint64_t setsRevision_ = 0;
};

// The key under which names are matched without regard to case.
std::string FoldName(std::string_view name);

}  // namespace hostlib::data
