// The module's entry: MRFREQ, run once per command.
#include <cstdint>

#include "backend/mrfreq/mrfreq_run.h"
#include "backend/mrfreq/mrfreq_syntax.h"
#include "host/common_areas.h"
#include "host/data_source.h"
#include "host/output.h"
#include "host/syntax.h"

namespace {

bool IsDatasetActive() {
  const auto* words = static_cast<const std::intptr_t*>(pvGetCmnDic());
  return words[kActiveDatasetWord] != 0;
}

}  // namespace

// Parses the whole command, then reads the cases once and shows the tables.
// Nothing of the dataset changes.
extern "C" __attribute__((visibility("default"))) void MRFREQ() {
  BpProcedure procedure("Multiple Response Frequencies", 2);
  VORN_TokenSequence tokens(true);
  if (!IsDatasetActive()) {
    ReportMrfreqError("MRFREQ needs an open dataset (mrset -d FILE).");
    return;
  }
  ProcedureDataSource dataSource;
  MrfreqRequest request;
  if (ParseMrfreq(tokens, dataSource, request)) RunMrfreq(request, dataSource, procedure);
}
