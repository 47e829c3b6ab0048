// What the XML formats share: parsing untrusted text (pugixml: no document
// type processing, so no entities beyond the predefined ones and nothing
// fetched; its parser does not recurse), places for messages, and element
// look-ups that ignore namespace prefixes.
#pragma once

#include <pugixml.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace hostlib::formats::xml {

// Converts `text` to UTF-8 in place (from the encoding it declares) and
// parses it. Throws DatasetError "FILE: line N: not well-formed XML: WHY", or
// names the bytes that are not in the declared encoding.
void Parse(pugi::xml_document& document, std::string& text, const std::string& file);

// The single-byte encoding an XML text declares, which the files that go
// with it (data) are taken to share.
enum class SingleByte { kNone, kLatin1, kWindows1252 };
SingleByte DeclaredSingleByte(std::string_view text);
// `text` in that encoding as UTF-8 (unchanged for kNone).
std::string SingleByteToUtf8(std::string_view text, SingleByte encoding);

// The name without its namespace prefix.
std::string_view LocalName(const pugi::xml_node& node);
// The first child element of that local name; empty when none.
pugi::xml_node Child(const pugi::xml_node& node, std::string_view name);
std::vector<pugi::xml_node> Children(const pugi::xml_node& node, std::string_view name);
// The element's own text; for an element that holds <text> children (one per
// language) the one in `language` (its xml:lang), else the first of them.
std::string Text(const pugi::xml_node& node, std::string_view language = {});

// "line N" of the element within the text it was parsed from.
std::string Place(const pugi::xml_node& node, std::string_view text);

// Escapes text for an element or an attribute in double quotes.
std::string Escape(std::string_view text);

}  // namespace hostlib::formats::xml
