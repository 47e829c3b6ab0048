// Messages as compilers show them:
//
//   survey.mrs:12:20: error: Variable drink2. does not exist in the dataset.
//   MRSET /MCGROUP NAME=$drinks VARIABLES=drink1 drink2.
//                                                ^
//
// The first line alone is the diagnostic that goes to standard error while
// the document goes elsewhere; the text document adds the source line and
// the caret under the token.
#pragma once

#include <cstddef>
#include <iosfwd>
#include <string>

#include "hostlib/output/document.h"

namespace hostlib::output {

// "FILE:LINE:COLUMN: error: TEXT"; a message that stands nowhere reads
// "error (command N): TEXT". With `colour`, the kind is coloured for a
// terminal.
std::string DiagnosticLine(const Message& message, bool colour = false);

// The message's source line and a caret under its column, each ending in a
// line end; nothing when the place or its line is unknown.
std::string CaretLines(const MessagePlace& place);

// One diagnostic line per message of items [first, end) (tables and
// assertions are the document's alone).
void WriteDiagnostics(const Document& document, std::size_t first, std::ostream& out, bool colour);

}  // namespace hostlib::output
