#include "gridding/store/grid_folder.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <optional>
#include <random>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "gridding/store/grid_store.h"
#include "gridding/store/lock_file.h"
#include "gridding/store/schema.h"

namespace quarro::store {

namespace fs = std::filesystem;

namespace {

// Making a grid takes well under a second; a folder of less than this age may be locked soon.
constexpr std::chrono::hours kLongestMaking{1};

std::string NewFolderPrefix(const std::string& grid_name) { return "." + grid_name + ".new-"; }

[[noreturn]] void FailOn(const std::string& what, int error) {
  throw StoreError(what + ": " + std::system_category().message(error));
}

std::string NowAsText() {
  const std::time_t now = std::time(nullptr);
  struct tm utc {};
  ::gmtime_r(&now, &utc);
  std::array<char, 32> text{};
  const std::size_t length = std::strftime(text.data(), text.size(), "%Y%m%dT%H%M%SZ", &utc);
  return {text.data(), length};
}

// Gives `from` the name `to` unless something has it. Returns 0 or the system's error.
int RenameToFreeName(const fs::path& from, const fs::path& to) {
  if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL) return errno;
  // A file system without that call.
  if (fs::exists(fs::symlink_status(to))) return EEXIST;
  return std::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
}

// Returns the new name.
std::string SetAside(const fs::path& working_directory, const std::string& name) {
  const fs::path from = working_directory / name;
  std::optional<LockFile> lock;
  if (fs::exists(from / kDatabaseFile)) lock.emplace(from, name);
  const std::string aside = name + ".aside-" + NowAsText();
  for (int attempt = 1;; ++attempt) {
    std::string to = attempt == 1 ? aside : aside + "-" + std::to_string(attempt);
    const int error = RenameToFreeName(from, working_directory / to);
    if (error == 0) return to;
    if (error != EEXIST && error != ENOTEMPTY) {
      FailOn("cannot set aside " + from.string() + " as " + to, error);
    }
  }
}

}  // namespace

void CheckGridName(const std::string& name) {
  const auto refuse = [&name](const std::string& why) {
    throw StoreError("\"" + name + "\" cannot be the name of a grid: " + why);
  };
  if (name.empty()) refuse("it is empty");
  if (name.front() == '.') refuse("it begins with a dot");
  if (name.find('/') != std::string::npos) refuse("it has a slash");
  const bool has_control = std::any_of(name.begin(), name.end(), [](char c) {
    return static_cast<unsigned char>(c) < 0x20 || c == 0x7f;
  });
  if (has_control) {
    throw StoreError("the name of a grid cannot have a control character in it");
  }
}

void CheckWorkingDirectory(const fs::path& working_directory) {
  std::error_code error;
  const bool is_directory = fs::is_directory(working_directory, error);
  if (is_directory) return;
  const int number = error.value() != 0 ? error.value() : ENOTDIR;
  FailOn("the working directory " + working_directory.string() + " cannot be used", number);
}

void SyncToDisc(const fs::path& path) {
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) FailOn("cannot open " + path.string(), errno);
  const int code = ::fsync(descriptor);
  const int error = errno;
  ::close(descriptor);
  if (code != 0) FailOn("cannot write " + path.string() + " to the disc", error);
}

std::uint64_t BytesInFolder(const fs::path& folder) {
  std::uint64_t bytes = 0;
  std::error_code error;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    if (entry->path().filename().string().rfind(kDatabaseFile, 0) != 0) continue;
    std::error_code gone;
    const std::uintmax_t size = entry->file_size(gone);
    if (!gone) bytes += size;
  }
  return bytes;
}

void RemoveUnfinished(const fs::path& working_directory, const std::string& grid_name) {
  const auto old = fs::file_time_type::clock::now() - kLongestMaking;
  const std::string prefix = NewFolderPrefix(grid_name);
  std::error_code error;
  for (fs::directory_iterator entry(working_directory, error), end; !error && entry != end;
       entry.increment(error)) {
    if (entry->path().filename().string().rfind(prefix, 0) != 0) continue;
    std::error_code ignored;
    if (entry->is_symlink(ignored) || !entry->is_directory(ignored)) continue;
    if (entry->last_write_time(ignored) > old) continue;
    try {
      const LockFile nobody_makes_it(entry->path(), grid_name);
      fs::remove_all(entry->path(), ignored);
    } catch (const StoreError&) {
      // Somebody does, or it is not ours to remove.
    }
  }
}

NewFolder::NewFolder(const fs::path& working_directory, const std::string& grid_name)
    : working_directory_(working_directory), grid_name_(grid_name) {
  std::random_device random;
  do {
    path_ = working_directory / (NewFolderPrefix(grid_name) + std::to_string(random()));
    if (::mkdir(path_.c_str(), 0777) == 0) return;
  } while (errno == EEXIST);
  FailOn("cannot make a grid in " + working_directory.string(), errno);
}

NewFolder::~NewFolder() {
  if (in_place_) return;
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

std::string NewFolder::PutInPlace() {
  const fs::path place = working_directory_ / grid_name_;
  SyncToDisc(path_);
  std::string set_aside_as;
  if (fs::exists(fs::symlink_status(place))) {
    set_aside_as = SetAside(working_directory_, grid_name_);
  }
  const int error = RenameToFreeName(path_, place);
  if (error != 0) {
    if (!set_aside_as.empty()) RenameToFreeName(working_directory_ / set_aside_as, place);
    FailOn("cannot make " + place.string(), error);
  }
  in_place_ = true;
  SyncToDisc(working_directory_);
  return set_aside_as;
}

}  // namespace quarro::store
