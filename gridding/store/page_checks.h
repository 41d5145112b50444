// Checksums on the pages of a database file, below SQLite: what the disc gives back changed is an
// error, in whatever part of the database it lies.
#pragma once

namespace quarro::store {

// Page size of every grid's database, and the bytes at the end of each page that hold the checksum
// of the rest (XXH3, seeded with the page's number).
inline constexpr int kPageBytes = 32768;
inline constexpr int kPageChecksumBytes = 8;

// The name of the SQLite file system that writes and verifies these checksums; registers it at the
// first call. A page that fails gives SQLITE_IOERR_DATA. Any thread. It does not map files.
const char* CheckedFileSystem();

// The system's error number of the last read or write that failed on this thread, once; 0 for none.
int TakeLastDiscError();

}  // namespace quarro::store
