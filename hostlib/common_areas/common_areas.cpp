#include "host/common_areas.h"

#include <array>
#include <cstdint>

namespace {

enum class Area {
  kCmnBpr,
  kCmaDic,
  kCmaGlb,
  kCmaMch,
  kCmaObv,
  kCmaSym,
  kCmaSys,
  kCmnDic,
  kCmnDmo,
  kCmnGlb,
  kCmnInc,
  kCmnIo,
  kCmnLoc,
  kCmnMch,
  kCmnMcs,
  kCmnObv,
  kCmnStk,
  kCmnSym,
  kCmnSys,
  kCmnWrk,
  kCmnDtm,
  kCmnBox,
};

// One zeroed block per area, constant-initialised, so it is there before any
// other static object asks for it.
template <Area area>
void* Block() {
  static std::array<std::intptr_t, kCommonAreaWords> words{};
  return words.data();
}

}  // namespace

void* pvGetCmnBpr() { return Block<Area::kCmnBpr>(); }
void* pvGetCmaDic() { return Block<Area::kCmaDic>(); }
void* pvGetCmaGlb() { return Block<Area::kCmaGlb>(); }
void* pvGetCmaMch() { return Block<Area::kCmaMch>(); }
void* pvGetCmaObv() { return Block<Area::kCmaObv>(); }
void* pvGetCmaSym() { return Block<Area::kCmaSym>(); }
void* pvGetCmaSys() { return Block<Area::kCmaSys>(); }
void* pvGetCmnDic() { return Block<Area::kCmnDic>(); }
void* pvGetCmnDmo() { return Block<Area::kCmnDmo>(); }
void* pvGetCmnGlb() { return Block<Area::kCmnGlb>(); }
void* pvGetCmnInc() { return Block<Area::kCmnInc>(); }
void* pvGetCmnIo() { return Block<Area::kCmnIo>(); }
void* pvGetCmnLoc() { return Block<Area::kCmnLoc>(); }
void* pvGetCmnMch() { return Block<Area::kCmnMch>(); }
void* pvGetCmnMcs() { return Block<Area::kCmnMcs>(); }
void* pvGetCmnObv() { return Block<Area::kCmnObv>(); }
void* pvGetCmnStk() { return Block<Area::kCmnStk>(); }
void* pvGetCmnSym() { return Block<Area::kCmnSym>(); }
void* pvGetCmnSys() { return Block<Area::kCmnSys>(); }
void* pvGetCmnWrk() { return Block<Area::kCmnWrk>(); }
void* pvGetCmnDtm() { return Block<Area::kCmnDtm>(); }
void* pvGetCmnBox() { return Block<Area::kCmnBox>(); }
