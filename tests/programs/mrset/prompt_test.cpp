// The prompt's pieces: dot-command lines, name patterns, listings,
// completion candidates and the history file.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "hostlib/data/dataset.h"
#include "programs/mrset/completion.h"
#include "programs/mrset/dot_commands.h"
#include "programs/mrset/history.h"
#include "tests/support/files.h"

namespace {

using mrset_program::CompletionCandidates;
using Words = std::vector<std::string>;

hostlib::data::Dataset Survey() {
  std::vector<VORN_Variable> variables{{"fruit1", 0, "First fruit"},
                                       {"Fruit2", 0, "Second fruit"},
                                       {"shop", 12, "Shop"},
                                       {"größe", 0}};
  VariableSet fruit("$fruit", VariableSet::kMultipleCategorySet);
  fruit.AddVariableName("fruit1");
  fruit.AddVariableName("Fruit2");
  VariableSet first("$First", VariableSet::kMultipleDichotomySet);
  first.SetValue("1");
  first.AddVariableName("fruit1");
  first.AddVariableName("shop");
  return hostlib::data::Dataset(std::move(variables), {fruit, first});
}

TEST(DotCommand, IsALineThatBeginsWithAPeriod) {
  struct Case {
    const char* line;
    bool dot;
    const char* name;
    const char* argument;
  };
  const Case cases[] = {
      {".help", true, "help", ""},
      {"  .VARS   fr*  ", true, "vars", "fr*"},
      {".output my file.txt", true, "output", "my file.txt"},
      {".", true, "", ""},
      {"MRSET /DISPLAY NAME=ALL.", false, "", ""},
      {"", false, "", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.line);
    const auto dot = mrset_program::ParseDotCommand(c.line);
    ASSERT_EQ(dot.has_value(), c.dot);
    if (!dot) continue;
    EXPECT_EQ(dot->name, c.name);
    EXPECT_EQ(dot->argument, c.argument);
  }
}

TEST(DotCommand, PatternsMatchWithoutRegardToCase) {
  struct Case {
    const char* name;
    const char* pattern;
    bool matches;
  };
  const Case cases[] = {
      {"fruit1", "", true},           {"fruit1", "RUI", true},      {"fruit1", "x", false},
      {"fruit1", "fruit?", true},     {"fruit10", "fruit?", false}, {"Fruit2", "f*", true},
      {"fruit1", "*1", true},         {"fruit1", "*2", false},      {"fruit1", "f*u*1", true},
      {"größe", "GRÖ?E", true},       {"größe", "gr?e", false},     {"a*b", "a*b", true},
      {"aaaaaaaaab", "*a*a*b", true}, {"abc", "abc*", true},        {"ab", "abc?", false},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(mrset_program::MatchesPattern(c.name, c.pattern), c.matches)
        << c.name << " ~ " << c.pattern;
  }
}

TEST(DotCommand, ListsVariablesAndSets) {
  const auto dataset = Survey();
  EXPECT_EQ(mrset_program::ListVariables(dataset, "FRUIT"),
            "Name    Type     Width  Label\n"
            "fruit1  numeric  -      First fruit\n"
            "Fruit2  numeric  -      Second fruit\n");
  EXPECT_EQ(mrset_program::ListVariables(dataset, "sh*"),
            "Name  Type    Width  Label\nshop  string  12     Shop\n");
  EXPECT_EQ(mrset_program::ListVariables(dataset, "zzz"), "No variable matches \"zzz\".\n");
  EXPECT_EQ(mrset_program::ListSets(dataset),
            "Name    Type                          Label  Variables\n"
            "$fruit  categories                           fruit1 Fruit2\n"
            "$First  dichotomies, counted value 1         fruit1 shop\n");
}

TEST(Completion, OffersWhatFitsWhereTheWordIs) {
  const auto dataset = Survey();
  struct Case {
    const char* before;
    const char* word;
    Words expected;
  };
  const Case cases[] = {
      {"", ".v", {".vars"}},
      {"", ".o", {".open", ".output"}},
      {".mode ", "j", {"json"}},
      {"MRSET ", "/d", {"/DELETE", "/DISPLAY"}},
      {"MRSET /DISPLAY NAME=[", "$f", {"$First", "$fruit"}},
      {"MRSET /MCGROUP NAME=$x ", "var", {"VARIABLES", "VARLABEL", "VARLABELS"}},
      {"MRSET /MCGROUP VARIABLES=", "fr", {"Fruit2", "fruit1"}},
      {"", "mr", {"MRSET"}},
      {"x ", ".v", {}},
      {"", "GRÖ", {"größe"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.before) + "|" + c.word);
    EXPECT_EQ(CompletionCandidates(c.before, c.word, &dataset), c.expected);
  }
  EXPECT_EQ(CompletionCandidates("", "$", nullptr), Words{});
  EXPECT_TRUE(mrset_program::CompletesFileName(".read "));
  EXPECT_FALSE(mrset_program::CompletesFileName(".vars "));
}

TEST(History, OneEntryPerCommand) {
  EXPECT_EQ(mrset_program::HistoryEntry({"MRSET /MCGROUP NAME=$a", "   VARIABLES=a b.  "}),
            "MRSET /MCGROUP NAME=$a VARIABLES=a b.");
  EXPECT_EQ(mrset_program::HistoryEntry({"MRSET /DISPLAY", "", "  "}), "MRSET /DISPLAY");
}

TEST(History, KeepsEntriesInAFileOnlyItsOwnerReads) {
  testsupport::TemporaryFolder folder;
  const auto path = folder.Path() / "history";
  testsupport::WriteFile(path, "");
  ::chmod(path.c_str(), 0644);
  {
    mrset_program::History history(path);
    EXPECT_TRUE(history.Add("MRSET /DISPLAY NAME=ALL."));
  }
  struct stat status {};
  ASSERT_EQ(::stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600u);
  EXPECT_NE(testsupport::ReadFile(path).find("MRSET"), std::string::npos);

  ::setenv("MRSET_HISTORY", path.c_str(), 1);
  EXPECT_EQ(mrset_program::HistoryPath(), path);
  ::unsetenv("MRSET_HISTORY");
}

}  // namespace
