#include "hostlib/output/render.h"

#include <sstream>

namespace hostlib::output {

std::optional<Format> ParseFormat(std::string_view name) {
  if (name == "text") return Format::kText;
  if (name == "json") return Format::kJson;
  if (name == "html") return Format::kHtml;
  return std::nullopt;
}

std::unique_ptr<Renderer> MakeRenderer(Format format, std::string_view title, int width) {
  switch (format) {
    case Format::kJson:
      return MakeJsonRenderer();
    case Format::kHtml:
      return MakeHtmlRenderer(title);
    case Format::kText:
      break;
  }
  return MakeTextRenderer(width);
}

std::string Render(Format format, const Document& document) {
  std::ostringstream out;
  const std::unique_ptr<Renderer> renderer = MakeRenderer(format);
  renderer->Begin(out);
  renderer->Write(document, 0, out);
  renderer->End(out);
  return out.str();
}

}  // namespace hostlib::output
