// Text results through the system's own calls, so that a failure has its cause.
#include "output/result_file.h"

#include <cerrno>
#include <cstdio>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "slog/slog.h"

namespace quarro {

namespace {

constexpr const char* kChannel = "output";
constexpr int kErrorLevel = 4;
constexpr mode_t kEveryoneMayReadAndWrite = 0666;  // less what the process's mask takes off

bool IsRegular(int descriptor) {
  struct stat status {};
  return ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace

ResultFile::ResultFile(std::string path)
    : path_(std::move(path)),
      descriptor_(::open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC,
                         kEveryoneMayReadAndWrite)) {}

ResultFile::~ResultFile() {
  if (descriptor_ < 0) return;
  // Pipes and devices have nothing to bring to a disc, and keep their names.
  const bool is_regular = IsRegular(descriptor_);
  if (is_regular) Sync();
  if (::close(descriptor_) != 0 && error_ == 0) error_ = errno;
  if (error_ != 0) TellIncomplete(is_regular);
}

void ResultFile::Write(const std::string& text) {
  std::size_t written = 0;
  while (descriptor_ >= 0 && error_ == 0 && written < text.size()) {
    const ssize_t count = ::write(descriptor_, text.data() + written, text.size() - written);
    if (count >= 0) {
      written += static_cast<std::size_t>(count);
    } else if (errno != EINTR) {
      error_ = errno;
    }
  }
}

void ResultFile::Sync() {
  if (error_ != 0 || ::fsync(descriptor_) == 0) return;
  // A file system that cannot be told to.
  if (errno != EINVAL && errno != ENOTSUP) error_ = errno;
}

void ResultFile::TellIncomplete(bool is_regular) const {
  std::string text = "writing \"" + path_ + "\" failed: " + std::generic_category().message(error_);
  const std::string aside = path_ + ".incomplete";
  if (is_regular && std::rename(path_.c_str(), aside.c_str()) == 0) {
    text += "; what was written stands as \"" + aside + "\"";
  }
  Slog log(kChannel);
  log << SlogLevel(kErrorLevel);
  log() << text << '.' << endmsg;
}

}  // namespace quarro
