// Runtime library: the assertion handler.
//
// Guarantees: a failed assertion is recorded in the output of the running
// command (its condition text, the file and the line) and control returns to
// the caller; the handler never ends the program.
#pragma once

void VORN_AssertionFailed(const char* condition, const char* file, int line);
