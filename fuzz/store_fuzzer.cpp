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
#include "hostlib/data/codebook/slice_scan.h"
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

// What a scan found, spelled out.
std::string Spelled(const hostlib::data::SliceScan& scan) {
  std::string text = std::to_string(scan.rootBegin) + " [" + scan.firstKeyIndent + "] " +
                     std::to_string(scan.lastValueEnd) + " [" + scan.setsKeyIndent + "] " +
                     std::to_string(scan.setsValue.begin) + "-" +
                     std::to_string(scan.setsValue.end) + " fault " +
                     (scan.fieldFault ? std::to_string(scan.fieldFault->index) : "none") + "\n";
  for (const auto& member : scan.topLevel) {
    text += std::to_string(member.key.begin) + "-" + std::to_string(member.value.end) + "\n";
  }
  for (const auto& field : scan.fields) {
    text += std::to_string(field.begin) + "-" + std::to_string(field.End()) + " " +
            std::string(scan.NameOf(field)) + "\n";
  }
  return text;
}

// The open's scan finds in slices what it finds in one, wherever the
// slices are cut (and with the parsing shared between threads).
void CheckSlicesAgree(const std::filesystem::path& path, std::string_view bytes) {
  if (bytes.empty() || bytes.substr(0, 16) == std::string_view("SQLite format 3\0", 16)) return;
  const hostlib::data::SourceFile source(path, hostlib::files::DefaultEnv());
  hostlib::data::SliceScan whole;
  hostlib::data::SliceScan sliced;
  const std::size_t slice = 1 + static_cast<unsigned char>(bytes.back()) % 61;
  const bool wholeFound = hostlib::data::ScanInSlices(source, whole, nullptr, bytes.size() + 1);
  const bool slicedFound = hostlib::data::ScanInSlices(source, sliced, nullptr, slice);
  if (wholeFound != slicedFound || (wholeFound && Spelled(whole) != Spelled(sliced))) {
    std::fprintf(stderr, "in slices of %zu the scan %s, in one it %s\n%s---\n%s", slice,
                 slicedFound ? "succeeds" : "fails", wholeFound ? "succeeds" : "fails",
                 Spelled(sliced).c_str(), Spelled(whole).c_str());
    std::abort();
  }
}

void OpenChangeAndSave(const std::filesystem::path& path, std::string_view bytes) {
  CheckSlicesAgree(path, bytes);
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
