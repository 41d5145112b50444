// The lock that keeps a second user off a grid.
#pragma once

#include <filesystem>
#include <string>

namespace quarro::store {

// Held from construction to destruction. The system gives the lock up when the process dies, so
// that a file left behind blocks nobody. A second lock is refused within one process too.
class LockFile {
 public:
  // Locks `lock` in the grid's folder. Throws GridInUse, or StoreError telling why not.
  LockFile(const std::filesystem::path& folder, const std::string& grid_name);
  LockFile(LockFile&& other) noexcept;
  LockFile(const LockFile&) = delete;
  LockFile& operator=(const LockFile&) = delete;
  LockFile& operator=(LockFile&&) = delete;
  ~LockFile();

  // False when the folder at `folder` now has another lock file or none: the grid was moved or
  // removed meanwhile. Any thread.
  bool Guards(const std::filesystem::path& folder) const;

 private:
  void Lock(const std::filesystem::path& path, const std::string& grid_name) const;
  void WriteHolder() const;

  int descriptor_ = -1;
};

}  // namespace quarro::store
