// Open, define, display and save on both dataset stores, with dictionaries
// of 2,000 / 20,000 / 200,000 variables and a tenth as many sets.
//
//   cmake -B build -DMRSET_BUILD_BENCHMARKS=ON && cmake --build build --target store_bench
//   build/bin/store_bench
//
// Define and Display run one whole MRSET command as the program does: the
// lock, the check for changes by others, the module, the save and commit.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <memory>
#include <ostream>
#include <streambuf>
#include <string>
#include <utility>
#include <vector>

#include "hostlib/data/dataset_store.h"
#include "hostlib/data/open_dataset_store.h"
#include "hostlib/output/render.h"
#include "hostlib/session/session.h"
#include "programs/mrset/command_module.h"
#include "programs/mrset/runner.h"

namespace {

namespace fs = std::filesystem;
using hostlib::data::Dataset;

constexpr int kSetSize = 5;

std::string Numbered(const char* prefix, int number) {
  std::string digits = std::to_string(number);
  return prefix + std::string(6 - digits.size(), '0') + digits;
}

Dataset Generate(int variables) {
  std::vector<VORN_Variable> dictionary;
  for (int i = 0; i < variables; ++i) {
    VORN_ValueLabels labels;
    labels.numeric = {{0.0, "No"}, {1.0, "Yes"}};
    dictionary.emplace_back(Numbered("v", i), 0, "Question " + std::to_string(i), labels);
  }
  std::vector<VariableSet> sets;
  for (int s = 0; s < variables / 10; ++s) {
    VariableSet set(Numbered("$s", s), VariableSet::kMultipleDichotomySet);
    set.SetLabel("Set " + std::to_string(s));
    set.SetValue("1");
    for (int v = 0; v < kSetSize; ++v) set.AddVariableName(Numbered("v", s * 10 + v));
    sets.push_back(std::move(set));
  }
  return Dataset(std::move(dictionary), std::move(sets));
}

fs::path Folder() {
  static const fs::path folder = [] {
    std::string pattern = (fs::temp_directory_path() / "store-bench-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary folder");
    return fs::path(pattern);
  }();
  return folder;
}

// A fresh copy of the dataset of that size in that format, made once.
fs::path FreshDataset(int variables, bool database) {
  static std::map<std::pair<int, bool>, fs::path> templates;
  auto& made = templates[{variables, database}];
  if (made.empty()) {
    made = Folder() / ("template-" + std::to_string(variables) + (database ? ".db" : ".json"));
    const Dataset dataset = Generate(variables);
    hostlib::data::NewDatasetStore(made, database ? hostlib::data::DatasetFormat::kDatabase
                                                  : hostlib::data::DatasetFormat::kCodebook)
        ->Create({dataset, nullptr});
  }
  static int copies = 0;
  const fs::path copy = Folder() / ("copy" + std::to_string(++copies) + made.extension().string());
  fs::copy_file(made, copy);
  return copy;
}

class Discard : public std::streambuf {
 protected:
  int overflow(int c) override { return c; }
};

const mrset_program::CommandModules& Module() {
  static const auto modules = mrset_program::CommandModules::LoadBesideProgram();
  return modules;
}

void Open(benchmark::State& state, bool database) {
  const fs::path path = FreshDataset(static_cast<int>(state.range(0)), database);
  for (auto _ : state) {
    auto store = hostlib::data::OpenDatasetStore(path);
    benchmark::DoNotOptimize(store->Load());
  }
}

// Runs `syntax(i)` as one command per iteration on an open dataset.
template <typename Syntax>
void RunCommands(benchmark::State& state, bool database, Syntax syntax) {
  const fs::path path = FreshDataset(static_cast<int>(state.range(0)), database);
  auto store = hostlib::data::OpenDatasetStore(path);
  auto& session = hostlib::Session::Instance();
  session.OpenDataset(std::make_shared<Dataset>(store->Load()));
  Discard discard;
  std::ostream out(&discard);
  auto renderer = hostlib::output::MakeJsonRenderer();
  int i = 0;
  for (auto _ : state) {
    mrset_program::Runner runner(Module(), store.get(), true, std::chrono::seconds(10), *renderer,
                                 out);
    runner.RunText(syntax(i++), "benchmark");
    if (runner.HadErrors()) state.SkipWithError("the command failed");
    state.PauseTiming();
    session.Output().Clear();
    state.ResumeTiming();
  }
  session.Reset();
}

void Define(benchmark::State& state, bool database) {
  RunCommands(state, database, [](int i) {
    return "MRSET /MDGROUP NAME=" + Numbered("$new", i) + " VARIABLES=v000001 TO v000004 VALUE=1.";
  });
}

void Display(benchmark::State& state, bool database) {
  RunCommands(state, database,
              [](int) { return std::string("MRSET /DISPLAY NAME=[$s000001 $s000002 $nothere]."); });
}

// Save alone: one set more, then one less, written in turn.
void Save(benchmark::State& state, bool database) {
  const fs::path path = FreshDataset(static_cast<int>(state.range(0)), database);
  auto store = hostlib::data::OpenDatasetStore(path);
  Dataset dataset = store->Load();
  const std::vector<VariableSet> before = dataset.MultipleResponseSets();
  std::vector<VariableSet> after = before;
  after.emplace_back("$extra", VariableSet::kMultipleCategorySet);
  after.back().AddVariableName("v000001");
  bool more = false;
  for (auto _ : state) {
    more = !more;
    dataset.ReplaceMultipleResponseSets(more ? after : before);
    store->Save(dataset);
  }
}

void Sizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->Arg(2000)->Arg(20000)->Arg(200000)->Unit(benchmark::kMillisecond);
}

BENCHMARK_CAPTURE(Open, codebook, false)->Apply(Sizes);
BENCHMARK_CAPTURE(Open, database, true)->Apply(Sizes);
BENCHMARK_CAPTURE(Define, codebook, false)->Apply(Sizes);
BENCHMARK_CAPTURE(Define, database, true)->Apply(Sizes);
BENCHMARK_CAPTURE(Display, codebook, false)->Apply(Sizes);
BENCHMARK_CAPTURE(Display, database, true)->Apply(Sizes);
BENCHMARK_CAPTURE(Save, codebook, false)->Apply(Sizes);
BENCHMARK_CAPTURE(Save, database, true)->Apply(Sizes);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  std::filesystem::remove_all(Folder());
  return 0;
}
