// Common-area library: the host's state blocks, one accessor each.
//
// Guarantees:
// - Every accessor returns the same non-null pointer for the life of the process.
// - Each block is an array of at least 32 pointer-sized words, zero unless the
//   host says otherwise below.
// - Dictionary area (pvGetCmnDic), word 11: non-zero while a dataset is open,
//   zero while none is.
#pragma once

#include <cstddef>

inline constexpr std::size_t kCommonAreaWords = 32;
inline constexpr std::size_t kActiveDatasetWord = 11;

void* pvGetCmnBpr();
void* pvGetCmaDic();
void* pvGetCmaGlb();
void* pvGetCmaMch();
void* pvGetCmaObv();
void* pvGetCmaSym();
void* pvGetCmaSys();
void* pvGetCmnDic();
void* pvGetCmnDmo();
void* pvGetCmnGlb();
void* pvGetCmnInc();
void* pvGetCmnIo();
void* pvGetCmnLoc();
void* pvGetCmnMch();
void* pvGetCmnMcs();
void* pvGetCmnObv();
void* pvGetCmnStk();
void* pvGetCmnSym();
void* pvGetCmnSys();
void* pvGetCmnWrk();
void* pvGetCmnDtm();
void* pvGetCmnBox();
