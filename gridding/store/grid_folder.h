// The folders of grids under a working directory: names, making one, setting one aside.
#pragma once

#include <filesystem>
#include <functional>
#include <string>

namespace quarro::store {

// Throws StoreError for a name that cannot be a grid's.
void CheckGridName(const std::string& name);
// Throws StoreError when the directory is missing or is none.
void CheckWorkingDirectory(const std::filesystem::path& working_directory);
// Waits until a file's or folder's own bytes (for a folder its entries) are on the disc.
void SyncToDisc(const std::filesystem::path& path);
// Bytes of the database and its log in a grid's folder. Files that vanish meanwhile are not
// counted.
std::uint64_t BytesInFolder(const std::filesystem::path& folder);

// Removes what programs that were killed while they made a grid of that name have left behind.
void RemoveUnfinished(const std::filesystem::path& working_directory, const std::string& grid_name);

// A folder in the making, under a name that no grid can have. What was not put in place is removed.
class NewFolder {
 public:
  NewFolder(const std::filesystem::path& working_directory, const std::string& grid_name);
  NewFolder(const NewFolder&) = delete;
  NewFolder& operator=(const NewFolder&) = delete;
  ~NewFolder();

  const std::filesystem::path& Path() const { return path_; }
  // Gives it the grid's name. What has that name already gets another one, which is returned; else
  // the result is empty. Throws StoreError, with all as it was, when that is in use.
  std::string PutInPlace();

 private:
  std::filesystem::path working_directory_;
  std::string grid_name_;
  std::filesystem::path path_;
  bool in_place_ = false;
};

}  // namespace quarro::store
