// The parse of an MRFREQ command into an MrfreqRequest; every fault is
// reported through the output.
#pragma once

#include "backend/mrfreq/mrfreq.h"

class TokenSequenceBase;
class VORN_DataSource;

// Reports one of the command's messages: ^1 and ^2 are filled by the items.
void ReportMrfreqError(const char* text, const std::string& first = {},
                       const std::string& second = {});

bool ParseMrfreq(TokenSequenceBase& tokens, const VORN_DataSource& dataSource,
                 MrfreqRequest& request);
