// Platform string library: multibyte (UTF-8) text.
//
// Guarantees:
// - Upper-casing maps each character to its simple Unicode upper case; it
//   may change the text's length in bytes.
// - Comparisons without regard to case compare by simple Unicode case
//   folding, character by character; bytes that are not UTF-8 compare as
//   themselves.
// - VORNMBzstncpy_A never cuts a character in two.
#pragma once

#include <cstddef>
#include <string>

// 0 when a and b are equal without regard to case; below 0 when a sorts first.
int VORNMBstricmp_A(const char* a, const char* b);

// Non-zero when the first lengthA bytes of a equal the first lengthB bytes of
// b without regard to case. `flag` is reserved and must be 0.
int VORNMBqstricmp_A(const char* a, std::size_t lengthA, const char* b, std::size_t lengthB,
                     int flag);

// Upper-cases text in place.
void VORNMBstrupr_A(std::string& text);

// Copies at most size - 1 bytes of source into destination, never cutting a
// character, and zero-terminates. Returns destination. size 0 copies nothing.
char* VORNMBzstncpy_A(char* destination, const char* source, std::size_t size);
