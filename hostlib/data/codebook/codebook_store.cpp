#include "hostlib/data/codebook/codebook_store.h"

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
  const std::string file = path_.string();
  files::FileIdentity identity;
  std::string text;
  try {
    text = files::ReadWholeFile(path_, &identity, env_);
  } catch (const files::FileError& error) {
    throw DatasetError(error.what());
  }
  CodebookText read = ReadCodebookText(text, file);
  Dataset dataset(std::move(read.contents.variables), read.contents.sets);
  loaded_ = true;
  text_ = std::move(text);
  setsPlace_ = std::move(read.place);
  storedSets_ = std::move(read.contents.sets);
  identity_ = identity;
  return dataset;
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
  // Only the set list differs from the file, so the text stays in step with
  // it even when the write fails.
  SpliceSets(text_, setsPlace_, dataset.MultipleResponseSets(), path_);
  SaveWhole(text_);
  storedSets_ = dataset.MultipleResponseSets();
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

DatasetContents CodebookFile::Export() {
  Dataset dataset = Load();
  auto descriptor =
      std::make_shared<Descriptor>(Descriptor{ParseDescriptor(text_, path_.string())});
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
