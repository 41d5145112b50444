#include "gridding/store/page_checks.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <utility>

#include <sqlite3.h>
#include <xxhash.h>

namespace quarro::store {

namespace {

constexpr int kCheckedBytes = kPageBytes - kPageChecksumBytes;
using Page = std::array<unsigned char, kPageBytes>;

// What SQLite allocates for an open database file: this, and behind it the file of the system's
// own.
struct CheckedFile {
  sqlite3_file base;  // first: SQLite sees the structure as this
  Page* outgoing;     // a page with its checksum on its way to the disc; owned; null for a log
  sqlite3_file* Inner() { return reinterpret_cast<sqlite3_file*>(this + 1); }
};
static_assert(sizeof(CheckedFile) % alignof(sqlite3_int64) == 0);

CheckedFile* Checked(sqlite3_file* file) { return reinterpret_cast<CheckedFile*>(file); }
sqlite3_file* Inner(sqlite3_file* file) { return Checked(file)->Inner(); }

bool IsPage(sqlite3_file* file, int bytes, sqlite3_int64 offset) {
  return Checked(file)->outgoing != nullptr && bytes == kPageBytes && offset % kPageBytes == 0;
}

thread_local int last_disc_error = 0;

// Remembers why the system refused: SQLite does not tell for a commit.
int Remembered(int code) {
  if ((code & 0xff) == SQLITE_IOERR && code != SQLITE_IOERR_SHORT_READ) last_disc_error = errno;
  return code;
}

std::uint64_t ChecksumOf(const unsigned char* page, sqlite3_int64 offset) {
  return XXH3_64bits_withSeed(page, kCheckedBytes, static_cast<XXH64_hash_t>(offset / kPageBytes));
}

// Big-endian whatever the machine.
void PutChecksum(std::uint64_t checksum, unsigned char* at) {
  for (int i = 0; i < kPageChecksumBytes; ++i) {
    at[i] = static_cast<unsigned char>(checksum >> (56 - 8 * i));
  }
}

bool PageIsSound(const unsigned char* page, sqlite3_int64 offset) {
  std::array<unsigned char, kPageChecksumBytes> expected{};
  PutChecksum(ChecksumOf(page, offset), expected.data());
  if (std::memcmp(expected.data(), page + kCheckedBytes, kPageChecksumBytes) == 0) return true;
  // A page that the file grew over and nobody wrote. Where a page in use was blanked, SQLite or the
  // checksum of the block in it finds out.
  return std::all_of(page, page + kPageBytes, [](unsigned char byte) { return byte == 0; });
}

int Close(sqlite3_file* file) {
  const int code = Inner(file)->pMethods->xClose(Inner(file));
  delete Checked(file)->outgoing;
  return code;
}

int Read(sqlite3_file* file, void* to, int bytes, sqlite3_int64 offset) {
  const int code = Inner(file)->pMethods->xRead(Inner(file), to, bytes, offset);
  if (code != SQLITE_OK || !IsPage(file, bytes, offset)) return Remembered(code);
  return PageIsSound(static_cast<const unsigned char*>(to), offset) ? SQLITE_OK : SQLITE_IOERR_DATA;
}

int Write(sqlite3_file* file, const void* from, int bytes, sqlite3_int64 offset) {
  if (!IsPage(file, bytes, offset)) {
    return Remembered(Inner(file)->pMethods->xWrite(Inner(file), from, bytes, offset));
  }
  Page& page = *Checked(file)->outgoing;
  std::memcpy(page.data(), from, kCheckedBytes);
  PutChecksum(ChecksumOf(page.data(), offset), page.data() + kCheckedBytes);
  return Remembered(Inner(file)->pMethods->xWrite(Inner(file), page.data(), bytes, offset));
}

int Truncate(sqlite3_file* file, sqlite3_int64 size) {
  return Remembered(Inner(file)->pMethods->xTruncate(Inner(file), size));
}
int Sync(sqlite3_file* file, int flags) {
  return Remembered(Inner(file)->pMethods->xSync(Inner(file), flags));
}
int FileSize(sqlite3_file* file, sqlite3_int64* size) {
  return Inner(file)->pMethods->xFileSize(Inner(file), size);
}
int Lock(sqlite3_file* file, int level) { return Inner(file)->pMethods->xLock(Inner(file), level); }
int Unlock(sqlite3_file* file, int level) {
  return Inner(file)->pMethods->xUnlock(Inner(file), level);
}
int CheckReservedLock(sqlite3_file* file, int* reserved) {
  return Inner(file)->pMethods->xCheckReservedLock(Inner(file), reserved);
}
int FileControl(sqlite3_file* file, int operation, void* argument) {
  return Inner(file)->pMethods->xFileControl(Inner(file), operation, argument);
}
int SectorSize(sqlite3_file* file) { return Inner(file)->pMethods->xSectorSize(Inner(file)); }
int DeviceCharacteristics(sqlite3_file* file) {
  return Inner(file)->pMethods->xDeviceCharacteristics(Inner(file));
}
int ShmMap(sqlite3_file* file, int region, int bytes, int extend, void volatile** memory) {
  return Inner(file)->pMethods->xShmMap(Inner(file), region, bytes, extend, memory);
}
int ShmLock(sqlite3_file* file, int offset, int count, int flags) {
  return Inner(file)->pMethods->xShmLock(Inner(file), offset, count, flags);
}
void ShmBarrier(sqlite3_file* file) { Inner(file)->pMethods->xShmBarrier(Inner(file)); }
int ShmUnmap(sqlite3_file* file, int remove) {
  return Inner(file)->pMethods->xShmUnmap(Inner(file), remove);
}

// Version 2 of the methods has no mapping of files: SQLite reads and writes.
const sqlite3_io_methods kMethods = {.iVersion = 2,
                                     .xClose = Close,
                                     .xRead = Read,
                                     .xWrite = Write,
                                     .xTruncate = Truncate,
                                     .xSync = Sync,
                                     .xFileSize = FileSize,
                                     .xLock = Lock,
                                     .xUnlock = Unlock,
                                     .xCheckReservedLock = CheckReservedLock,
                                     .xFileControl = FileControl,
                                     .xSectorSize = SectorSize,
                                     .xDeviceCharacteristics = DeviceCharacteristics,
                                     .xShmMap = ShmMap,
                                     .xShmLock = ShmLock,
                                     .xShmBarrier = ShmBarrier,
                                     .xShmUnmap = ShmUnmap,
                                     .xFetch = nullptr,
                                     .xUnfetch = nullptr};

sqlite3_vfs* SystemFileSystem() { return sqlite3_vfs_find("unix"); }

int Open(sqlite3_vfs* /*self*/, sqlite3_filename path, sqlite3_file* file, int flags,
         int* flags_out) {
  sqlite3_vfs* const system = SystemFileSystem();
  const bool is_database = (flags & SQLITE_OPEN_MAIN_DB) != 0;
  // The log has checksums of SQLite's own.
  if (!is_database && (flags & SQLITE_OPEN_WAL) == 0) {
    return system->xOpen(system, path, file, flags, flags_out);
  }
  auto* const checked = new (file) CheckedFile{};
  const int code = system->xOpen(system, path, checked->Inner(), flags, flags_out);
  if (code != SQLITE_OK) return code;
  if (is_database) checked->outgoing = new (std::nothrow) Page;
  if (is_database && checked->outgoing == nullptr) {
    checked->Inner()->pMethods->xClose(checked->Inner());
    return SQLITE_NOMEM;
  }
  checked->base.pMethods = &kMethods;
  return SQLITE_OK;
}

const char* Register() {
  static sqlite3_vfs file_system = [] {
    sqlite3_vfs copy = *SystemFileSystem();
    copy.szOsFile += static_cast<int>(sizeof(CheckedFile));
    copy.pNext = nullptr;
    copy.zName = "quarro-checked-pages";
    copy.xOpen = Open;
    return copy;
  }();
  sqlite3_vfs_register(&file_system, 0);
  return file_system.zName;
}

}  // namespace

int TakeLastDiscError() { return std::exchange(last_disc_error, 0); }

const char* CheckedFileSystem() {
  static const char* const name = Register();
  return name;
}

}  // namespace quarro::store
