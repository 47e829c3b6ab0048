// The runner between the module and a store whose saves can be made to fail.
#include <cerrno>
#include <chrono>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "hostlib/data/conversion.h"
#include "hostlib/data/open_dataset_store.h"
#include "hostlib/output/render.h"
#include "hostlib/session/session.h"
#include "programs/mrset/command_module.h"
#include "programs/mrset/runner.h"
#include "tests/support/fault_env.h"
#include "tests/support/files.h"

namespace mrset_program {
namespace {

namespace fs = std::filesystem;
using hostlib::files::FileOperation;

std::vector<std::string> SetNames(const hostlib::data::Dataset& dataset) {
  std::vector<std::string> names;
  for (const auto& set : dataset.MultipleResponseSets()) names.push_back(set.GetName(kAsStored));
  return names;
}

class FailedSaves : public ::testing::TestWithParam<std::string> {};

// A command whose save failed is dropped from memory too: the next command
// that saves writes its own set, never the failed one.
TEST_P(FailedSaves, NeverReappearInALaterSave) {
  const testsupport::TemporaryFolder folder("runner");
  testsupport::WriteFile(folder / "source.json",
                         R"({"fields": [{"name": "a1", "type": "integer"},
                             {"name": "a2", "type": "integer"}]})");
  const fs::path path = folder / ("data." + GetParam());
  hostlib::data::ConvertDataset(folder / "source.json", path, *hostlib::data::FormatFromName(path));

  testsupport::FaultEnv env;
  const auto store = hostlib::data::OpenDatasetStore(path, env);
  auto& session = hostlib::Session::Instance();
  session.Reset();
  session.OpenDataset(std::make_shared<hostlib::data::Dataset>(store->Load()));
  const CommandModules modules = CommandModules::LoadBesideProgram();
  const auto renderer = hostlib::output::MakeRenderer(hostlib::output::Format::kText);
  std::ostringstream out;
  Runner runner(modules, store.get(), true, std::chrono::milliseconds(0), *renderer, out);

  env.Fail(FileOperation::kWrite, ENOSPC);
  runner.RunText("MRSET /MCGROUP NAME=$failed VARIABLES=a1 a2.", "test");
  ASSERT_TRUE(env.Fired());
  EXPECT_NE(out.str().find("The dataset was not saved: "), std::string::npos) << out.str();
  EXPECT_TRUE(SetNames(*session.ActiveDataset()).empty());

  runner.RunText("MRSET /MCGROUP NAME=$saved VARIABLES=a1 a2.", "test");
  EXPECT_EQ(SetNames(hostlib::data::OpenDatasetStore(path)->Load()),
            std::vector<std::string>{"$saved"})
      << out.str();
  session.Reset();
}

INSTANTIATE_TEST_SUITE_P(Stores, FailedSaves, ::testing::Values("json", "db"),
                         [](const auto& info) {
                           return info.param == "json" ? std::string("codebook")
                                                       : std::string("database");
                         });

}  // namespace
}  // namespace mrset_program
