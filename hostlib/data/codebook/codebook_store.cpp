#include "hostlib/data/codebook/codebook_store.h"

#include <algorithm>
#include <future>
#include <string>
#include <utility>

#include "hostlib/data/codebook/descriptor.h"
#include "hostlib/data/codebook/splice_writer.h"

namespace hostlib::data {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

CodebookFile::CodebookFile(fs::path path, files::Env& env) : path_(std::move(path)), env_(env) {}

CodebookFile::~CodebookFile() = default;

Dataset CodebookFile::Load() {
  auto source = std::make_shared<const SourceFile>(path_, env_);
  CodebookText read = ReadCodebook(source);
  loaded_ = true;
  source_ = std::move(source);
  setsPlace_ = read.place;
  storedSets_ = std::move(read.sets);
  topLevel_ = std::move(read.topLevel);
  identity_ = source_->Identity();
  return std::move(read.dataset);
}

std::optional<Dataset> CodebookFile::BeginCommand(std::chrono::milliseconds timeout) {
  std::error_code ignored;
  fs::path target = fs::weakly_canonical(path_, ignored);
  if (ignored) target = path_;
  const fs::path lockPath = target.string() + ".lock";
  files::FileLock::Outcome outcome{};
  try {
    outcome = lock_.Acquire(lockPath, timeout, env_);
  } catch (const files::FileError& error) {
    throw DatasetError(path_.string() + ": " + error.what());
  }
  if (outcome == files::FileLock::Outcome::kTimedOut) {
    throw DatasetError(LockTimeoutMessage(path_, timeout));
  }
  if (outcome == files::FileLock::Outcome::kHeld) files::RemoveLeftoversBeside(target, env_);
  // kNotPermitted: nobody without rights to the folder can lock, and such a
  // process cannot save here either; the command reads whole files anyway.
  files::FileIdentity now;
  if (loaded_ && files::IdentifyFile(path_, now) && now == identity_) return std::nullopt;
  try {
    return Load();
  } catch (...) {
    lock_.Release();
    throw;
  }
}

bool CodebookFile::WouldChange(const Dataset& dataset) const {
  return !loaded_ || dataset.MultipleResponseSets() != storedSets_;
}

namespace {

// A whole new descriptor made from the dataset.
Json Render(const Dataset& dataset) {
  Json fields = Json::array();
  for (const auto& variable : dataset.Variables()) {
    fields.push_back(RenderCodebookField(variable));
  }
  return {{kCodebookFieldsKey, std::move(fields)},
          {kCodebookSetsKey, RenderCodebookSets(dataset.MultipleResponseSets())}};
}

}  // namespace

void CodebookFile::Save(const Dataset& dataset) {
  if (!loaded_) {
    SaveWhole(DumpDescriptor(Render(dataset), path_));
    storedSets_ = dataset.MultipleResponseSets();
    return;
  }
  // The file is the text read with the bytes at the set list's place
  // replaced; only those are made anew.
  const std::vector<VariableSet>& sets = dataset.MultipleResponseSets();
  const std::size_t cutBegin = setsPlace_.present ? setsPlace_.value.begin : setsPlace_.insertAt;
  const std::size_t cutEnd = setsPlace_.present ? setsPlace_.value.end : setsPlace_.insertAt;
  try {
    files::AtomicFileWriter writer(path_, env_);
    const auto copyPrefix = [&] { writer.CopyAt(0, source_->Descriptor(), path_, 0, cutBegin); };
    // A large file's bytes before the list are copied (by the kernel, on a
    // thread of their own) while the list is written after them.
    constexpr std::size_t kLargePrefix = std::size_t{8} << 20;
    std::future<void> prefix;
    if (cutBegin >= kLargePrefix) {
      prefix = std::async(std::launch::async, copyPrefix);
    } else {
      copyPrefix();
    }
    std::size_t listSize = 0;
    const auto write = [&](std::string_view piece) {
      writer.WriteAt(cutBegin + listSize, piece);
      listSize += piece.size();
    };
    if (setsPlace_.present || !sets.empty()) {
      if (!setsPlace_.present) write(",\n" + setsPlace_.indent + "\"" + kCodebookSetsKey + "\": ");
      WriteSetList(sets, setsPlace_.indent, path_, write);
    }
    if (prefix.valid()) prefix.get();
    writer.CopyAt(cutBegin + listSize, source_->Descriptor(), path_, static_cast<off_t>(cutEnd),
                  source_->Size() - cutEnd);
    // Someone who does not take the lock may have written into the file
    // read: its bytes then are no longer those the sets were spliced into.
    files::FileIdentity now;
    if (!files::IdentifyFile(source_->Descriptor(), now) || !(now == source_->Identity())) {
      throw DatasetError(path_.string() + ": not saved: the file changed while it was saved");
    }
    writer.Commit();
  } catch (const files::FileError& error) {
    throw DatasetError(error.what());
  }
  // Under the lock nobody else replaces the file between the write and this.
  if (!files::IdentifyFile(path_, identity_)) identity_ = {};
  storedSets_ = sets;
}

void CodebookFile::SaveWhole(std::string_view text) {
  try {
    files::WriteFileAtomically(path_, text, env_);
  } catch (const files::FileError& error) {
    throw DatasetError(error.what());
  }
  // Under the lock nobody else replaces the file between the write and this.
  if (!files::IdentifyFile(path_, identity_)) identity_ = {};
}

std::optional<std::map<std::string, std::string>> CodebookFile::TopLevelMembers(
    const std::vector<std::string>& keys) {
  if (!loaded_) return DatasetStore::TopLevelMembers(keys);
  std::map<std::string, std::string> found;
  for (const json_spans::Member& member : topLevel_) {
    const std::string quoted = source_->Read(member.key);
    const std::string key = json_spans::KeyText(quoted, {0, quoted.size()});
    if (std::find(keys.begin(), keys.end(), key) != keys.end()) {
      found[key] = source_->Read(member.value);
    }
  }
  return found;
}

DatasetContents CodebookFile::Export() {
  Dataset dataset = Load();
  auto descriptor =
      std::make_shared<Descriptor>(Descriptor{ParseDescriptor(source_->ReadAll(), path_.string())});
  return {std::move(dataset), std::move(descriptor)};
}

void CodebookFile::Create(const DatasetContents& contents) {
  const std::string text = contents.descriptor != nullptr
                               ? DumpDescriptor(contents.descriptor->json, path_)
                               : DumpDescriptor(Render(contents.dataset), path_);
  try {
    files::CreateFileAtomically(path_, text, env_);
  } catch (const files::FileError& error) {
    throw DatasetError(error.what());
  }
}

}  // namespace hostlib::data
