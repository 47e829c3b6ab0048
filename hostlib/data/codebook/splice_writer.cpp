#include "hostlib/data/codebook/splice_writer.h"

#include <nlohmann/json.hpp>

namespace hostlib::data {
namespace {

namespace spans = json_spans;

bool NeedsEscaping(std::string_view text) {
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte >= 0x80 || c == '"' || c == '\\') return true;
  }
  return false;
}

class ListWriter {
 public:
  ListWriter(std::string_view indent, const std::filesystem::path& path, const SetListSink& write)
      : entryIndent_(std::string(indent) + "  "), path_(path), write_(write) {}

  void String(std::string_view text) {
    if (!NeedsEscaping(text)) {
      out_.append("\"").append(text).append("\"");
      return;
    }
    try {
      out_ += nlohmann::json(std::string(text)).dump();
    } catch (const nlohmann::json::exception& error) {
      throw DatasetError(path_.string() + ": not saved: " + error.what());
    }
  }

  void Key(std::string_view key, bool first = false) {
    if (!first) out_ += ", ";
    String(key);
    out_ += ": ";
  }

  void Set(const VariableSet& set) {
    out_.append(entryIndent_).append("{");
    Key("name", true);
    String(set.GetName(kAsStored));
    const bool dichotomies = set.GetType() == VariableSet::kMultipleDichotomySet;
    Key("type");
    String(dichotomies ? "dichotomies" : "categories");
    if (!set.GetLabel().empty()) {
      Key("label");
      String(set.GetLabel());
    }
    if (dichotomies) {
      Key("countedValue");
      String(set.GetValue());
      Key("categoryLabels");
      String(set.qUseVariableCategoryLabels() ? "countedValues" : "variableLabels");
    }
    if (set.qLabelSetByVariable()) {
      Key("labelSource");
      String("variableLabel");
    }
    out_.append(",\n").append(entryIndent_).append(" ");
    Key("variables", true);
    out_ += "[";
    bool first = true;
    for (const std::string& name : set.GetVariableNames(kAsStored)) {
      if (!first) out_ += ", ";
      first = false;
      String(name);
    }
    out_ += "]";
    Extras(set);
    out_ += "}";
  }

  std::string& Out() { return out_; }

  // Hands on what is made once it is a piece's worth, or at the end.
  void Flush(bool last = false) {
    if (out_.size() < kPiece && !last) return;
    write_(out_);
    out_.clear();
  }

 private:
  static constexpr std::size_t kPiece = std::size_t{1} << 20;

  void Extras(const VariableSet& set) {
    const std::string& extras = set.StoreExtras();
    if (extras.empty()) return;
    if (!nlohmann::json::accept(extras) || extras.front() != '{') {
      throw DatasetError(path_.string() + ": not saved: the stored extras of set " +
                         set.GetName(kAsStored) + " are not a JSON object");
    }
    const spans::Span object{0, extras.size()};
    for (const spans::Member& member : spans::ObjectMembers(extras, object)) {
      if (IsWrittenKey(spans::KeyText(extras, member.key), set)) continue;
      out_.append(",\n").append(entryIndent_).append(" ");
      out_.append(member.key.Of(extras)).append(": ").append(member.value.Of(extras));
    }
  }

  // A key the set's own columns write wins over an unknown key of that name.
  static bool IsWrittenKey(std::string_view key, const VariableSet& set) {
    const bool dichotomies = set.GetType() == VariableSet::kMultipleDichotomySet;
    return key == "name" || key == "type" || key == "variables" ||
           (key == "label" && !set.GetLabel().empty()) ||
           (key == "labelSource" && set.qLabelSetByVariable()) ||
           (dichotomies && (key == "countedValue" || key == "categoryLabels"));
  }

  std::string entryIndent_;
  const std::filesystem::path& path_;
  const SetListSink& write_;
  std::string out_;
};

}  // namespace

void WriteSetList(const std::vector<VariableSet>& sets, std::string_view indent,
                  const std::filesystem::path& path, const SetListSink& write) {
  if (sets.empty()) {
    write("[]");
    return;
  }
  ListWriter writer(indent, path, write);
  writer.Out() += "[\n";
  for (std::size_t i = 0; i < sets.size(); ++i) {
    writer.Set(sets[i]);
    writer.Out() += i + 1 < sets.size() ? ",\n" : "\n";
    writer.Flush();
  }
  writer.Out().append(indent).append("]");
  writer.Flush(true);
}

std::string RenderSetList(const std::vector<VariableSet>& sets, std::string_view indent,
                          const std::filesystem::path& path) {
  std::string list;
  WriteSetList(sets, indent, path, [&](std::string_view piece) { list += piece; });
  return list;
}

void SpliceSets(std::string& text, SetsPlace& place, const std::vector<VariableSet>& sets,
                const std::filesystem::path& path) {
  if (!place.present && sets.empty()) return;
  const std::string list = RenderSetList(sets, place.indent, path);
  if (place.present) {
    text.replace(place.value.begin, place.value.end - place.value.begin, list);
    place.value.end = place.value.begin + list.size();
    return;
  }
  const std::string member = ",\n" + place.indent + "\"" + kCodebookSetsKey + "\": ";
  text.insert(place.insertAt, member + list);
  place.present = true;
  place.value = {place.insertAt + member.size(), place.insertAt + member.size() + list.size()};
}

}  // namespace hostlib::data
