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
std::string RenderSets(const std::vector<VariableSet>& sets, bool pretty, const std::string& indent,
                       std::string_view eol) {
  const Json rendered = RenderCodebookSets(sets);
  if (!pretty) return rendered.dump();
  std::string text = rendered.dump(2);
  std::string out;
  for (const char c : text) {
    if (c != '\n') {
      out += c;
      continue;
    }
    out += eol;
    out += indent;
  }
  return out;
}

}  // namespace

namespace {

// Puts `sets` into the schema object at `schema` of the text.
std::string SpliceSetsAt(const std::string& text, const std::optional<Span>& schema,
                         const std::vector<VariableSet>& sets) {
  const std::string_view schemaText(text.data() + schema->begin, schema->end - schema->begin);
  const bool pretty = schemaText.find('\n') != std::string_view::npos;
  // Lines end as the schema's own do (a file written on another system).
  const std::string_view eol = schemaText.find("\r\n") != std::string_view::npos ? "\r\n" : "\n";
  if (const auto current = MemberSpan(text, *schema, kCodebookSetsKey)) {
    const std::string indent = LineIndent(text, current->begin);
    return text.substr(0, current->begin) + RenderSets(sets, pretty, indent, eol) +
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
  std::string member = std::string(empty ? "" : ",") +
                       (pretty ? std::string(eol) + indent : std::string()) + "\"" +
                       kCodebookSetsKey + "\": " + RenderSets(sets, pretty, indent, eol);
  return text.substr(0, last) + member + text.substr(last);
}

// The file of a schema the resource names by a path: beside the package or
// below it. A URL is not fetched, and a path that leaves the package's
// folder is not followed (a package comes from others).
fs::path SchemaFile(const fs::path& package, const std::string& named, const std::string& file,
                    const std::string& place) {
  const fs::path relative(named);
  if (named.find("://") != std::string::npos) {
    throw DatasetError(file + ": " + place + ": the schema at " + named +
                       " is not fetched; keep it beside the package");
  }
  if (named.empty() || relative.is_absolute() || relative.has_root_name() ||
      std::find(relative.begin(), relative.end(), "..") != relative.end()) {
    throw DatasetError(file + ": " + place +
                       ": must be a path within the package's folder (no \"..\", not absolute)");
  }
  return package.parent_path() / relative;
}

}  // namespace

std::string SpliceSets(const std::string& text, std::size_t resourceIndex,
                       const std::vector<VariableSet>& sets) {
  const auto resources = MemberSpan(text, RootSpan(text), "resources");
  const auto resource = resources ? ElementSpan(text, *resources, resourceIndex) : std::nullopt;
  const auto schema = resource ? MemberSpan(text, *resource, "schema") : std::nullopt;
  if (!schema) throw DatasetError("the package no longer has the resource's schema");
  return SpliceSetsAt(text, schema, sets);
}

std::string SpliceSchemaSets(const std::string& text, const std::vector<VariableSet>& sets) {
  const Span root = RootSpan(text);
  if (root.end <= root.begin || text[root.begin] != '{') {
    throw DatasetError("the schema is no longer a JSON object");
  }
  return SpliceSetsAt(text, root, sets);
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
  fs::path schemaPath;
  std::string schemaText;
  files::FileIdentity schemaIdentity;
  Json external;
  if (schema->is_string()) {
    schemaPath = SchemaFile(path_, schema->get<std::string>(), file, pointer + "/schema");
    try {
      schemaText = files::ReadWholeFile(schemaPath, &schemaIdentity, env_);
    } catch (const files::FileError& error) {
      throw DatasetError(file + ": " + pointer + "/schema: " + error.what());
    }
    external = ParseDescriptor(schemaText, schemaPath.string());
  }
  const Json& schemaJson = schemaPath.empty() ? *schema : external;
  DescriptorContents contents = schemaPath.empty()
                                    ? ReadDescriptor(schemaJson, file, pointer + "/schema")
                                    : ReadDescriptor(schemaJson, schemaPath.string());
  Dataset dataset(std::move(contents.variables), contents.sets);
  schema_ = std::make_shared<Descriptor>(Descriptor{schemaJson});
  schemaPath_ = std::move(schemaPath);
  schemaText_ = std::move(schemaText);
  schemaIdentity_ = schemaIdentity;
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
  // A schema of its own file keeps the sets there; the package is not touched.
  const bool external = !schemaPath_.empty();
  const fs::path& target = external ? schemaPath_ : path_;
  std::string text;
  try {
    text = external ? SpliceSchemaSets(schemaText_, dataset.MultipleResponseSets())
                    : SpliceSets(text_, resourceIndex_, dataset.MultipleResponseSets());
  } catch (const std::exception& error) {
    throw DatasetError(target.string() + ": not saved: " + error.what());
  }
  try {
    files::WriteFileAtomically(target, text, env_);
  } catch (const files::FileError& error) {
    throw DatasetError(error.what());
  }
  if (external) {
    if (!files::IdentifyFile(schemaPath_, schemaIdentity_)) schemaIdentity_ = {};
    schemaText_ = std::move(text);
  } else {
    if (!files::IdentifyFile(path_, identity_)) identity_ = {};
    text_ = std::move(text);
  }
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
  files::FileIdentity schemaNow;
  const bool schemaSame = schemaPath_.empty() || (files::IdentifyFile(schemaPath_, schemaNow) &&
                                                  schemaNow == schemaIdentity_);
  if (loaded_ && files::IdentifyFile(path_, now) && now == identity_ && schemaSame) {
    return std::nullopt;
  }
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
