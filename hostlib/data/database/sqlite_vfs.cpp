#include "hostlib/data/database/sqlite_vfs.h"

#include <sqlite3.h>

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

namespace hostlib::data {
namespace {

using files::Env;
using files::FileOperation;

struct EnvVfs {
  sqlite3_vfs vfs{};
  std::string name;
  sqlite3_vfs* real = nullptr;
  Env* env = nullptr;
  int refused = 0;  // the errno of the last call the Env refused
};

// A file of the wrapping VFS: the default VFS's file follows it in memory.
struct EnvFile {
  sqlite3_file base;
  EnvVfs* vfs;
  const char* name;  // SQLite keeps it valid until xClose
  sqlite3_file* Real() { return reinterpret_cast<sqlite3_file*>(this + 1); }
};

EnvFile& Of(sqlite3_file* file) { return *reinterpret_cast<EnvFile*>(file); }

// Asks the Env; a refusal becomes `code`, and its errno what GetLastError
// tells SQLite.
int Refused(EnvVfs& vfs, FileOperation operation, const char* name, int code) {
  const int error = vfs.env->Intercept(operation, name != nullptr ? name : "");
  if (error == 0) return SQLITE_OK;
  vfs.refused = error;
  return code;
}

int Close(sqlite3_file* file) { return Of(file).Real()->pMethods->xClose(Of(file).Real()); }
int Read(sqlite3_file* file, void* buffer, int amount, sqlite3_int64 offset) {
  return Of(file).Real()->pMethods->xRead(Of(file).Real(), buffer, amount, offset);
}
int Write(sqlite3_file* file, const void* data, int amount, sqlite3_int64 offset) {
  EnvFile& f = Of(file);
  if (const int code = Refused(*f.vfs, FileOperation::kWrite, f.name, SQLITE_IOERR_WRITE)) {
    return code;
  }
  return f.Real()->pMethods->xWrite(f.Real(), data, amount, offset);
}
int Truncate(sqlite3_file* file, sqlite3_int64 size) {
  EnvFile& f = Of(file);
  if (const int code = Refused(*f.vfs, FileOperation::kTruncate, f.name, SQLITE_IOERR_TRUNCATE)) {
    return code;
  }
  return f.Real()->pMethods->xTruncate(f.Real(), size);
}
int Sync(sqlite3_file* file, int flags) {
  EnvFile& f = Of(file);
  if (const int code = Refused(*f.vfs, FileOperation::kSync, f.name, SQLITE_IOERR_FSYNC)) {
    return code;
  }
  return f.Real()->pMethods->xSync(f.Real(), flags);
}
int FileSize(sqlite3_file* file, sqlite3_int64* size) {
  return Of(file).Real()->pMethods->xFileSize(Of(file).Real(), size);
}
int Lock(sqlite3_file* file, int level) {
  return Of(file).Real()->pMethods->xLock(Of(file).Real(), level);
}
int Unlock(sqlite3_file* file, int level) {
  return Of(file).Real()->pMethods->xUnlock(Of(file).Real(), level);
}
int CheckReservedLock(sqlite3_file* file, int* out) {
  return Of(file).Real()->pMethods->xCheckReservedLock(Of(file).Real(), out);
}
int FileControl(sqlite3_file* file, int op, void* arg) {
  return Of(file).Real()->pMethods->xFileControl(Of(file).Real(), op, arg);
}
int SectorSize(sqlite3_file* file) {
  return Of(file).Real()->pMethods->xSectorSize(Of(file).Real());
}
int DeviceCharacteristics(sqlite3_file* file) {
  return Of(file).Real()->pMethods->xDeviceCharacteristics(Of(file).Real());
}
int ShmMap(sqlite3_file* file, int region, int size, int extend, void volatile** out) {
  return Of(file).Real()->pMethods->xShmMap(Of(file).Real(), region, size, extend, out);
}
int ShmLock(sqlite3_file* file, int offset, int n, int flags) {
  return Of(file).Real()->pMethods->xShmLock(Of(file).Real(), offset, n, flags);
}
void ShmBarrier(sqlite3_file* file) { Of(file).Real()->pMethods->xShmBarrier(Of(file).Real()); }
int ShmUnmap(sqlite3_file* file, int deleteFlag) {
  return Of(file).Real()->pMethods->xShmUnmap(Of(file).Real(), deleteFlag);
}
int Fetch(sqlite3_file* file, sqlite3_int64 offset, int amount, void** out) {
  return Of(file).Real()->pMethods->xFetch(Of(file).Real(), offset, amount, out);
}
int Unfetch(sqlite3_file* file, sqlite3_int64 offset, void* page) {
  return Of(file).Real()->pMethods->xUnfetch(Of(file).Real(), offset, page);
}

// Version 3, as the default VFS's files; its methods are all forwarded.
constexpr sqlite3_io_methods kMethods = {3,
                                         Close,
                                         Read,
                                         Write,
                                         Truncate,
                                         Sync,
                                         FileSize,
                                         Lock,
                                         Unlock,
                                         CheckReservedLock,
                                         FileControl,
                                         SectorSize,
                                         DeviceCharacteristics,
                                         ShmMap,
                                         ShmLock,
                                         ShmBarrier,
                                         ShmUnmap,
                                         Fetch,
                                         Unfetch};

EnvVfs& VfsOf(sqlite3_vfs* vfs) { return *static_cast<EnvVfs*>(vfs->pAppData); }

int Open(sqlite3_vfs* vfs, const char* name, sqlite3_file* file, int flags, int* outFlags) {
  EnvVfs& self = VfsOf(vfs);
  EnvFile& f = Of(file);
  f.base.pMethods = nullptr;
  f.vfs = &self;
  f.name = name;
  const int status = self.real->xOpen(self.real, name, f.Real(), flags, outFlags);
  // A file the default VFS did not open has no methods, so SQLite never
  // closes it.
  if (f.Real()->pMethods != nullptr) f.base.pMethods = &kMethods;
  return status;
}

int Delete(sqlite3_vfs* vfs, const char* name, int syncDir) {
  EnvVfs& self = VfsOf(vfs);
  if (const int code = Refused(self, FileOperation::kUnlink, name, SQLITE_IOERR_DELETE)) {
    return code;
  }
  return self.real->xDelete(self.real, name, syncDir);
}
int Access(sqlite3_vfs* vfs, const char* name, int flags, int* out) {
  return VfsOf(vfs).real->xAccess(VfsOf(vfs).real, name, flags, out);
}
int FullPathname(sqlite3_vfs* vfs, const char* name, int size, char* out) {
  return VfsOf(vfs).real->xFullPathname(VfsOf(vfs).real, name, size, out);
}
void* DlOpen(sqlite3_vfs* vfs, const char* name) {
  return VfsOf(vfs).real->xDlOpen(VfsOf(vfs).real, name);
}
void DlError(sqlite3_vfs* vfs, int size, char* out) {
  VfsOf(vfs).real->xDlError(VfsOf(vfs).real, size, out);
}
void (*DlSym(sqlite3_vfs* vfs, void* handle, const char* symbol))(void) {
  return VfsOf(vfs).real->xDlSym(VfsOf(vfs).real, handle, symbol);
}
void DlClose(sqlite3_vfs* vfs, void* handle) { VfsOf(vfs).real->xDlClose(VfsOf(vfs).real, handle); }
int Randomness(sqlite3_vfs* vfs, int size, char* out) {
  return VfsOf(vfs).real->xRandomness(VfsOf(vfs).real, size, out);
}
int Sleep(sqlite3_vfs* vfs, int microseconds) {
  return VfsOf(vfs).real->xSleep(VfsOf(vfs).real, microseconds);
}
int CurrentTime(sqlite3_vfs* vfs, double* out) {
  return VfsOf(vfs).real->xCurrentTime(VfsOf(vfs).real, out);
}
// The errno of the last refusal (SQLite asks again while it rolls back);
// else the default VFS's answer.
int GetLastError(sqlite3_vfs* vfs, int size, char* out) {
  EnvVfs& self = VfsOf(vfs);
  if (self.refused != 0) return self.refused;
  return self.real->xGetLastError(self.real, size, out);
}
int CurrentTimeInt64(sqlite3_vfs* vfs, sqlite3_int64* out) {
  return VfsOf(vfs).real->xCurrentTimeInt64(VfsOf(vfs).real, out);
}

std::unique_ptr<EnvVfs> MakeVfs(Env& env) {
  auto made = std::make_unique<EnvVfs>();
  made->real = sqlite3_vfs_find(nullptr);
  made->env = &env;
  made->name = "mrset-env-" + std::to_string(reinterpret_cast<std::uintptr_t>(&env));
  sqlite3_vfs& vfs = made->vfs;
  vfs.iVersion = 2;
  vfs.szOsFile = static_cast<int>(sizeof(EnvFile)) + made->real->szOsFile;
  vfs.mxPathname = made->real->mxPathname;
  vfs.zName = made->name.c_str();
  vfs.pAppData = made.get();
  vfs.xOpen = Open;
  vfs.xDelete = Delete;
  vfs.xAccess = Access;
  vfs.xFullPathname = FullPathname;
  vfs.xDlOpen = DlOpen;
  vfs.xDlError = DlError;
  vfs.xDlSym = DlSym;
  vfs.xDlClose = DlClose;
  vfs.xRandomness = Randomness;
  vfs.xSleep = Sleep;
  vfs.xCurrentTime = CurrentTime;
  vfs.xGetLastError = GetLastError;
  vfs.xCurrentTimeInt64 = CurrentTimeInt64;
  return made;
}

}  // namespace

int RefusedErrno(sqlite3* db) {
  sqlite3_vfs* vfs = nullptr;
  if (db == nullptr ||
      sqlite3_file_control(db, "main", SQLITE_FCNTL_VFS_POINTER, &vfs) != SQLITE_OK ||
      vfs == nullptr || vfs->xOpen != Open) {
    return 0;
  }
  return VfsOf(vfs).refused;
}

const char* VfsName(Env& env) {
  // One VFS per Env address: an Env made later at the address of one gone
  // reuses its VFS, which then serves the new one.
  static std::mutex guard;
  static std::map<Env*, std::unique_ptr<EnvVfs>> registered;
  const std::lock_guard<std::mutex> hold(guard);
  auto& slot = registered[&env];
  if (!slot) {
    slot = MakeVfs(env);
    sqlite3_vfs_register(&slot->vfs, 0);
  }
  return slot->name.c_str();
}

}  // namespace hostlib::data
