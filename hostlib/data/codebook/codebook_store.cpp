#include "hostlib/data/codebook/codebook_store.h"

#include <string>
#include <utility>

#include "hostlib/data/codebook/descriptor.h"

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
  auto document = std::make_shared<Descriptor>(Descriptor{ParseDescriptor(text, file)});
  DescriptorContents contents = ReadDescriptor(document->json, file);
  Dataset dataset(std::move(contents.variables), contents.sets);
  document_ = std::move(document);
  storedSets_ = std::move(contents.sets);
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
  if (document_ && files::IdentifyFile(path_, now) && now == identity_) return std::nullopt;
  try {
    return Load();
  } catch (...) {
    lock_.Release();
    throw;
  }
}

bool CodebookFile::WouldChange(const Dataset& dataset) const {
  return !document_ || dataset.MultipleResponseSets() != storedSets_;
}

namespace {

// The descriptor that Save writes: the one read with the new sets, or a new
// one made from the dataset.
Json Render(const Descriptor* read, const Dataset& dataset) {
  Json sets = RenderCodebookSets(dataset.MultipleResponseSets());
  if (read == nullptr) {
    Json fields = Json::array();
    for (const auto& variable : dataset.Variables()) {
      fields.push_back(RenderCodebookField(variable));
    }
    return {{kCodebookFieldsKey, std::move(fields)}, {kCodebookSetsKey, std::move(sets)}};
  }
  Json document = read->json;
  // An absent list stays absent while there is nothing to put in it.
  if (document.contains(kCodebookSetsKey) || !sets.empty()) {
    document[kCodebookSetsKey] = std::move(sets);
  }
  return document;
}

}  // namespace

void CodebookFile::Save(const Dataset& dataset) {
  auto document = std::make_shared<Descriptor>(Descriptor{Render(document_.get(), dataset)});
  const std::string text = DumpDescriptor(document->json, path_);
  try {
    files::WriteFileAtomically(path_, text, env_);
  } catch (const files::FileError& error) {
    throw DatasetError(error.what());
  }
  // Under the lock nobody else replaces the file between the write and this.
  if (!files::IdentifyFile(path_, identity_)) identity_ = {};
  document_ = std::move(document);
  storedSets_ = dataset.MultipleResponseSets();
}

DatasetContents CodebookFile::Export() {
  Dataset dataset = Load();
  return {std::move(dataset), document_};
}

void CodebookFile::Create(const DatasetContents& contents) {
  const std::string text = contents.descriptor != nullptr
                               ? DumpDescriptor(contents.descriptor->json, path_)
                               : DumpDescriptor(Render(nullptr, contents.dataset), path_);
  try {
    files::CreateFileAtomically(path_, text, env_);
  } catch (const files::FileError& error) {
    throw DatasetError(error.what());
  }
}

}  // namespace hostlib::data
