#include "hostlib/formats/triple_s.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <set>

#include "hostlib/formats/csv.h"
#include "hostlib/formats/xml.h"
#include "hostlib/strings/unicode.h"

namespace hostlib::formats {
namespace {

using data::DatasetError;

constexpr int kMaxStringWidth = 32767;
constexpr std::size_t kDefaultStringWidth = 255;
constexpr std::size_t kMaxSubfields = 10000;

class Reader {
 public:
  Reader(const std::string& text, std::string file) : text_(text), file_(std::move(file)) {}

  TripleSSurvey Read() {
    const auto encoding = xml::DeclaredSingleByte(text_);
    pugi::xml_document document;
    xml::Parse(document, text_, file_);
    const pugi::xml_node root = document.document_element();
    if (xml::LocalName(root) != "sss") Fail(root, "the root element is not <sss>");
    const pugi::xml_node survey = xml::Child(root, "survey");
    if (!survey) Fail(root, "<survey> is missing");
    const pugi::xml_node record = xml::Child(survey, "record");
    if (!record) Fail(survey, "<record> is missing");
    TripleSSurvey result;
    result.dataSingleByte = static_cast<int>(encoding);
    result.skipLines = record.attribute("skip").as_uint(0);
    result.dataHref = record.attribute("href").as_string();
    // The first of the languages the survey declares is the one shown; a
    // file without the list shows the first text of each element.
    const std::string languages = root.attribute("languages").as_string();
    language_ = languages.substr(0, languages.find_first_of(" \t\r\n"));
    // A hierarchical survey keeps its variables in several records: all of
    // them make the dictionary, each read by its own record's format.
    const auto records = xml::Children(survey, "record");
    result.severalRecords = records.size() > 1;
    for (const pugi::xml_node& each : records) {
      const std::string format = each.attribute("format").as_string("fixed");
      if (format != "fixed" && format != "csv")
        Fail(each, "unknown data format \"" + format + "\"");
      result.csvData = format == "csv";
      for (const pugi::xml_node& variable : xml::Children(each, "variable")) {
        ReadVariable(variable, result);
      }
    }
    result.csvData = std::string_view(record.attribute("format").as_string()) == "csv";
    result.dataset.ReplaceMultipleResponseSets(std::move(sets_));
    return result;
  }

 private:
  [[noreturn]] void Fail(const pugi::xml_node& node, const std::string& fault) const {
    throw DatasetError(file_ + ": " + xml::Place(node, text_) + ": " + fault);
  }

  std::size_t Number(const pugi::xml_node& node, const char* attribute,
                     bool required = true) const {
    const std::string text = node.attribute(attribute).as_string();
    if (text.empty() && !required) return 0;
    std::size_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || error != std::errc() || end != text.data() + text.size() || value == 0) {
      Fail(node, std::string("the ") + attribute + " of <" + node.name() +
                     "> must be a whole number from 1 up");
    }
    return value;
  }

  static std::optional<double> Code(const std::string& text) {
    double value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || error != std::errc() || end != text.data() + text.size())
      return std::nullopt;
    return value;
  }

  // The codes and their labels, in the order listed.
  // Literal codes (letters) are kept as texts, for a single variable only.
  std::vector<std::pair<std::string, std::string>> Values(const pugi::xml_node& variable,
                                                          bool literal = false) const {
    std::vector<std::pair<std::string, std::string>> values;
    const pugi::xml_node list = xml::Child(variable, "values");
    for (const pugi::xml_node& value : xml::Children(list, "value")) {
      const std::string code = value.attribute("code").as_string();
      if (!literal && !Code(code)) Fail(value, "the code \"" + code + "\" is not a number");
      values.emplace_back(code, xml::Text(value, language_));
    }
    return values;
  }

  VORN_ValueLabels Labels(const std::vector<std::pair<std::string, std::string>>& values) const {
    VORN_ValueLabels labels;
    for (const auto& [code, label] : values) labels.numeric.emplace(*Code(code), label);
    return labels;
  }

  void Add(TripleSSurvey& survey, const pugi::xml_node& node, VORN_Variable variable,
           TripleSColumn column) const {
    try {
      survey.dataset.AddVariable(std::move(variable));
    } catch (const DatasetError& error) {
      Fail(node, error.what());
    }
    survey.columns.push_back(column);
  }

  void ReadVariable(const pugi::xml_node& variable, TripleSSurvey& survey) {
    const std::string type = variable.attribute("type").as_string();
    const std::string ident = variable.attribute("ident").as_string();
    std::string name = xml::Text(xml::Child(variable, "name"));
    if (name.empty()) name = "V" + ident;
    if (name == "V") Fail(variable, "a variable has neither <name> nor an ident");
    const std::string label = xml::Text(xml::Child(variable, "label"), language_);
    const pugi::xml_node position = xml::Child(variable, "position");
    if (!position) Fail(variable, "<position> of " + name + " is missing");
    const std::size_t start = Number(position, "start");
    std::size_t finish = Number(position, "finish", false);
    if (finish == 0) finish = start;
    if (finish < start) Fail(position, "finish comes before start");
    const std::size_t width = finish - start + 1;
    if (type == "single" && IsLiteral(variable)) {
      VORN_ValueLabels labels;
      // In CSV data the codes' own length, as the position counts fields.
      std::size_t size = survey.csvData ? 1 : width;
      for (auto& [code, text] : Values(variable, true)) {
        if (survey.csvData) size = std::max(size, code.size());
        labels.text.emplace(code, text);
      }
      if (size > static_cast<std::size_t>(kMaxStringWidth)) Fail(variable, "wider than 32767");
      Add(survey, variable, VORN_Variable(name, static_cast<int>(size), label, std::move(labels)),
          {start, width, std::nullopt});
    } else if (type == "single" || type == "quantity" || type == "logical") {
      Add(survey, variable, VORN_Variable(name, 0, label, Labels(Values(variable))),
          {start, width, std::nullopt});
    } else if (type == "character") {
      // A CSV field's position says nothing of its length: without a size
      // it may hold any text.
      std::size_t size = survey.csvData ? kDefaultStringWidth : width;
      if (const pugi::xml_node sizeNode = xml::Child(variable, "size")) {
        const std::string text = xml::Text(sizeNode);
        size = 0;
        std::from_chars(text.data(), text.data() + text.size(), size);
        if (size == 0) Fail(sizeNode, "<size> must be a whole number from 1 up");
      }
      if (size > static_cast<std::size_t>(kMaxStringWidth)) Fail(variable, "wider than 32767");
      Add(survey, variable, VORN_Variable(name, static_cast<int>(size), label),
          {start, width, std::nullopt});
    } else if (type == "multiple") {
      ReadMultiple(variable, survey, name, label, start, width);
    } else {
      Fail(variable, "unknown variable type \"" + type + "\"");
    }
  }

  // A single variable whose codes are letters (format="literal", or codes
  // that are no numbers) holds texts.
  bool IsLiteral(const pugi::xml_node& variable) const {
    if (std::string_view(variable.attribute("format").as_string()) == "literal") return true;
    for (const pugi::xml_node& value : xml::Children(xml::Child(variable, "values"), "value")) {
      if (!Code(value.attribute("code").as_string())) return true;
    }
    return false;
  }

  // Where each code's mark sits in a bitstring of `width` characters (or
  // fields): the code's own place when the codes are whole numbers from 1
  // to the width, as they are meant to be, so that codes listed out of order
  // or with gaps find their marks; else the order of the list.
  static std::vector<std::size_t> BitPlaces(
      const std::vector<std::pair<std::string, std::string>>& values, std::size_t width) {
    std::vector<std::size_t> places;
    std::set<std::size_t> taken;  // as many as the codes, whatever the width
    for (const auto& [code, label] : values) {
      const double number = *Code(code);
      if (number < 1 || number > static_cast<double>(width) || std::trunc(number) != number ||
          !taken.insert(static_cast<std::size_t>(number) - 1).second) {
        places.clear();
        break;
      }
      places.push_back(static_cast<std::size_t>(number) - 1);
    }
    if (places.empty()) {
      for (std::size_t i = 0; i < values.size(); ++i) places.push_back(i);
    }
    return places;
  }

  void ReadMultiple(const pugi::xml_node& variable, TripleSSurvey& survey, const std::string& name,
                    const std::string& label, std::size_t start, std::size_t width) {
    const auto values = Values(variable);
    if (values.empty()) Fail(variable, "the multiple variable " + name + " lists no values");
    const pugi::xml_node spread = xml::Child(variable, "spread");
    if (!spread) {
      VariableSet set("$" + name, VariableSet::kMultipleDichotomySet);
      set.SetLabel(label);
      set.SetValue("1");
      if (width < values.size()) {
        // CSV data may hold the whole bitstring in the one field of the position.
        if (!survey.csvData || width != 1) {
          Fail(variable, "the bitstring of " + name + " is narrower than its list of values");
        }
      }
      // CSV: one field per code, or the bitstring in one field.
      const bool fieldPerCode = survey.csvData && width > 1;
      const auto places =
          BitPlaces(values, fieldPerCode || !survey.csvData ? width : values.size());
      for (std::size_t i = 0; i < values.size(); ++i) {
        const std::string member = name + "_" + values[i].first;
        TripleSColumn column{start, width, places[i]};
        if (fieldPerCode) column = {start + places[i], 1, std::nullopt};
        Add(survey, variable, VORN_Variable(member, 0, values[i].second), column);
        set.AddVariableName(member);
      }
      sets_.push_back(std::move(set));
    } else {
      const std::size_t subfields = Number(spread, "subfields");
      // Each subfield takes a character (fixed) or a field (CSV) at least, so
      // the position bounds how many members the file can ask for.
      if (subfields > width || subfields > kMaxSubfields) {
        Fail(spread, "the subfields of " + name + " do not fit its position");
      }
      const std::size_t subWidth =
          spread.attribute("width") ? Number(spread, "width") : width / subfields;
      if (!survey.csvData && subWidth > width / subfields) {
        Fail(spread, "the subfields of " + name + " do not fit its position");
      }
      VariableSet set("$" + name, VariableSet::kMultipleCategorySet);
      set.SetLabel(label);
      for (std::size_t i = 0; i < subfields; ++i) {
        const std::string member = name + "_" + std::to_string(i + 1);
        // Each member labelled apart, so that a list of the members tells them apart.
        const std::string memberLabel =
            label.empty() ? std::string() : label + " (" + std::to_string(i + 1) + ")";
        Add(survey, variable, VORN_Variable(member, 0, memberLabel, Labels(values)),
            {survey.csvData ? start + i : start + i * subWidth, subWidth, std::nullopt, true});
        set.AddVariableName(member);
      }
      sets_.push_back(std::move(set));
    }
  }

  std::string text_;  // as UTF-8 once parsed
  std::string file_;
  std::vector<VariableSet> sets_;  // one per multiple variable, in order
  std::string language_;           // of the texts shown; empty: the first of each
};

std::string Trim(std::string_view text) {
  const auto begin = text.find_first_not_of(' ');
  if (begin == std::string_view::npos) return {};
  return std::string(text.substr(begin, text.find_last_not_of(' ') - begin + 1));
}

std::vector<std::string_view> Lines(std::string_view data) {
  std::vector<std::string_view> lines;
  while (!data.empty()) {
    auto end = data.find('\n');
    std::string_view line = data.substr(0, end);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    lines.push_back(line);
    if (end == std::string_view::npos) break;
    data.remove_prefix(end + 1);
  }
  return lines;
}

std::string Cell(const TripleSColumn& column, std::string_view field) {
  if (column.bit) {
    if (*column.bit >= field.size() || field[*column.bit] == ' ') return {};
    return field[*column.bit] == '0' ? "0" : "1";
  }
  std::string value = Trim(field);
  if (column.zeroIsEmpty && value.find_first_not_of('0') == std::string::npos) value.clear();
  return value;
}

}  // namespace

TripleSSurvey ReadTripleS(const std::string& text, const std::string& file) {
  return Reader(text, file).Read();
}

bool IsTripleS(const std::string& text) {
  pugi::xml_document document;
  if (!document.load_buffer(text.data(), text.size())) return false;
  return xml::LocalName(document.document_element()) == "sss";
}

std::string ConvertTripleSData(const TripleSSurvey& survey, const std::string& rawData,
                               const std::string& file) {
  const auto encoding = static_cast<xml::SingleByte>(survey.dataSingleByte);
  if (encoding == xml::SingleByte::kNone) {
    const std::size_t valid = strings::ValidUtf8Length(rawData);
    if (valid < rawData.size()) {
      const auto line = 1 + std::count(rawData.begin(),
                                       rawData.begin() + static_cast<std::ptrdiff_t>(valid), '\n');
      throw DatasetError(file + ": line " + std::to_string(line) +
                         ": the data are not UTF-8 (declare their encoding in the XML file)");
    }
  }
  std::vector<std::string> header;
  for (const auto& variable : survey.dataset.Variables()) header.push_back(variable.GetName());
  std::string out = RenderCsvRecord(header);
  std::vector<std::vector<std::string>> records;
  if (survey.csvData) {
    CsvTable table = ParseCsv(xml::SingleByteToUtf8(rawData, encoding), file);
    // ParseCsv takes the first line as a header; put it back when there is none.
    if (survey.skipLines == 0) table.rows.insert(table.rows.begin(), table.header);
    for (std::size_t r = survey.skipLines == 0 ? 0 : survey.skipLines - 1; r < table.rows.size();
         ++r) {
      std::vector<std::string> record;
      for (const TripleSColumn& column : survey.columns) {
        if (column.start > table.rows[r].size()) {
          throw DatasetError(file + ": record " + std::to_string(r + 1) + ": has no field " +
                             std::to_string(column.start));
        }
        record.push_back(Cell(column, table.rows[r][column.start - 1]));
      }
      out += RenderCsvRecord(record);
    }
    return out;
  }
  // Cut before converting: a fixed column counts bytes of the file as written.
  const auto lines = Lines(rawData);
  for (std::size_t l = survey.skipLines; l < lines.size(); ++l) {
    if (lines[l].empty()) continue;
    std::vector<std::string> record;
    for (const TripleSColumn& column : survey.columns) {
      if (column.start - 1 >= lines[l].size()) {
        record.emplace_back();  // trailing blanks may be cut off
        continue;
      }
      record.push_back(xml::SingleByteToUtf8(
          Cell(column, lines[l].substr(column.start - 1, column.width)), encoding));
    }
    out += RenderCsvRecord(record);
  }
  return out;
}

}  // namespace hostlib::formats
