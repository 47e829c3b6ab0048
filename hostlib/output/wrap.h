// Fitting text tables to a width: lines broken to a number of terminal
// columns, and column widths shared out within a table's width.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace hostlib::output {

// `line` (no line feeds) in pieces of at most `width` terminal columns, the
// pieces after the first `indent` columns narrower (they are to be shown
// indented): broken at blanks (which the break swallows), a word wider than
// its line broken between characters. A combining mark stays with the
// character before it. Width 0 or less: the line whole. Always at least one
// piece.
std::vector<std::string> WrapLine(std::string_view line, int width, int indent = 0);

// Column widths that add up to at most `budget` where they can: columns that
// fit keep their `natural` width, the widest ones are cut to one common
// width and share what is left, but none below its `floors` entry (taken as
// at most its natural width). With a budget that cannot be met the columns
// stay at their floors.
std::vector<int> FitColumns(const std::vector<int>& natural, int budget,
                            const std::vector<int>& floors);

}  // namespace hostlib::output
