// Writes the set list into a codebook file's own text: only the value of
// "multipleResponseSets" is replaced (or the key added after the top level's
// last member), so every other byte stays as it was.
//
// The list's layout is stable, so that a diff shows only the sets that
// changed: one set per entry, its scalar keys on the first line, its members
// on the second, each of its unknown keys (the bytes it was read with) on a
// line of its own.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "hostlib/data/codebook/fast_reader.h"

namespace hostlib::data {

using SetListSink = std::function<void(std::string_view)>;

// The list as it is written under a key indented by `indent`, handed to
// `write` in pieces of about a megabyte: a long list never sits whole in
// memory. Throws DatasetError ("`path`: not saved: ...") for text that
// cannot be JSON.
void WriteSetList(const std::vector<VariableSet>& sets, std::string_view indent,
                  const std::filesystem::path& path, const SetListSink& write);
// The same, whole.
std::string RenderSetList(const std::vector<VariableSet>& sets, std::string_view indent,
                          const std::filesystem::path& path);

// Puts the list into `text` at `place`, which then spans the new list. A
// file without the key gains it only when there are sets to put in it.
void SpliceSets(std::string& text, SetsPlace& place, const std::vector<VariableSet>& sets,
                const std::filesystem::path& path);

}  // namespace hostlib::data
