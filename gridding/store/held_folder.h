// The folder of a grid that is open.
#pragma once

#include <filesystem>
#include <string>

#include "gridding/store/lock_file.h"

namespace quarro::store {

// A grid's folder with its lock. Files are opened by their paths, so whoever moves or removes the
// folder of an open grid would have readers meet another grid, and lines told as done vanish.
// Constant; any thread.
class HeldFolder {
 public:
  // `path` is the folder that `lock` guards, or will have when it has been put in place.
  HeldFolder(std::filesystem::path path, const std::string& grid_name, LockFile lock);

  const std::filesystem::path& Path() const { return path_; }
  // `grid "g" (/dir/g)`
  const std::string& Grid() const { return grid_; }
  bool IsInPlace() const { return lock_.Guards(path_); }
  // Throws StoreError when it was moved or removed.
  void Check() const;

 private:
  const std::filesystem::path path_;
  const std::string grid_;
  const LockFile lock_;
};

}  // namespace quarro::store
