// A few top-level members of a codebook file, read without building the
// rest: what other areas want of the file besides its dictionary.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace hostlib::data {

// The JSON text of each of `keys` that the file's top level has (the last of
// a repeated key); nothing when the file cannot be read or is no JSON object.
std::optional<std::map<std::string, std::string>> ReadTopLevelMembers(
    const std::filesystem::path& path, const std::vector<std::string>& keys);

}  // namespace hostlib::data
