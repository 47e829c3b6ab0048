#include "hostlib/formats/xml.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>

#include "hostlib/data/dataset.h"
#include "hostlib/strings/unicode.h"

namespace hostlib::formats::xml {
namespace {

std::size_t LineOf(std::string_view text, std::ptrdiff_t offset) {
  const auto end = std::min<std::size_t>(
      static_cast<std::size_t>(std::max<std::ptrdiff_t>(offset, 0)), text.size());
  return 1 + static_cast<std::size_t>(
                 std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(end), '\n'));
}

// Without blanks at the ends, and a long text that the file wraps onto an
// indented line (a line break followed by blanks) joined by one space; a
// line break with nothing after it is kept, as a label may hold one.
std::string Trimmed(std::string_view text) {
  const auto begin = text.find_first_not_of(" \t\r\n");
  if (begin == std::string_view::npos) return {};
  const auto end = text.find_last_not_of(" \t\r\n");
  text = text.substr(begin, end - begin + 1);
  std::string out;
  out.reserve(text.size());
  for (std::size_t at = 0; at < text.size();) {
    const auto isBlank = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
    if (!isBlank(text[at])) {
      out += text[at++];
      continue;
    }
    std::size_t runEnd = at;
    while (runEnd < text.size() && isBlank(text[runEnd])) ++runEnd;
    const std::string_view run = text.substr(at, runEnd - at);
    bool wrapped = false;
    for (std::size_t i = 0; i + 1 < run.size() && !wrapped; ++i) {
      wrapped = run[i] == '\n' && (run[i + 1] == ' ' || run[i + 1] == '\t');
    }
    if (wrapped) {
      out += ' ';
    } else {
      out += run;
    }
    at = runEnd;
  }
  return out;
}

// The encoding the XML declaration names, in lower case; empty when none.
std::string DeclaredEncoding(std::string_view text) {
  if (text.substr(0, 3) == "\xEF\xBB\xBF") text.remove_prefix(3);
  if (text.substr(0, 5) != "<?xml") return {};
  const std::string_view declaration = text.substr(0, text.find("?>"));
  const auto key = declaration.find("encoding");
  if (key == std::string_view::npos) return {};
  const auto open = declaration.find_first_of("\"'", key);
  if (open == std::string_view::npos) return {};
  const auto close = declaration.find(declaration[open], open + 1);
  if (close == std::string_view::npos) return {};
  std::string name(declaration.substr(open + 1, close - open - 1));
  for (char& c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return name;
}

bool IsLatin1(std::string_view encoding) {
  return encoding == "iso-8859-1" || encoding == "iso8859-1" || encoding == "latin1" ||
         encoding == "latin-1" || encoding == "l1";
}

bool IsWindows1252(std::string_view encoding) {
  return encoding == "windows-1252" || encoding == "cp1252";
}

// Windows-1252 where it differs from ISO-8859-1 (0x80 to 0x9F); 0 where it
// has no character, kept then as ISO-8859-1 has it.
constexpr std::array<std::uint16_t, 32> kWindows1252High = {
    0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0,      0x017D, 0,      0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178};

std::string ToUtf8(std::string_view text, bool windows1252) {
  std::string out;
  out.reserve(text.size() + text.size() / 8);
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    std::int32_t codePoint = byte;
    if (windows1252 && byte >= 0x80 && byte < 0xA0 && kWindows1252High[byte - 0x80] != 0) {
      codePoint = kWindows1252High[byte - 0x80];
    }
    strings::AppendCodePoint(out, codePoint);
  }
  return out;
}

// UTF-16 (after its byte order mark) as UTF-8, the declaration's encoding
// named anew so that the parser reads the result as it is. A lone surrogate
// or an odd last byte is refused with its line.
std::string Utf16ToUtf8(std::string_view text, bool bigEndian, const std::string& file) {
  std::string out;
  out.reserve(text.size() / 2);
  std::size_t line = 1;
  const auto unit = [&](std::size_t at) {
    const auto high = static_cast<unsigned char>(text[bigEndian ? at : at + 1]);
    const auto low = static_cast<unsigned char>(text[bigEndian ? at + 1 : at]);
    return static_cast<std::int32_t>(high << 8 | low);
  };
  const auto fail = [&]() {
    throw data::DatasetError(file + ": line " + std::to_string(line) +
                             ": the text is not UTF-16, as its byte order mark says");
  };
  for (std::size_t at = 2; at < text.size(); at += 2) {
    if (at + 1 >= text.size()) fail();
    std::int32_t codePoint = unit(at);
    if (codePoint >= 0xDC00 && codePoint < 0xE000) fail();
    if (codePoint >= 0xD800 && codePoint < 0xDC00) {
      if (at + 3 >= text.size()) fail();
      const std::int32_t second = unit(at + 2);
      if (second < 0xDC00 || second >= 0xE000) fail();
      codePoint = 0x10000 + ((codePoint - 0xD800) << 10) + (second - 0xDC00);
      at += 2;
    }
    if (codePoint == '\n') ++line;
    strings::AppendCodePoint(out, codePoint);
  }
  if (out.rfind("<?xml", 0) == 0) {
    const std::size_t end = out.find("?>");
    const std::size_t key = out.substr(0, end).find("encoding");
    const std::size_t open = key == std::string::npos ? key : out.find_first_of("\"'", key);
    const std::size_t close = open == std::string::npos ? open : out.find(out[open], open + 1);
    if (close != std::string::npos && close < end) out.replace(open + 1, close - open - 1, "UTF-8");
  }
  return out;
}

// Whatever the file's encoding, the document is read as UTF-8: the names
// and labels go on into UTF-8 files. Files that declare no encoding or
// UTF-8 must be UTF-8; ISO-8859-1 and Windows-1252 are converted in place (the
// lines stay where they were), and so is UTF-16 with a byte order mark, so
// that the places in messages count the file's own lines.
void MakeUtf8(std::string& text, const std::string& file) {
  if (text.rfind(std::string_view("\xFF\xFE\0\0", 4), 0) == 0 ||
      text.rfind(std::string_view("\0\0\xFE\xFF", 4), 0) == 0) {
    throw data::DatasetError(file +
                             ": line 1: the encoding UTF-32 is not supported "
                             "(UTF-8, UTF-16, ISO-8859-1 or Windows-1252)");
  }
  if (text.rfind("\xFF\xFE", 0) == 0 || text.rfind("\xFE\xFF", 0) == 0) {
    text = Utf16ToUtf8(text, text[0] == '\xFE', file);
    return;
  }
  const std::string encoding = DeclaredEncoding(text);
  if (IsLatin1(encoding) || IsWindows1252(encoding)) {
    text = ToUtf8(text, IsWindows1252(encoding));
    return;
  }
  if (!encoding.empty() && encoding != "utf-8" && encoding != "utf8" && encoding != "us-ascii" &&
      encoding != "ascii") {
    throw data::DatasetError(file + ": line 1: the encoding \"" + encoding +
                             "\" is not supported (UTF-8, ISO-8859-1 or Windows-1252)");
  }
  const std::size_t valid = strings::ValidUtf8Length(text);
  if (valid < text.size()) {
    throw data::DatasetError(file + ": line " +
                             std::to_string(LineOf(text, static_cast<std::ptrdiff_t>(valid))) +
                             ": the text is not UTF-8 (declare its encoding)");
  }
}

}  // namespace

SingleByte DeclaredSingleByte(std::string_view text) {
  if (text.rfind("\xFF\xFE", 0) == 0 || text.rfind("\xFE\xFF", 0) == 0) return SingleByte::kNone;
  const std::string encoding = DeclaredEncoding(text);
  if (IsLatin1(encoding)) return SingleByte::kLatin1;
  if (IsWindows1252(encoding)) return SingleByte::kWindows1252;
  return SingleByte::kNone;
}

std::string SingleByteToUtf8(std::string_view text, SingleByte encoding) {
  if (encoding == SingleByte::kNone) return std::string(text);
  return ToUtf8(text, encoding == SingleByte::kWindows1252);
}

void Parse(pugi::xml_document& document, std::string& text, const std::string& file) {
  MakeUtf8(text, file);
  const pugi::xml_parse_result result =
      document.load_buffer(text.data(), text.size(), pugi::parse_default, pugi::encoding_utf8);
  if (!result) {
    throw data::DatasetError(file + ": line " + std::to_string(LineOf(text, result.offset)) +
                             ": not well-formed XML: " + result.description());
  }
}

std::string_view LocalName(const pugi::xml_node& node) {
  std::string_view name = node.name();
  if (const auto colon = name.find(':'); colon != std::string_view::npos)
    name.remove_prefix(colon + 1);
  return name;
}

pugi::xml_node Child(const pugi::xml_node& node, std::string_view name) {
  for (pugi::xml_node child = node.first_child(); child; child = child.next_sibling()) {
    if (child.type() == pugi::node_element && LocalName(child) == name) return child;
  }
  return {};
}

std::vector<pugi::xml_node> Children(const pugi::xml_node& node, std::string_view name) {
  std::vector<pugi::xml_node> found;
  for (pugi::xml_node child = node.first_child(); child; child = child.next_sibling()) {
    if (child.type() == pugi::node_element && LocalName(child) == name) found.push_back(child);
  }
  return found;
}

std::string Text(const pugi::xml_node& node, std::string_view language) {
  if (const pugi::xml_node first = Child(node, "text")) {
    if (!language.empty()) {
      for (const pugi::xml_node& text : Children(node, "text")) {
        if (language == text.attribute("xml:lang").as_string()) return Trimmed(text.child_value());
      }
    }
    return Trimmed(first.child_value());
  }
  std::string joined;
  for (pugi::xml_node child = node.first_child(); child; child = child.next_sibling()) {
    if (child.type() == pugi::node_pcdata || child.type() == pugi::node_cdata)
      joined += child.value();
  }
  return Trimmed(joined);
}

std::string Place(const pugi::xml_node& node, std::string_view text) {
  return "line " + std::to_string(LineOf(text, node.offset_debug()));
}

std::string Escape(std::string_view text) {
  std::string out;
  for (const char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\n':
        out += "&#10;";
        break;
      case '\r':
        out += "&#13;";
        break;
      case '\t':
        out += "&#9;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

}  // namespace hostlib::formats::xml
