// A save that fails at any step, on either store, leaves the dataset file as
// it was and names the file and the system's reason.
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "hostlib/data/conversion.h"
#include "hostlib/data/open_dataset_store.h"
#include "tests/support/fault_env.h"
#include "tests/support/files.h"

namespace hostlib::data {
namespace {

namespace fs = std::filesystem;
using files::FileOperation;

constexpr const char* kCodebook = R"({"fields": [{"name": "a1", "type": "integer"},
  {"name": "a2", "type": "integer"}, {"name": "x", "x-kept": [1.50, 1E5]}],
  "multipleResponseSets": [{"name": "$old", "type": "categories", "variables": ["a1", "a2"]}]})";

struct Fault {
  const char* name;
  const char* file;  // json or db
  FileOperation operation;
  const char* pathEnd;  // of the file the call concerns
  int error;
};

// The steps of a save: the codebook's temporary file, its rename and the
// folder; the database's journal, the database itself and the journal's
// deletion that commits.
const Fault kFaults[] = {
    {"codebook_write", "json", FileOperation::kWrite, "", ENOSPC},
    {"codebook_fsync", "json", FileOperation::kSync, "", EIO},
    {"codebook_rename", "json", FileOperation::kRename, "data.json", EACCES},
    {"codebook_folder_fsync", "json", FileOperation::kSyncFolder, "", EIO},
    {"journal_write", "db", FileOperation::kWrite, "data.db-journal", ENOSPC},
    {"journal_fsync", "db", FileOperation::kSync, "data.db-journal", EIO},
    {"database_write", "db", FileOperation::kWrite, "data.db", ENOSPC},
    {"database_fsync", "db", FileOperation::kSync, "data.db", EIO},
    {"journal_delete", "db", FileOperation::kUnlink, "data.db-journal", EACCES},
};

class SaveFaults : public ::testing::TestWithParam<Fault> {};

std::vector<std::string> SetNames(const Dataset& dataset) {
  std::vector<std::string> names;
  for (const VariableSet& set : dataset.MultipleResponseSets()) {
    names.push_back(set.GetName(kAsStored));
  }
  return names;
}

TEST_P(SaveFaults, LeaveTheDatasetAsItWas) {
  const Fault& fault = GetParam();
  const testsupport::TemporaryFolder folder("save-faults");
  const fs::path path = folder / (std::string("data.") + fault.file);
  testsupport::WriteFile(folder / "source.json", kCodebook);
  ConvertDataset(
      folder / "source.json", path,
      std::string(fault.file) == "db" ? DatasetFormat::kDatabase : DatasetFormat::kCodebook);
  const std::string before = testsupport::ReadFile(path);

  {
    testsupport::FaultEnv env;
    const auto store = OpenDatasetStore(path, env);
    Dataset dataset = store->Load();
    VariableSet added("$new", VariableSet::kMultipleCategorySet);
    added.AddVariableName("a2");
    dataset.ReplaceMultipleResponseSets({dataset.MultipleResponseSets()[0], added});
    store->BeginCommand(std::chrono::milliseconds(0));
    env.Fail(fault.operation, fault.error, fault.pathEnd);
    try {
      store->Save(dataset);
      store->EndCommand();
      ADD_FAILURE() << "saved in spite of a failing " << OperationName(fault.operation);
    } catch (const DatasetError& error) {
      const std::string text = error.what();
      EXPECT_EQ(text.rfind(path.string() + ": ", 0), 0u) << text;
      EXPECT_NE(text.find(std::strerror(fault.error)), std::string::npos) << text;
    }
    EXPECT_TRUE(env.Fired()) << "no " << OperationName(fault.operation) << " on " << fault.pathEnd;
    store->AbortCommand();
  }

  // A reader after the failure (which rolls back what a database left) sees
  // the old sets, and the file is byte for byte the old one.
  EXPECT_EQ(SetNames(OpenDatasetStore(path)->Load()), std::vector<std::string>{"$old"});
  EXPECT_EQ(testsupport::ReadFile(path), before);
  EXPECT_FALSE(fs::exists(fs::path(path.string() + "-journal")));
}

INSTANTIATE_TEST_SUITE_P(Steps, SaveFaults, ::testing::ValuesIn(kFaults),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace hostlib::data

namespace hostlib::data {
namespace {

// A codebook save copies the bytes it keeps from the file read; where the
// kernel cannot copy between the files, it reads and writes them instead.
class CodebookCopy : public ::testing::TestWithParam<int> {};

Dataset WithNewSet(Dataset dataset) {
  VariableSet added("$new", VariableSet::kMultipleCategorySet);
  added.AddVariableName("a2");
  dataset.ReplaceMultipleResponseSets({dataset.MultipleResponseSets()[0], added});
  return dataset;
}

std::string SavedWithNewSet(const fs::path& path, files::Env& env) {
  const auto store = OpenDatasetStore(path, env);
  store->BeginCommand(std::chrono::milliseconds(0));
  store->Save(WithNewSet(store->Load()));
  store->EndCommand();
  return testsupport::ReadFile(path);
}

TEST_P(CodebookCopy, FallsBackToReadingAndWriting) {
  const testsupport::TemporaryFolder folder("codebook-copy");
  testsupport::WriteFile(folder / "plain.json", kCodebook);
  testsupport::WriteFile(folder / "data.json", kCodebook);
  testsupport::FaultEnv plain;
  const std::string expected = SavedWithNewSet(folder / "plain.json", plain);

  testsupport::FaultEnv env;
  env.Fail(FileOperation::kWrite, GetParam());
  EXPECT_EQ(SavedWithNewSet(folder / "data.json", env), expected);
  EXPECT_TRUE(env.Fired());
}

INSTANTIATE_TEST_SUITE_P(Errors, CodebookCopy,
                         ::testing::Values(EXDEV, ENOSYS, EINVAL, EOPNOTSUPP));

// Someone who ignores the lock rewrites the file in place between the read
// and the save: the save is refused rather than mixing their bytes with
// the sets, and what they wrote stays.
TEST(CodebookCopyFromChangedFile, IsRefused) {
  const std::string edits[] = {R"({"fields": []})", std::string(kCodebook) + "\n\n"};
  for (const std::string& edit : edits) {
    const testsupport::TemporaryFolder folder("codebook-changed");
    const fs::path path = folder / "data.json";
    testsupport::WriteFile(path, kCodebook);
    const auto store = OpenDatasetStore(path);
    store->BeginCommand(std::chrono::milliseconds(0));
    const Dataset dataset = WithNewSet(store->Load());
    std::ofstream(path, std::ios::binary | std::ios::trunc) << edit;  // the same inode
    try {
      store->Save(dataset);
      ADD_FAILURE() << "saved over a file changed in place";
    } catch (const DatasetError& error) {
      EXPECT_EQ(std::string(error.what()).rfind(path.string() + ": not saved: ", 0), 0u)
          << error.what();
    }
    store->AbortCommand();
    EXPECT_EQ(testsupport::ReadFile(path), edit);
  }
}

}  // namespace
}  // namespace hostlib::data
