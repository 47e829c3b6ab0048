// A dataset file from someone else, opened, changed and saved as the program
// does, then read back: whatever the file holds, the store either refuses it
// with a message or saves sets that read back as they were saved.
//
// Built twice: MRSET_FUZZ_FILE_NAME names the file, and so the store that a
// new file gets (dataset.json: the codebook; dataset.db: the database).
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/fuzz_files.h"
#include "hostlib/data/codebook/descriptor.h"
#include "hostlib/data/dataset_store.h"
#include "hostlib/data/open_dataset_store.h"
#include "hostlib/files/files.h"

namespace {

using hostlib::data::Dataset;
using hostlib::data::DatasetError;

// A set over the first two variables, replacing the file's own sets (or
// added to them when there are few).
std::vector<VariableSet> ChangedSets(const Dataset& dataset) {
  std::vector<VariableSet> sets = dataset.MultipleResponseSets();
  if (dataset.ColumnCount() < 2) return sets;
  VariableSet added("$fuzz", VariableSet::kMultipleCategorySet);
  added.SetLabel("Added by the fuzzer");
  added.AddVariableName(dataset.Variable(0).GetName());
  added.AddVariableName(dataset.Variable(1).GetName());
  if (sets.size() > 4) sets.erase(sets.begin());
  sets.push_back(added);
  return sets;
}

// What a set holds, to say on standard error why a check failed.
std::string Describe(const VariableSet& set) {
  std::string text = set.GetName(kAsStored) + " type " + std::to_string(set.GetType()) +
                     " label \"" + set.GetLabel() + "\" value \"" + set.GetValue() + "\" members";
  for (const std::string& name : set.GetVariableNames(kAsStored)) text += " " + name;
  return text;
}

[[noreturn]] void Mismatch(const std::vector<VariableSet>& saved,
                           const std::vector<VariableSet>& reread) {
  std::fprintf(stderr, "saved %zu sets, read back %zu\n", saved.size(), reread.size());
  for (const auto* list : {&saved, &reread}) {
    std::fprintf(stderr, list == &saved ? "saved:\n" : "read back:\n");
    for (const VariableSet& set : *list) std::fprintf(stderr, "  %s\n", Describe(set).c_str());
  }
  std::abort();
}

// A codebook that a store opened is JSON through and through, as the careful
// reader sees it: the fast reader skips what it does not need, and must not
// let through what the careful one refuses.
void CheckOpenedTextIsJson(std::string_view bytes) {
  if (bytes.substr(0, 16) == std::string_view("SQLite format 3\0", 16)) return;
  try {
    hostlib::data::ParseDescriptor(std::string(bytes), "input");
  } catch (const DatasetError& error) {
    std::fprintf(stderr, "opened a file the careful reader refuses: %s\n", error.what());
    std::abort();
  }
}

void OpenChangeAndSave(const std::filesystem::path& path, std::string_view bytes) {
  const auto store = hostlib::data::OpenDatasetStore(path);
  Dataset dataset = store->Load();
  CheckOpenedTextIsJson(bytes);
  {
    hostlib::data::CommandScope scope(*store, std::chrono::milliseconds(0));
    if (scope.Reloaded()) dataset = *scope.Reloaded();
    dataset.ReplaceMultipleResponseSets(ChangedSets(dataset));
    if (store->WouldChange(dataset)) store->Save(dataset);
    scope.Finish();
  }
  const Dataset reread = hostlib::data::OpenDatasetStore(path)->Load();
  if (reread.MultipleResponseSets() != dataset.MultipleResponseSets()) {
    Mismatch(dataset.MultipleResponseSets(), reread.MultipleResponseSets());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto path = fuzzing::WriteInput(MRSET_FUZZ_FILE_NAME, data, size);
  try {
    OpenChangeAndSave(path, std::string_view(reinterpret_cast<const char*>(data), size));
  } catch (const DatasetError&) {
  } catch (const hostlib::files::FileError&) {
  }
  return 0;
}
