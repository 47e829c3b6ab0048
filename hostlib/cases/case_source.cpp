#include "hostlib/cases/case_source.h"

#include <stdexcept>

#include <nlohmann/json.hpp>

#include "hostlib/data/codebook/top_level_members.h"

namespace hostlib::cases {
namespace {

using Json = nlohmann::json;

[[noreturn]] void Refuse(const std::filesystem::path& codebook, const std::string& key,
                         const std::string& fault) {
  throw std::runtime_error(codebook.string() + ": \"" + key + "\" " + fault);
}

char OneCharacter(const Json& value, const std::filesystem::path& codebook,
                  const std::string& key) {
  if (!value.is_string() || value.get_ref<const std::string&>().size() != 1) {
    Refuse(codebook, key, "must be a text of one character");
  }
  return value.get_ref<const std::string&>()[0];
}

Dialect ReadDialect(const Json& dialect, const std::filesystem::path& codebook) {
  if (!dialect.is_object()) Refuse(codebook, "dialect", "must be an object");
  Dialect read;
  if (dialect.contains("delimiter")) {
    read.delimiter = OneCharacter(dialect["delimiter"], codebook, "dialect/delimiter");
  }
  if (dialect.contains("quoteChar")) {
    read.quote = OneCharacter(dialect["quoteChar"], codebook, "dialect/quoteChar");
  }
  if (dialect.contains("header")) {
    if (!dialect["header"].is_boolean() || !dialect["header"].get<bool>()) {
      Refuse(codebook, "dialect/header", "must be true: the case file needs a header row");
    }
  }
  if (read.delimiter == read.quote || read.delimiter == '\n' || read.quote == '\n') {
    Refuse(codebook, "dialect", "needs a delimiter, a quote and a line end that differ");
  }
  return read;
}

std::vector<std::string> ReadMissingValues(const Json& values,
                                           const std::filesystem::path& codebook) {
  if (!values.is_array()) Refuse(codebook, "missingValues", "must be a list of texts");
  std::vector<std::string> read;
  for (const Json& value : values) {
    if (!value.is_string()) Refuse(codebook, "missingValues", "must be a list of texts");
    read.push_back(value.get<std::string>());
  }
  return read;
}

std::optional<CaseSource>& Active() {
  static std::optional<CaseSource> source;
  return source;
}

CaseReading& Reading() {
  static CaseReading reading;
  return reading;
}

}  // namespace

const std::vector<std::string>& CaseSourceKeys() {
  static const std::vector<std::string> keys = {"path", "dialect", "missingValues"};
  return keys;
}

// Only these keys are parsed: the dictionary may be large.
std::optional<CaseSource> CaseSourceOfCodebook(const std::filesystem::path& codebook) {
  return CaseSourceOfMembers(codebook, data::ReadTopLevelMembers(codebook, CaseSourceKeys()));
}

std::optional<CaseSource> CaseSourceOfMembers(
    const std::filesystem::path& codebook,
    const std::optional<std::map<std::string, std::string>>& members) {
  if (!members || members->count("path") == 0) return std::nullopt;
  Json document = Json::object();
  for (const auto& [key, text] : *members) {
    document[key] = Json::parse(text, nullptr, false);
    if (document[key].is_discarded()) return std::nullopt;
  }
  const Json& path = document["path"];
  if (!path.is_string() || path.get_ref<const std::string&>().empty()) {
    Refuse(codebook, "path", "must be the name of the case file");
  }
  CaseSource source;
  source.path = codebook.parent_path() / std::filesystem::path(path.get<std::string>());
  if (document.contains("dialect")) source.dialect = ReadDialect(document["dialect"], codebook);
  if (document.contains("missingValues")) {
    source.missingValues = ReadMissingValues(document["missingValues"], codebook);
  }
  return source;
}

void SetActiveCaseSource(std::optional<CaseSource> source) { Active() = std::move(source); }

const std::optional<CaseSource>& ActiveCaseSource() { return Active(); }

void SetCaseReading(CaseReading reading) { Reading() = reading; }

const CaseReading& CurrentCaseReading() { return Reading(); }

}  // namespace hostlib::cases
