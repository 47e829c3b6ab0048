// What the fuzz targets share: a scratch folder of their own (in memory when
// the machine has one), removed when the process ends.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string_view>

namespace fuzzing {

// The folder, made on first use under /dev/shm or else the temporary folder.
const std::filesystem::path& ScratchFolder();

// Replaces the file's contents with the bytes; removes what a previous input
// left beside it (locks, journals, temporary files).
std::filesystem::path WriteInput(std::string_view name, const std::uint8_t* data, std::size_t size);

}  // namespace fuzzing
