// The HDF5 file driver that remembers failed writes.

#include "bag/disk_file.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <memory>
#include <new>
#include <tuple>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quarro::bag {
namespace {

// Goes with the file's access properties from createDiskFile to openFile.
struct DriverInfo {
  DiskState* state;
};

// HDF5 handles it as an H5FD_t, which therefore comes first and which HDF5 fills.
struct DiskFile {
  H5FD_t hdf5;
  int descriptor;
  dev_t device;
  ino_t inode;
  haddr_t end_of_allocation;
  // Includes what was not written for want of space.
  haddr_t end_of_file;
  DiskState* state;
};

constexpr haddr_t kMaxAddress = (haddr_t{1} << 62U);
// As it lies in the file: a node of the index takes seven times as much in memory. Room for two
// nodes of the index of each layer, and as much again.
constexpr std::size_t kMetadataCacheBytes = std::size_t{1} << 16U;

DiskFile* ours(H5FD_t* file) { return reinterpret_cast<DiskFile*>(file); }
const DiskFile* ours(const H5FD_t* file) { return reinterpret_cast<const DiskFile*>(file); }

// False when another process has the file open through HDF5. A file system that knows no locks
// has nothing to say.
bool lockAlone(int descriptor) {
  return flock(descriptor, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK;
}

H5FD_t* openFile(const char* name, unsigned flags, hid_t access, haddr_t) {
  const auto* const info = static_cast<const DriverInfo*>(H5Pget_driver_info(access));
  if (info == nullptr) return nullptr;
  int mode = O_CLOEXEC | O_RDWR;
  if ((flags & H5F_ACC_CREAT) != 0) mode |= O_CREAT;
  const int descriptor = open(name, mode, 0666);
  if (descriptor < 0) return nullptr;
  struct stat status = {};
  const bool truncate = (flags & H5F_ACC_TRUNC) != 0;
  auto* const file = new (std::nothrow) DiskFile{};
  if (file == nullptr || !lockAlone(descriptor) || (truncate && ftruncate(descriptor, 0) != 0) ||
      fstat(descriptor, &status) != 0) {
    delete file;
    close(descriptor);
    return nullptr;
  }
  file->descriptor = descriptor;
  file->device = status.st_dev;
  file->inode = status.st_ino;
  file->end_of_file = static_cast<haddr_t>(status.st_size);
  file->state = info->state;
  return &file->hdf5;
}

// A file system that cannot be told to counts as done.
bool syncToDisc(int descriptor) {
  return fsync(descriptor) == 0 || errno == EINVAL || errno == ENOTSUP;
}

herr_t closeFile(H5FD_t* hdf5) {
  const std::unique_ptr<DiskFile> file(ours(hdf5));
  // Network file systems tell of a lack of space only now.
  if (!file->state->failed && !syncToDisc(file->descriptor)) file->state->failed = true;
  if (close(file->descriptor) != 0) file->state->failed = true;
  return 0;
}

int compareFiles(const H5FD_t* left, const H5FD_t* right) {
  const auto key = [](const H5FD_t* file) {
    return std::make_tuple(ours(file)->device, ours(file)->inode);
  };
  if (key(left) < key(right)) return -1;
  return key(left) == key(right) ? 0 : 1;
}

herr_t queryFeatures(const H5FD_t*, unsigned long* features) {
  if (features != nullptr) {
    *features = H5FD_FEAT_AGGREGATE_METADATA | H5FD_FEAT_ACCUMULATE_METADATA |
                H5FD_FEAT_DATA_SIEVE | H5FD_FEAT_AGGREGATE_SMALLDATA |
                H5FD_FEAT_DEFAULT_VFD_COMPATIBLE;
  }
  return 0;
}

haddr_t endOfAllocation(const H5FD_t* file, H5FD_mem_t) { return ours(file)->end_of_allocation; }

herr_t setEndOfAllocation(H5FD_t* file, H5FD_mem_t, haddr_t address) {
  ours(file)->end_of_allocation = address;
  return 0;
}

haddr_t endOfFile(const H5FD_t* file, H5FD_mem_t) { return ours(file)->end_of_file; }

herr_t readFile(H5FD_t* file, H5FD_mem_t, hid_t, haddr_t address, size_t size, void* buffer) {
  auto* to = static_cast<char*>(buffer);
  auto offset = static_cast<off_t>(address);
  while (size > 0) {
    const ssize_t count = pread(ours(file)->descriptor, to, size, offset);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return -1;
    if (count == 0) {
      // Allocated but not written yet.
      std::memset(to, 0, size);
      return 0;
    }
    to += count;
    offset += count;
    size -= static_cast<size_t>(count);
  }
  return 0;
}

bool writeAll(int descriptor, const char* from, size_t size, off_t offset) {
  while (size > 0) {
    const ssize_t count = pwrite(descriptor, from, size, offset);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    from += count;
    offset += count;
    size -= static_cast<size_t>(count);
  }
  return true;
}

herr_t writeFile(H5FD_t* hdf5, H5FD_mem_t, hid_t, haddr_t address, size_t size,
                 const void* buffer) {
  DiskFile* const file = ours(hdf5);
  file->end_of_file = std::max(file->end_of_file, address + size);
  if (file->state->failed) return 0;
  if (!writeAll(file->descriptor, static_cast<const char*>(buffer), size,
                static_cast<off_t>(address))) {
    file->state->failed = true;
  }
  return 0;
}

herr_t truncateFile(H5FD_t* hdf5, hid_t, hbool_t) {
  DiskFile* const file = ours(hdf5);
  if (file->end_of_allocation == file->end_of_file) return 0;
  file->end_of_file = file->end_of_allocation;
  if (file->state->failed) return 0;
  if (ftruncate(file->descriptor, static_cast<off_t>(file->end_of_allocation)) != 0) {
    file->state->failed = true;
  }
  return 0;
}

const H5FD_class_t& driverClass() {
  static const H5FD_class_t driver = [] {
    H5FD_class_t made = {};
    made.name = "quarro_bag";
    made.maxaddr = kMaxAddress;
    made.fc_degree = H5F_CLOSE_WEAK;
    made.fapl_size = sizeof(DriverInfo);
    made.open = openFile;
    made.close = closeFile;
    made.cmp = compareFiles;
    made.query = queryFeatures;
    made.get_eoa = endOfAllocation;
    made.set_eoa = setEndOfAllocation;
    made.get_eof = endOfFile;
    made.read = readFile;
    made.write = writeFile;
    made.truncate = truncateFile;
    // Raw data apart from metadata, as with HDF5's own driver.
    constexpr std::array<H5FD_mem_t, H5FD_MEM_NTYPES> kFreeLists = H5FD_FLMAP_DICHOTOMY;
    std::copy(kFreeLists.begin(), kFreeLists.end(), std::begin(made.fl_map));
    return made;
  }();
  return driver;
}

// HDF5 keeps the index of chunks in memory as far as its cache lets it, and by default lets the
// cache grow with the file. Chunks are written in order, so only the end of the index is in use.
void boundMetadataCache(hid_t access) {
  H5AC_cache_config_t config = {};
  config.version = H5AC__CURR_CACHE_CONFIG_VERSION;
  check(H5Pget_mdc_config(access, &config), kBagCreateFailed);
  config.set_initial_size = 1;
  config.initial_size = kMetadataCacheBytes;
  config.min_size = kMetadataCacheBytes;
  config.max_size = kMetadataCacheBytes;
  config.incr_mode = H5C_incr__off;
  config.flash_incr_mode = H5C_flash_incr__off;
  config.decr_mode = H5C_decr__off;
  check(H5Pset_mdc_config(access, &config), kBagCreateFailed);
}

}  // namespace

Hdf5Id createDiskFile(const Hdf5Lock&, const std::filesystem::path& path, DiskState* state) {
  // Registered once and for all; the lock that the caller holds guards it.
  static const hid_t driver = H5FDregister(&driverClass());
  const DriverInfo info = {state};
  const Hdf5Id access(H5Pcreate(H5P_FILE_ACCESS), H5Pclose, kBagCreateFailed);
  check(H5Pset_driver(access.get(), driver, &info), kBagCreateFailed);
  boundMetadataCache(access.get());
  return {H5Fcreate(path.c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, access.get()), H5Fclose,
          kBagCreateFailed};
}

}  // namespace quarro::bag
