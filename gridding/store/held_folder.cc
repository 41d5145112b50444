#include "gridding/store/held_folder.h"

#include <utility>

#include "gridding/store/database.h"
#include "gridding/store/grid_store.h"

namespace quarro::store {

HeldFolder::HeldFolder(std::filesystem::path path, const std::string& grid_name, LockFile lock)
    : path_(std::move(path)), grid_(DescribeGrid(grid_name, path_)), lock_(std::move(lock)) {}

void HeldFolder::Check() const {
  if (IsInPlace()) return;
  throw StoreError(
      grid_ +
      ": its folder was moved or removed while the grid was open; put it back, or drop "
      "the grid and load it from where it is");
}

}  // namespace quarro::store
