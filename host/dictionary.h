// Dictionary library: the host's rule for names of variables and sets.
//
// Guarantees: ValidateVORNName returns kValidName (2) exactly for a name of 1
// to 64 bytes of UTF-8 that begins with a letter (any script), '@', '#' or
// '$', goes on with letters, digits, '.', '_', '$', '#', '@', does not end
// with '.', and is none of the reserved words ALL AND BY EQ GE GT LE LT NE NOT
// OR TO WITH (any letter case). Any other result names the first fault found.
#pragma once

#include <string>

enum VORNNameCheck : int {
  kNameEmpty = 0,
  kNameTooLong = 1,
  kValidName = 2,
  kNameBadFirstCharacter = 3,
  kNameBadCharacter = 4,
  kNameEndsWithPeriod = 5,
  kNameReserved = 6,
  kNameNotUtf8 = 7,
};

int ValidateVORNName(const std::string& name);
