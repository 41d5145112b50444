#include "gridding/store/lock_file.h"

#include <array>
#include <cctype>
#include <cerrno>
#include <sstream>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "gridding/store/grid_store.h"

namespace quarro::store {

namespace {

constexpr const char* kFileName = "lock";

std::string HostName() {
  std::array<char, 256> name{};
  if (::gethostname(name.data(), name.size() - 1) != 0) return "unknown";
  return name.data();
}

std::string Printable(const std::string& text) {
  std::string kept;
  for (const char c : text) {
    if (std::isgraph(static_cast<unsigned char>(c)) != 0) kept += c;
  }
  return kept;
}

// From what the holder wrote.
[[noreturn]] void Refuse(const std::string& grid_name, int descriptor) {
  const std::string in_use = "grid \"" + grid_name + "\" is in use by ";
  std::array<char, 512> text{};
  const ssize_t bytes = ::pread(descriptor, text.data(), text.size() - 1, 0);
  std::istringstream words(bytes > 0 ? text.data() : "");
  long process = 0;
  std::string host;
  if (!(words >> process >> host)) throw GridInUse(in_use + "another process", false);
  throw GridInUse(in_use + "process " + std::to_string(process) + " on host " + Printable(host),
                  process == ::getpid() && host == HostName());
}

[[noreturn]] void Fail(const std::filesystem::path& path, int error) {
  throw StoreError("cannot lock " + path.string() + ": " + std::system_category().message(error));
}

}  // namespace

LockFile::LockFile(const std::filesystem::path& folder, const std::string& grid_name) {
  const std::filesystem::path path = folder / kFileName;
  descriptor_ = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  if (descriptor_ < 0) Fail(path, errno);
  try {
    Lock(path, grid_name);
  } catch (...) {
    ::close(descriptor_);
    throw;
  }
  WriteHolder();
}

LockFile::LockFile(LockFile&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}

LockFile::~LockFile() {
  if (descriptor_ < 0) return;
  // Only a note for people: the lock itself goes with the descriptor.
  [[maybe_unused]] const int emptied = ::ftruncate(descriptor_, 0);
  ::close(descriptor_);
}

void LockFile::Lock(const std::filesystem::path& path, const std::string& grid_name) const {
  struct flock whole_file {};
  whole_file.l_type = F_WRLCK;
  whole_file.l_whence = SEEK_SET;
  if (::fcntl(descriptor_, F_OFD_SETLK, &whole_file) == 0) return;
  const int error = errno;
  if (error != EAGAIN && error != EACCES) Fail(path, error);
  Refuse(grid_name, descriptor_);
}

void LockFile::WriteHolder() const {
  const std::string text = std::to_string(::getpid()) + " " + HostName() + "\n";
  // Without the note (the disk may be full) the lock holds all the same.
  [[maybe_unused]] const int emptied = ::ftruncate(descriptor_, 0);
  [[maybe_unused]] const ssize_t written = ::pwrite(descriptor_, text.data(), text.size(), 0);
}

bool LockFile::Guards(const std::filesystem::path& folder) const {
  struct stat ours {};
  struct stat there {};
  return ::fstat(descriptor_, &ours) == 0 && ::stat((folder / kFileName).c_str(), &there) == 0 &&
         ours.st_dev == there.st_dev && ours.st_ino == there.st_ino;
}

}  // namespace quarro::store
