// The apply phase of MRSET: carries parsed subcommands out on the dataset's
// list of multiple response sets, shows and saves it.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "backend/mrset/mrset.h"
#include "host/data_source.h"

class BpProcedure;

using SetList = std::vector<VariableSet>;

void ApplySubcommands(const MRSetSubcommands& subcommands, VORN_DataSource& dataset,
                      BpProcedure& procedure);

// The dataset's set list while a command runs. Sets are found through a
// hash index of their names upper-cased once by the host; a deleted set
// leaves a hole until the list is next read whole, so that defining,
// replacing and deleting take constant time and sorting n log n.
class IndexedSetList {
 public:
  explicit IndexedSetList(SetList sets);

  bool Empty() const { return live_ == 0; }
  // A set whose name equals an existing one's, in any letter case, takes
  // that set's place whole; a new name goes to the end.
  void Store(VariableSet set);
  // Removes the sets of that name (any letter case); false when there is none.
  bool Delete(const std::string& name);
  void Clear();
  // In order of the upper-cased names.
  void SortByName();
  // The list in order, without holes.
  const SetList& Sets();
  // The same, taken: the list is left empty.
  SetList Take();

 private:
  // Where an upper-cased name stands: nearly always once.
  struct NamePositions {
    std::size_t first;
    std::vector<std::size_t> more;  // ascending
  };

  void Compact();
  void Reorder(std::vector<std::size_t>& order);
  std::optional<NamePositions> Find(const std::string& upperName);
  void EnsureIndexed();

  SetList sets_;
  std::vector<std::string> upperNames_;  // of sets_, position for position
  std::vector<bool> deleted_;
  std::unordered_map<std::string, NamePositions> positions_;  // of the live sets
  bool indexed_ = false;
  int scannedLookups_ = 0;
  std::size_t live_ = 0;
};

void BuildDichotomySet(const MRSetSubcommand& subcmd, const VORN_DataSource& dataset,
                       IndexedSetList& setList);
void BuildCategorySet(const MRSetSubcommand& subcmd, const VORN_DataSource& dataset,
                      IndexedSetList& setList);

void DeleteSets(const MRSetSubcommand& subcmd, IndexedSetList& setList);

void DisplaySets(const MRSetSubcommand& subcmd, const VORN_DataSource& dataset,
                 const SetList& setList, BpProcedure& procedure);
// The sets to show, in set-list order; fills `missing` with the requested
// names that match no set, in the order written.
SetList SelectSetsToDisplay(const MRSetSubcommand& subcmd, const SetList& setList,
                            std::vector<std::string>& missing);
std::string DataTypeText(const VariableSet& set, const VORN_DataSource& dataset);
std::string ElementaryVariableText(const std::string& name, const VORN_DataSource& dataset,
                                   bool showVariableLabels);
