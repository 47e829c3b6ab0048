// MRSET commands run whole through the module on an in-memory dataset: what
// each writes, in order, and which sets it leaves.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/backend/mrset/mrset_test_support.h"

namespace {

using mrset_test::Host;
using Lines = std::vector<std::string>;

struct CommandCase {
  const char* name;
  Lines setup;  // commands run first, expected to be clean
  std::string command;
  Lines written;  // E: error, W: warning, A: assertion, T: table title
  Lines setsAfter;
};

const std::string kName64 = "$" + std::string(63, 'n');
const std::string kName65 = "$" + std::string(64, 'n');

const std::vector<CommandCase> kCases = {
    // The driver.
    {"KeywordAlone", {}, "MRSET.", {"E: No subcommand in MRSET command."}, {}},
    {"SlashAtEnd", {}, "MRSET /.", {"E: Invalid MRSET subcommand. Found end of command .."}, {}},
    {"UnknownSubcommandAsWritten",
     {},
     "MRSET /groupx.",
     {"E: Invalid MRSET subcommand. Found groupx .."},
     {}},
    {"FirstSlashOptional", {}, "MRSET MCGROUP NAME=$a VARIABLES=like1 like2.", {}, {"$a"}},
    {"FailureInThirdSubcommandAppliesNothing",
     {},
     "MRSET /MCGROUP NAME=$a VARIABLES=like1 like2 /MCGROUP NAME=$b VARIABLES=like1 like2 "
     "/MCGROUP NAME=c VARIABLES=like1 like2.",
     {"E: The MRSET name c must start with $."},
     {}},

    // Groups.
    {"EmptyDichotomyGroup", {}, "MRSET /MDGROUP.", {"E: Empty MDGroup found"}, {}},
    {"EmptyCategoryGroup", {}, "MRSET /MCGROUP.", {"E: Empty MCGroup found"}, {}},
    {"GroupFollowedBySlashFailsSilently",
     {},
     "MRSET /MDGROUP /MCGROUP NAME=$b VARIABLES=like1 like2.",
     {},
     {}},
    {"LabelSourceRefusedInCategoryGroup",
     {},
     "MRSET /MCGROUP NAME=$b LABELSOURCE=VARLABEL VARIABLES=like1 like2.",
     {"E: Unexpected LABELSOURCE keyword in MCGROUP subcommand."},
     {}},
    {"ValueRefusedInCategoryGroup",
     {},
     "MRSET /MCGROUP NAME=$b VALUE=1.",
     {"E: Unexpected VALUE keyword in MCGROUP subcommand."},
     {}},
    {"SixLettersSelectLabelSource",
     {},
     "MRSET /MDGROUP NAME=$a LABELSXYZ=VARLABEL CATEGORYLABELS=COUNTEDVALUES "
     "VARIABLES=like1 like4 VALUE=1.",
     {},
     {"$a"}},
    {"ClauseOrderIsFree", {}, "MRSET /MDGROUP VALUE=1 VARIABLES=like1 like2 NAME=$a.", {}, {"$a"}},
    {"RepeatedNameKeepsTheLast",
     {},
     "MRSET /MDGROUP NAME=$a NAME=$b VARIABLES=like1 like2 VALUE=1.",
     {},
     {"$b"}},
    {"UnknownGroupKeyword",
     {},
     "MRSET /MDGROUP NAME=$a COLOR=red.",
     {"E: Unexpected COLOR keyword in MDGROUP subcommand."},
     {}},

    // Name and label clauses.
    {"NameWithoutEquals",
     {},
     "MRSET /MDGROUP NAME 'x'.",
     {"E: MRSET NAME was expecting \"=\". Found x...;"},
     {}},
    {"QuotedName",
     {},
     "MRSET /MDGROUP NAME='$a'.",
     {"E: Unexpected MRSET name value $a was found."},
     {}},
    {"Name65Bytes",
     {},
     "MRSET /MCGROUP NAME=" + kName65 + " VARIABLES=like1 like2.",
     {"E: The MRSET name " + kName65 + " has more than 8 chars length"},
     {}},
    {"Name64Bytes",
     {},
     "MRSET /MCGROUP NAME=" + kName64 + " VARIABLES=like1 like2.",
     {},
     {kName64}},
    {"InvalidName",
     {},
     "MRSET /MCGROUP NAME=$a. VARIABLES=like1 like2.",
     {"E: The MRSET name $a. is invalid"},
     {}},
    {"UnquotedLabel",
     {},
     "MRSET /MCGROUP LABEL=x.",
     {"E: A quoted label string was expected. Found x .."},
     {}},
    {"LabelWithoutEquals",
     {},
     "MRSET /MCGROUP LABEL 'x'.",
     {"E: MRSET LABEL was expecting \"=\". Found x...;"},
     {}},
    {"LabelSourceNotVarLabel",
     {},
     "MRSET /MDGROUP LABELSOURCE=NONE.",
     {"E: The keyword VARLABEL was expected.  Found NONE..."},
     {}},
    {"CategoryLabelsBadKeyword",
     {},
     "MRSET /MDGROUP CATEGORYLABELS=x.",
     {"E: Expected VARLABELS or COUNTEDVALUES.  Found x..."},
     {}},
    {"ClauseFollowedByParenthesis",
     {},
     "MRSET /MDGROUP NAME=$a (.",
     {"E: Unexpected token ( in this context"},
     {}},
    {"KeywordFollowedByParenthesis",
     {},
     "MRSET /MDGROUP NAME=$a LABEL (.",
     {"E: Unexpected token ( in this context"},
     {}},

    // Counted value and variables.
    {"ValueWithoutEquals",
     {},
     "MRSET /MDGROUP VALUE 1.",
     {"E: MRSET VALUE was expecting \"=\". Found 1..."},
     {}},
    {"ValueIsAName",
     {},
     "MRSET /MDGROUP VALUE=yes.",
     {"E: The MRSET value was expected. Found yes..."},
     {}},
    {"FractionalValueIsReportedButApplied",
     {},
     "MRSET /MDGROUP NAME=$a VARIABLES=like1 like2 VALUE=1.5.",
     {"E: The counted value 1.5 is not an integer."},
     {"$a"}},
    {"VariablesWithoutEquals",
     {},
     "MRSET /MCGROUP VARIABLES like1.",
     {"E: MRSET VARIABLES was expecting \"=\". Found like1..."},
     {}},
    {"UnknownVariable",
     {},
     "MRSET /MCGROUP NAME=$a VARIABLES=like1 nosuch.",
     {"E: Variable nosuch does not exist in the dataset."},
     {}},

    // Completion checks.
    {"UnnamedCategoryGroupIsReportedButApplied",
     {},
     "MRSET /MCGROUP VARIABLES=like1 like2.",
     {"E: MCGROUP has no name.", "A: !subcmd.fName.empty()", "A: subcmd.fName[0] == '$'"},
     {""}},
    {"UnnamedDichotomyGroup",
     {},
     "MRSET /MDGROUP VARIABLES=like1 like2 VALUE=1.",
     {"E: MDGROUP has no name."},
     {}},
    {"DichotomyWithoutVariables",
     {},
     "MRSET /MDGROUP NAME=$a VALUE=1.",
     {"E: MDGROUP $a has no variable names."},
     {}},
    {"CategoryWithoutVariables",
     {},
     "MRSET /MCGROUP NAME=$a LABEL='x'.",
     {"E: MCGROUP $a has no variable names."},
     {}},
    {"DichotomyWithoutValue",
     {},
     "MRSET /MDGROUP NAME=$a VARIABLES=like1 like2.",
     {"E: MDGROUP $a has no counted value."},
     {}},
    {"NumbersWithStringValue",
     {},
     "MRSET /MDGROUP NAME=$a VARIABLES=like1 like2 VALUE='1'.",
     {"E: $a:variables are numbers and countedval is string."},
     {}},
    {"StringsWithNumberValue",
     {},
     "MRSET /MDGROUP NAME=$a VARIABLES=s8 s5 VALUE=1.",
     {"E: $a:variables are string and countedval is number."},
     {}},
    {"LabelSourceNeedsCountedValues",
     {},
     "MRSET /MDGROUP NAME=$a VARIABLES=like1 like2 VALUE=1 LABELSOURCE=VARLABEL.",
     {"E: $a:LABELSOURCE=VARLABEL requires CATEGORYLABELS=COUNTEDVALUES..."},
     {}},
    {"QuotedValueLookedUpAsNumberFirst",
     {},
     "MRSET /MDGROUP NAME=$a VARIABLES=like1 nolab VALUE='1' CATEGORYLABELS=COUNTEDVALUES.",
     {"E: No countedval label for variable nolab..."},
     {}},

    // Validation against the dataset.
    {"OneVariable",
     {},
     "MRSET /MCGROUP NAME=$a VARIABLES=like1.",
     {"E: Only one variable like1 was found."},
     {}},
    {"NumericThenString",
     {},
     "MRSET /MCGROUP NAME=$a VARIABLES=like1 like2 s8.",
     {"E: s8 variable has a different type."},
     {}},
    {"StringThenNumeric",
     {},
     "MRSET /MCGROUP NAME=$a VARIABLES=s8 LIKE1.",
     {"E: like1 variable has a different type."},
     {}},
    {"ValueWiderThanNarrowest",
     {},
     "MRSET /MDGROUP NAME=$a VARIABLES=s8 s3 s5 VALUE='ABCD'.",
     {"E: CountVal ABCD is wider than the narrowest variable."},
     {}},
    {"PaddedValueMeasuredTrimmed",
     {},
     "MRSET /MDGROUP NAME=$a VARIABLES=s8 s3 s5 VALUE=' AB '.",
     {},
     {"$a"}},
    {"CountedValueLabelsNotUnique",
     {},
     "MRSET /MDGROUP NAME=$a VARIABLES=like1 like3 VALUE=1 CATEGORYLABELS=COUNTEDVALUES.",
     {"E: CountedVal label of variable like3 is not unique..."},
     {}},
    {"CountedValueLabelDiffers",
     {},
     "MRSET /MDGROUP NAME=$a VARIABLES=like1 like3 like4 VALUE=1.",
     {"W: CountVal 1 label different in the variables."},
     {"$a"}},
    {"DuplicateVariableLabels",
     {},
     "MRSET /MDGROUP NAME=$a VARIABLES=same1 same2 VALUE=1.",
     {"W: Duplicate label found for variable same2."},
     {"$a"}},

    // Name lists.
    {"EmptyDisplay", {}, "MRSET /DISPLAY.", {"E: Empty Display found"}, {}},
    {"DisplayFollowedBySlashFailsSilently", {}, "MRSET /DISPLAY /DELETE NAME=ALL.", {}, {}},
    {"NameListWithoutBrackets", {}, "MRSET /DELETE NAME=$a.", {"E: Square bracket expected."}, {}},
    {"NameListWithoutEquals",
     {},
     "MRSET /DELETE NAME [$a].",
     {"E: Names \"=\" was expected. Found [..."},
     {}},
    {"NameListOpenAtEnd", {}, "MRSET /DELETE NAME=[$a.", {"E: Square bracket expected."}, {}},
    {"NumberInNameList",
     {},
     "MRSET /DELETE NAME=[$a 5].",
     {"E: Name or right sq bracket expected. Found 5..."},
     {}},
    {"OtherKeywordInDelete",
     {},
     "MRSET /DELETE Label='x'.",
     {"E: Unexpected Label keyword in DELETE subcommand."},
     {}},

    // Applying.
    {"DisplayOnNoSets", {}, "MRSET /DISPLAY NAME=ALL.", {"W: No MRSET to display"}, {}},
    {"DeleteAllOnNoSets", {}, "MRSET /DELETE NAME=ALL.", {"W: No MRSETs to delete"}, {}},
    {"RedefinitionInOtherCaseReplacesInPlace",
     {"MRSET /MCGROUP NAME=$x VARIABLES=like1 like2.",
      "MRSET /MDGROUP NAME=$a VARIABLES=like1 like2 VALUE=1."},
     "MRSET /MCGROUP NAME=$X VARIABLES=like2 like3 /MCGROUP NAME=$b VARIABLES=like1 like2.",
     {},
     {"$X", "$a", "$b"}},
    {"DisplaySortsTheSavedList",
     {"MRSET /MCGROUP NAME=$b VARIABLES=like1 like2 /MCGROUP NAME=$C VARIABLES=like1 like2 "
      "/MCGROUP NAME=$a VARIABLES=like1 like2."},
     "MRSET /DISPLAY NAME=ALL /MCGROUP NAME=$0 VARIABLES=like1 like2.",
     {"T: Multiple Response Sets"},
     {"$a", "$b", "$C", "$0"}},
    {"DeleteKeepsOrderAndIgnoresCase",
     {"MRSET /MCGROUP NAME=$A VARIABLES=like1 like2 /MCGROUP NAME=$B VARIABLES=like1 like2 "
      "/MCGROUP NAME=$C VARIABLES=like1 like2."},
     "MRSET /DELETE NAME=[$b].",
     {},
     {"$A", "$C"}},
    {"DeleteTwiceWarnsTheSecondTime",
     {"MRSET /MCGROUP NAME=$x VARIABLES=like1 like2."},
     "MRSET /DELETE NAME=[$X $x $y].",
     {"W: $x MRSET can not be found in the dataset.",
      "W: $y MRSET can not be found in the dataset."},
     {}},
    {"DeleteEmptyListAsserts", {}, "MRSET /DELETE NAME=[].", {"A: !subcmd.fNames.empty()"}, {}},
    {"DeleteNameWithoutDollarAsserts",
     {},
     "MRSET /DELETE NAME=[abc].",
     {"A: (*namesIter)[0] == '$'", "W: abc MRSET can not be found in the dataset."},
     {}},
    {"DeleteThenRedefineInOneCommand",
     {"MRSET /MCGROUP NAME=$a VARIABLES=like1 like2."},
     "MRSET /DELETE NAME=[$a] /MDGROUP NAME=$a VARIABLES=like1 like2 VALUE=1.",
     {},
     {"$a"}},
    {"DisplayMissingNames",
     {"MRSET /MCGROUP NAME=$a VARIABLES=like1 like2."},
     "MRSET /DISPLAY NAME=[$x $a $A].",
     {"W: One or more of the sets specified do not exist... $x $A", "T: Multiple Response Sets"},
     {"$a"}},
};

class MrsetCommand : public testing::TestWithParam<CommandCase> {};

TEST_P(MrsetCommand, WritesAndLeaves) {
  const CommandCase& c = GetParam();
  Host host;
  for (const std::string& setup : c.setup) ASSERT_EQ(Lines{}, host.Run(setup)) << setup;
  EXPECT_EQ(c.written, host.Run(c.command));
  EXPECT_EQ(c.setsAfter, host.SetNames());
}

INSTANTIATE_TEST_SUITE_P(Cases, MrsetCommand, testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(MrsetCommandTest, NoDatasetMeansNoOutput) {
  hostlib::Session::Instance().Reset();
  const auto commands = hostlib::syntax::SplitCommands("MRSET.");
  hostlib::Session::Instance().BeginCommand(1, commands.at(0).command);
  MRSET();
  EXPECT_TRUE(hostlib::Session::Instance().Output().Items().empty());
}

TEST(MrsetCommandTest, FailedParseSavesNothingButDisplayAloneSaves) {
  Host host;
  const auto before = host.Revision();
  host.Run("MRSET /DISPLAY NAME=[$a] /DELETE NAME=$a.");
  EXPECT_EQ(before, host.Revision());
  host.Run("MRSET /DISPLAY NAME=ALL.");
  EXPECT_EQ(before + 1, host.Revision());
}

TEST(MrsetCommandTest, LongLabelIsCutAtACharacterBoundary) {
  Host host;
  const std::string label = std::string(254, 'a') + "\xC3\xA9";  // 256 bytes, "é" last
  EXPECT_EQ(Lines{"W: The MRSET label " + label + " will be truncated to a length of 255 chars."},
            host.Run("MRSET /MCGROUP NAME=$a LABEL='" + label + "' VARIABLES=like1 like2."));
  EXPECT_EQ(std::string(254, 'a'), host.Sets().at(0).GetLabel());
  host.Run("MRSET /MCGROUP NAME=$b LABEL='" + std::string(255, 'b') + "' VARIABLES=like1 like2.");
  EXPECT_EQ(std::string(255, 'b'), host.Sets().at(1).GetLabel());
}

TEST(MrsetCommandTest, DefinitionsStoreWhatWasWritten) {
  Host host;
  host.Run(
      "MRSET /MDGROUP NAME=$Likes LABEL='Liked' VARIABLES=LIKE1 like4 VALUE=1 "
      "CATEGORYLABELS=COUNTEDVALUES LABELSOURCE=VARLABEL /MCGROUP NAME=$all VARIABLES=like1 TO "
      "like4.");
  const VariableSet& likes = host.Sets().at(0);
  EXPECT_EQ("$Likes", likes.GetName(kAsStored));
  EXPECT_EQ(VariableSet::kMultipleDichotomySet, likes.GetType());
  EXPECT_EQ("Liked", likes.GetLabel());
  EXPECT_EQ("1", likes.GetValue());
  EXPECT_TRUE(likes.qUseVariableCategoryLabels());
  EXPECT_TRUE(likes.qLabelSetByVariable());
  EXPECT_EQ((Lines{"like1", "like4"}), likes.GetVariableNames(kAsStored));
  const VariableSet& all = host.Sets().at(1);
  EXPECT_EQ(VariableSet::kMultipleCategorySet, all.GetType());
  EXPECT_EQ((Lines{"like1", "like2", "like3", "like4"}), all.GetVariableNames(kAsStored));
}

TEST(MrsetCommandTest, DisplayTableCells) {
  VariableSet gone("$gone", VariableSet::kMultipleCategorySet);
  gone.AddVariableName("q7");
  gone.AddVariableName("LIKE1");
  VariableSet lost("$lost", VariableSet::kMultipleDichotomySet);
  lost.SetValue("1");
  lost.AddVariableName("q8");
  auto dataset = mrset_test::SurveyDataset();
  dataset.ReplaceMultipleResponseSets({gone, lost});
  Host host(std::move(dataset));
  host.Run(
      "MRSET /MDGROUP NAME=$b LABEL='Brands' VARIABLES=s8 s5 VALUE='Y' "
      "/MDGROUP NAME=$a VARIABLES=like1 like4 VALUE=1 "
      "LABELSOURCE=VARLABEL CATEGORYLABELS=COUNTEDVALUES /MCGROUP NAME=$c VARIABLES=like1 like4.");
  host.Run("MRSET /DISPLAY NAME=ALL.");
  EXPECT_EQ((Lines{
                "$a|(use variable label)|Dichotomies|1*|Numeric|like1\nlike4",
                "$b|Brands|Dichotomies|Y|String|Wide\nMiddle",
                "$c||Categories|N/A|Numeric|Likes apples\nlike4",
                "$gone||Categories|N/A|Numeric|q7(no longer exists)\nLikes apples",
                "$lost||Dichotomies|1|Unknown|q8(no longer exists)",
            }),
            host.LastTableRows());
}

}  // namespace
