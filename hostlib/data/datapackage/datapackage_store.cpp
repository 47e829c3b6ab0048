#include "hostlib/data/datapackage/datapackage_store.h"

#include <algorithm>
#include <fstream>
#include <utility>

#include "hostlib/data/codebook/descriptor.h"
#include "hostlib/data/datapackage/json_spans.h"

namespace hostlib::data {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

constexpr std::string_view kPackageName = "datapackage.json";

std::string ResourcePointer(std::size_t index) { return "/resources/" + std::to_string(index); }

bool IsTabular(const Json& resource) { return resource.is_object() && resource.contains("schema"); }

std::string ResourceName(const Json& resource) {
  const auto name = resource.find("name");
  return name != resource.end() && name->is_string() ? name->get<std::string>() : std::string();
}

// The index of the resource whose schema is the dictionary.
std::size_t ChooseResource(const Json& package, const std::string& wanted,
                           const std::string& file) {
  const auto resources = package.find("resources");
  if (resources == package.end() || !resources->is_array()) {
    throw DatasetError(file + ": /resources: must be an array of resources");
  }
  std::vector<std::size_t> tabular;
  for (std::size_t i = 0; i < resources->size(); ++i) {
    const Json& resource = (*resources)[i];
    if (!wanted.empty() && resource.is_object() && ResourceName(resource) == wanted) return i;
    if (IsTabular(resource)) tabular.push_back(i);
  }
  if (!wanted.empty()) {
    throw DatasetError(file + ": /resources: no resource is named \"" + wanted + "\"");
  }
  if (tabular.size() == 1) return tabular.front();
  if (tabular.empty()) {
    throw DatasetError(file + ": /resources: no tabular resource (one with a schema)");
  }
  std::string names;
  for (const std::size_t i : tabular) {
    names += (names.empty() ? "" : ", ") + ResourceName((*resources)[i]);
  }
  throw DatasetError(file + ": /resources: several tabular resources (" + names +
                     "); pick one as " + file + "#NAME");
}

std::string LineIndent(std::string_view text, std::size_t at) {
  const std::size_t lineStart = text.rfind('\n', at == 0 ? 0 : at - 1);
  std::size_t begin = lineStart == std::string_view::npos ? 0 : lineStart + 1;
  std::size_t end = begin;
  while (end < text.size() && (text[end] == ' ' || text[end] == '\t')) ++end;
  return std::string(text.substr(begin, end - begin));
}

// The sets as JSON text that starts where a value of a member indented by
// `indent` starts; on one line when the schema is on one line.
std::string RenderSets(const std::vector<VariableSet>& sets, bool pretty,
                       const std::string& indent) {
  const Json rendered = RenderCodebookSets(sets);
  if (!pretty) return rendered.dump();
  std::string text = rendered.dump(2);
  std::string out;
  for (const char c : text) {
    out += c;
    if (c == '\n') out += indent;
  }
  return out;
}

}  // namespace

std::string SpliceSets(const std::string& text, std::size_t resourceIndex,
                       const std::vector<VariableSet>& sets) {
  const auto resources = MemberSpan(text, RootSpan(text), "resources");
  const auto resource = resources ? ElementSpan(text, *resources, resourceIndex) : std::nullopt;
  const auto schema = resource ? MemberSpan(text, *resource, "schema") : std::nullopt;
  if (!schema) throw DatasetError("the package no longer has the resource's schema");
  const std::string_view schemaText(text.data() + schema->begin, schema->end - schema->begin);
  const bool pretty = schemaText.find('\n') != std::string_view::npos;
  if (const auto current = MemberSpan(text, *schema, kCodebookSetsKey)) {
    const std::string indent = LineIndent(text, current->begin);
    return text.substr(0, current->begin) + RenderSets(sets, pretty, indent) +
           text.substr(current->end);
  }
  if (sets.empty()) return text;
  // After the schema's last member, before the blanks and the closing brace.
  std::size_t close = schema->end - 1;
  std::size_t last = close;
  while (last > schema->begin &&
         std::string_view(" \t\r\n").find(text[last - 1]) != std::string_view::npos) {
    --last;
  }
  const bool empty = last == schema->begin + 1;
  std::string indent = LineIndent(text, close) + "  ";
  if (const auto fields = MemberSpan(text, *schema, kCodebookFieldsKey)) {
    const std::size_t keyStart = text.rfind('"', text.rfind(':', fields->begin) - 1);
    indent = LineIndent(text, text.rfind('"', keyStart - 1));
  }
  std::string member = std::string(empty ? "" : ",") + (pretty ? "\n" + indent : "") + "\"" +
                       kCodebookSetsKey + "\": " + RenderSets(sets, pretty, indent);
  return text.substr(0, last) + member + text.substr(last);
}

DataPackageStore::DataPackageStore(fs::path path, std::string resource, files::Env& env)
    : path_(std::move(path)), resource_(std::move(resource)), env_(env) {}

DataPackageStore::~DataPackageStore() = default;

Dataset DataPackageStore::Load() {
  const std::string file = path_.string();
  files::FileIdentity identity;
  std::string text;
  try {
    text = files::ReadWholeFile(path_, &identity, env_);
  } catch (const files::FileError& error) {
    throw DatasetError(error.what());
  }
  Json package = ParseDescriptor(text, file);
  if (!package.is_object()) throw DatasetError(file + ": the top level must be a JSON object");
  const std::size_t index = ChooseResource(package, resource_, file);
  const std::string pointer = ResourcePointer(index);
  const Json& resource = package["resources"][index];
  if (!resource.is_object()) throw DatasetError(file + ": " + pointer + ": must be an object");
  const auto schema = resource.find("schema");
  if (schema == resource.end()) throw DatasetError(file + ": " + pointer + "/schema: is missing");
  if (schema->is_string()) {
    throw DatasetError(file + ": " + pointer +
                       "/schema: kept in a separate file; only a schema written inside the "
                       "package can be opened");
  }
  DescriptorContents contents = ReadDescriptor(*schema, file, pointer + "/schema");
  Dataset dataset(std::move(contents.variables), contents.sets);
  schema_ = std::make_shared<Descriptor>(Descriptor{*schema});
  text_ = std::move(text);
  resourceIndex_ = index;
  storedSets_ = dataset.MultipleResponseSets();
  loaded_ = true;
  identity_ = identity;
  return dataset;
}

bool DataPackageStore::WouldChange(const Dataset& dataset) const {
  return !loaded_ || dataset.MultipleResponseSets() != storedSets_;
}

void DataPackageStore::Save(const Dataset& dataset) {
  if (!loaded_) {
    throw DatasetError(path_.string() + ": not saved: a data package is only changed, never made");
  }
  std::string text;
  try {
    text = SpliceSets(text_, resourceIndex_, dataset.MultipleResponseSets());
  } catch (const std::exception& error) {
    throw DatasetError(path_.string() + ": not saved: " + error.what());
  }
  try {
    files::WriteFileAtomically(path_, text, env_);
  } catch (const files::FileError& error) {
    throw DatasetError(error.what());
  }
  if (!files::IdentifyFile(path_, identity_)) identity_ = {};
  text_ = std::move(text);
  auto schema = std::make_shared<Descriptor>(*schema_);
  schema->json[kCodebookSetsKey] = RenderCodebookSets(dataset.MultipleResponseSets());
  schema_ = std::move(schema);
  storedSets_ = dataset.MultipleResponseSets();
}

std::optional<Dataset> DataPackageStore::BeginCommand(std::chrono::milliseconds timeout) {
  std::error_code ignored;
  fs::path target = fs::weakly_canonical(path_, ignored);
  if (ignored) target = path_;
  files::FileLock::Outcome outcome{};
  try {
    outcome = lock_.Acquire(target.string() + ".lock", timeout, env_);
  } catch (const files::FileError& error) {
    throw DatasetError(path_.string() + ": " + error.what());
  }
  if (outcome == files::FileLock::Outcome::kTimedOut) {
    throw DatasetError(LockTimeoutMessage(path_, timeout));
  }
  files::FileIdentity now;
  if (loaded_ && files::IdentifyFile(path_, now) && now == identity_) return std::nullopt;
  try {
    return Load();
  } catch (...) {
    lock_.Release();
    throw;
  }
}

bool LooksLikeDataPackage(std::string_view text) {
  const std::size_t resources = text.find("\"resources\"");
  return resources != std::string_view::npos && text.find("\"fields\"") > resources;
}

DatasetContents DataPackageStore::Export() {
  Dataset dataset = Load();
  return {std::move(dataset), schema_};
}

void DataPackageStore::Create(const DatasetContents&) {
  throw DatasetError(path_.string() + ": not made: a data package is only changed, never made");
}

std::unique_ptr<DatasetStore> OpenDataPackageStore(const fs::path& path, files::Env& env) {
  const std::string whole = path.string();
  std::error_code ignored;
  if (const std::size_t hash = whole.rfind('#');
      hash != std::string::npos && !fs::exists(path, ignored) &&
      fs::is_regular_file(whole.substr(0, hash), ignored)) {
    return std::make_unique<DataPackageStore>(whole.substr(0, hash), whole.substr(hash + 1), env);
  }
  if (path.filename() == kPackageName) return std::make_unique<DataPackageStore>(path, "", env);
  if (path.extension() != ".json" || !fs::is_regular_file(path, ignored)) return nullptr;
  std::ifstream in(path, std::ios::binary);
  std::string head(4096, '\0');
  in.read(head.data(), static_cast<std::streamsize>(head.size()));
  head.resize(static_cast<std::size_t>(std::max<std::streamsize>(in.gcount(), 0)));
  if (LooksLikeDataPackage(head)) return std::make_unique<DataPackageStore>(path, "", env);
  return nullptr;
}

}  // namespace hostlib::data
