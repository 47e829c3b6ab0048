// Renderers of the output document. All three walk the same items; each can
// write a run's output in steps (items from index k on), so that a program
// can show every command's output as soon as the command ends.
//
// Use: Begin once, Write after each command with the index of the first item
// not yet written, End once. Render does all three for a whole document.
#pragma once

#include <cstddef>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "hostlib/output/document.h"

namespace hostlib::output {

enum class Format { kText, kJson, kHtml };

// "text", "json" or "html"; nothing for any other name.
std::optional<Format> ParseFormat(std::string_view name);

class Renderer {
 public:
  virtual ~Renderer() = default;
  // What comes before the first item (the JSON and HTML document heads).
  virtual void Begin(std::ostream& out) = 0;
  // Items [first, Items().size()) of the document.
  virtual void Write(const Document& document, std::size_t first, std::ostream& out) = 0;
  // What comes after the last item.
  virtual void End(std::ostream& out) = 0;
};

// `width`: the terminal columns tables should fit in, their cells wrapped
// (at blanks, else between characters); 0: cells are never wrapped.
std::unique_ptr<Renderer> MakeTextRenderer(int width = 0);
std::unique_ptr<Renderer> MakeJsonRenderer();
// `title` names what the output is about (the dataset); the HTML page shows
// it, the other formats have no place for it.
std::unique_ptr<Renderer> MakeHtmlRenderer(std::string_view title = {});
// `width` is for the text format; the others ignore it.
std::unique_ptr<Renderer> MakeRenderer(Format format, std::string_view title = {}, int width = 0);

// The whole document in one format.
std::string Render(Format format, const Document& document);

}  // namespace hostlib::output
