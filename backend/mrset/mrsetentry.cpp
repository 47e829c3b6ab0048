// The module's entry: MRSET, run once per command, and the start-up code that
// runs when the host loads the module.
#include <dlfcn.h>

#include <array>
#include <cstdint>

#include "backend/mrset/mrset.h"
#include "backend/mrset/mrsetapply.h"
#include "backend/mrset/mrsetparse.h"
#include "host/common_areas.h"
#include "host/data_source.h"
#include "host/output.h"
#include "host/syntax.h"

namespace {

constexpr unsigned long kProcessAttach = 1;

using CommonAreaAccessor = void* (*)();

// In the order the host expects them to be fetched.
constexpr std::array<CommonAreaAccessor, 22> kCommonAreaAccessors = {
    pvGetCmnBpr, pvGetCmaDic, pvGetCmaGlb, pvGetCmaMch, pvGetCmaObv, pvGetCmaSym,
    pvGetCmaSys, pvGetCmnDic, pvGetCmnDmo, pvGetCmnGlb, pvGetCmnInc, pvGetCmnIo,
    pvGetCmnLoc, pvGetCmnMch, pvGetCmnMcs, pvGetCmnObv, pvGetCmnStk, pvGetCmnSym,
    pvGetCmnSys, pvGetCmnWrk, pvGetCmnDtm, pvGetCmnBox,
};
constexpr std::size_t kDictionaryArea = 7;  // pvGetCmnDic

// Written once at load, only read afterwards.
void* gInstance = nullptr;
std::array<void*, kCommonAreaAccessors.size()> gCommonAreas{};

void FetchCommonAreas() {
  for (std::size_t i = 0; i < kCommonAreaAccessors.size(); ++i) {
    gCommonAreas[i] = kCommonAreaAccessors[i]();
  }
}

bool IsDatasetActive() {
  if (gCommonAreas[kDictionaryArea] == nullptr) FetchCommonAreas();
  const auto* words = static_cast<const std::intptr_t*>(gCommonAreas[kDictionaryArea]);
  return words[kActiveDatasetWord] != 0;
}

}  // namespace

// The module's load notification.
int MRSetLoadNotification(void* instance, unsigned long reason, void* /*reserved*/) {
  if (reason == kProcessAttach) {
    gInstance = instance;
    FetchCommonAreas();
  }
  return 1;
}

namespace {

__attribute__((constructor)) void OnModuleLoad() {
  Dl_info info{};
  void* instance = nullptr;
  if (dladdr(reinterpret_cast<void*>(&OnModuleLoad), &info) != 0) instance = info.dli_fbase;
  MRSetLoadNotification(instance, kProcessAttach, nullptr);
}

}  // namespace

// One MRSET command: parse it whole, then apply it only if it parsed. Every
// object is released in the reverse order of making, also when a host call
// throws (the exception goes on to the host; nothing has been saved then).
extern "C" __attribute__((visibility("default"))) void MRSET() {
  BpProcedure procedure("Multiple Response Set", 2);
  VORN_TokenSequence tokens(true);
  if (!IsDatasetActive()) return;

  ProcedureDataSource dataSource;
  MRSetSubcommands subcommands;
  if (ParseSubcommands(tokens, dataSource, subcommands)) {
    // The parent is handed out as constant, yet it is where the sets are saved.
    auto& parent = const_cast<VORN_DataSource&>(*dataSource.GetParentSource());
    ApplySubcommands(subcommands, parent, procedure);
  }
}
