#include "hostlib/output/diagnostic.h"

#include <algorithm>
#include <ostream>
#include <variant>

#include "hostlib/strings/unicode.h"

namespace hostlib::output {
namespace {

const char* KindColour(const Message& message) {
  if (message.IsError()) return "\x1b[1;31m";
  if (message.IsNote()) return "\x1b[1;36m";
  return "\x1b[1;35m";
}

constexpr const char* kBold = "\x1b[1m";
constexpr const char* kPlain = "\x1b[0m";

// Control characters would move the caret off its token: they show as blanks.
std::string Printable(std::string_view line) {
  std::string shown;
  shown.reserve(line.size());
  for (char c : line) {
    const auto byte = static_cast<unsigned char>(c);
    shown += (byte < 0x20 && c != '\t') || byte == 0x7f ? ' ' : c;
  }
  return shown;
}

// Blanks as wide as the characters before `column` (tabs kept as tabs, so
// that the caret lines up whatever the tab stops), then the caret.
std::string Caret(std::string_view line, int column) {
  std::string caret;
  std::size_t offset = 0;
  for (int character = 1; character < column && offset < line.size(); ++character) {
    const strings::Decoded decoded = strings::DecodeAt(line, offset);
    const std::string_view text = line.substr(offset, decoded.length);
    if (text == "\t") {
      caret += '\t';
    } else {
      caret.append(static_cast<std::size_t>(decoded.valid ? strings::DisplayWidth(text) : 1), ' ');
    }
    offset += decoded.length;
  }
  return caret + '^';
}

}  // namespace

std::string DiagnosticLine(const Message& message, bool colour) {
  // One line per message, whatever line breaks its text holds.
  std::string text = ComposeText(message.text);
  std::replace(text.begin(), text.end(), '\n', ' ');
  const MessagePlace& place = message.place;
  std::string line;
  if (place.Known()) {
    const std::string where =
        place.file + ':' + std::to_string(*place.line) + ':' + std::to_string(*place.column) + ':';
    line = colour ? kBold + where + kPlain : where;
    line += ' ';
    line += colour ? std::string(KindColour(message)) + message.Kind() + ':' + kPlain
                   : std::string(message.Kind()) + ':';
  } else {
    const std::string kind =
        std::string(message.Kind()) + " (command " + std::to_string(message.command) + "):";
    line = colour ? KindColour(message) + kind + kPlain : kind;
  }
  return line + ' ' + text;
}

std::string CaretLines(const MessagePlace& place) {
  if (!place.Known() || place.sourceLine.empty()) return {};
  return Printable(place.sourceLine) + '\n' + Caret(place.sourceLine, *place.column) + '\n';
}

void WriteDiagnostics(const Document& document, std::size_t first, std::ostream& out, bool colour) {
  const auto& items = document.Items();
  for (std::size_t i = first; i < items.size(); ++i) {
    if (const auto* message = std::get_if<Message>(&items[i])) {
      out << DiagnosticLine(*message, colour) << '\n';
    }
  }
}

}  // namespace hostlib::output
