// The apply phase of MRSET: carries parsed subcommands out on the dataset's
// list of multiple response sets, shows and saves it.
#pragma once

#include <string>
#include <vector>

#include "backend/mrset/mrset.h"
#include "host/data_source.h"

class BpProcedure;

using SetList = std::vector<VariableSet>;

void ApplySubcommands(const MRSetSubcommands& subcommands, VORN_DataSource& dataset,
                      BpProcedure& procedure);

void BuildDichotomySet(const MRSetSubcommand& subcmd, const VORN_DataSource& dataset,
                       SetList& setList);
void BuildCategorySet(const MRSetSubcommand& subcmd, const VORN_DataSource& dataset,
                      SetList& setList);
void StoreVariableSet(const VariableSet& set, SetList& setList);
bool CompareSetNames(const VariableSet& a, const VariableSet& b);

// Matches a set by name without regard to case: both sides upper-cased by
// the host, then compared byte for byte.
class SetNameEquals {
 public:
  explicit SetNameEquals(const std::string& name);
  bool operator()(const VariableSet& set) const;

 private:
  std::string upperName_;
};

void DeleteSets(const MRSetSubcommand& subcmd, SetList& setList);
void DeleteSetByName(const std::string& name, SetList& setList);

void DisplaySets(const MRSetSubcommand& subcmd, const VORN_DataSource& dataset,
                 const SetList& setList, BpProcedure& procedure);
// The sets to show, in set-list order; fills `missing` with the requested
// names that match no set, in the order written.
SetList SelectSetsToDisplay(const MRSetSubcommand& subcmd, const SetList& setList,
                            std::vector<std::string>& missing);
std::string DataTypeText(const VariableSet& set, const VORN_DataSource& dataset);
std::string ElementaryVariableText(const std::string& name, const VORN_DataSource& dataset,
                                   bool showVariableLabels);
