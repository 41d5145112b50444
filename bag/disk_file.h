// The file under HDF5, by a file driver of our own. HDF5 does not survive a failed write: the file
// cannot be closed any more, and the process crashes when it ends. So a failed write is remembered
// here and HDF5 is told that all is well; nothing is written from then on.

#pragma once

#include <filesystem>

#include "bag/hdf5.h"

namespace quarro::bag {

// Whether a write of one file failed. Used under the Hdf5Lock; outlives the HDF5 file.
struct DiskState {
  bool failed = false;
};

// Creates an HDF5 file, overwriting one that exists; one that another program has open is left
// alone. Throws Failure{kBagCreateFailed}.
Hdf5Id createDiskFile(const Hdf5Lock& lock, const std::filesystem::path& path, DiskState* state);

}  // namespace quarro::bag
