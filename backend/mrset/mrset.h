// The record of one parsed MRSET subcommand, shared by the parse and the
// apply phases.
#pragma once

#include <string>
#include <vector>

struct MRSetSubcommand {
  enum Type : int {
    kNone = 0,
    kMDGROUP = 1,
    kMCGROUP = 2,
    kDISPLAY = 3,
    kDELETE = 4,
  };

  Type fType = kNone;
  std::string fName;
  std::string fLabel;
  std::vector<std::string> fVariables;
  std::string fValue;
  bool fValueIsNumber = false;
  std::vector<std::string> fNames;
  bool fAll = false;
  bool fLabelFromVarLabel = false;
  bool fCountedValueLabels = false;
};

using MRSetSubcommands = std::vector<MRSetSubcommand>;
