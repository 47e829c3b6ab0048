// Carrying out a parsed MRFREQ command: one pass over the cases, then the
// tables.
#pragma once

#include "backend/mrfreq/mrfreq.h"

class BpProcedure;
class VORN_DataSource;

void RunMrfreq(const MrfreqRequest& request, const VORN_DataSource& dataSource,
               BpProcedure& procedure);
