#include "hostlib/formats/xml.h"

#include <algorithm>

#include "hostlib/data/dataset.h"

namespace hostlib::formats::xml {
namespace {

std::size_t LineOf(std::string_view text, std::ptrdiff_t offset) {
  const auto end = std::min<std::size_t>(
      static_cast<std::size_t>(std::max<std::ptrdiff_t>(offset, 0)), text.size());
  return 1 + static_cast<std::size_t>(
                 std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(end), '\n'));
}

std::string Trimmed(std::string_view text) {
  const auto begin = text.find_first_not_of(" \t\r\n");
  if (begin == std::string_view::npos) return {};
  const auto end = text.find_last_not_of(" \t\r\n");
  return std::string(text.substr(begin, end - begin + 1));
}

}  // namespace

void Parse(pugi::xml_document& document, const std::string& text, const std::string& file) {
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

std::string Text(const pugi::xml_node& node) {
  if (const pugi::xml_node text = Child(node, "text")) return Trimmed(text.child_value());
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
