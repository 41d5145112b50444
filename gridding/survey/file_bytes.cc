// The bytes of a survey file, read by position.
#include "gridding/survey/file_bytes.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "gridding/survey/line_reader.h"

namespace quarro::survey {
namespace {

std::string SystemReason(int error) { return std::generic_category().message(error); }

FileStamp StampOf(const struct stat& status) {
  return {.device = status.st_dev,
          .inode = status.st_ino,
          .size = static_cast<std::uint64_t>(status.st_size),
          .modified_s = status.st_mtim.tv_sec,
          .modified_ns = status.st_mtim.tv_nsec};
}

}  // namespace

FileBytes::FileBytes(const std::string& path) : path_(path) {
  // Non-blocking, so that a pipe in a file list is refused below and not waited for.
  descriptor_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor_ < 0) {
    throw LineError("cannot open \"" + path + "\" for reading: " + SystemReason(errno));
  }
  struct stat status {};
  const int failed = ::fstat(descriptor_, &status);
  const int error = errno;
  std::string reason;
  if (failed != 0) {
    reason = "cannot be examined: " + SystemReason(error);
  } else if (S_ISDIR(status.st_mode)) {
    reason = "is a directory, not a survey line";
  } else if (!S_ISREG(status.st_mode)) {
    reason = "is no regular file";
  } else if (status.st_size == 0) {
    reason = "is empty";
  }
  if (!reason.empty()) {
    ::close(descriptor_);
    throw LineError("\"" + path + "\" " + reason);
  }
  stamp_ = StampOf(status);
  (void)::posix_fadvise(descriptor_, 0, 0, POSIX_FADV_SEQUENTIAL);
}

FileBytes::~FileBytes() { ::close(descriptor_); }

FileStamp FileBytes::StampNow() const {
  struct stat status {};
  if (::fstat(descriptor_, &status) != 0) {
    const int error = errno;
    throw LineError("\"" + path_ + "\" cannot be examined: " + SystemReason(error));
  }
  return StampOf(status);
}

std::size_t FileBytes::ReadAt(std::uint64_t offset, std::span<std::byte> out) const {
  std::size_t done = 0;
  while (done < out.size()) {
    const ssize_t got = ::pread(descriptor_, out.data() + done, out.size() - done,
                                static_cast<off_t>(offset + done));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) {
      const int error = errno;
      throw LineError("cannot read \"" + path_ + "\" at byte " + std::to_string(offset + done) +
                      ": " + SystemReason(error));
    }
    if (got == 0) break;
    done += static_cast<std::size_t>(got);
  }
  return done;
}

std::span<const std::byte> FileWindow::Get(std::uint64_t offset, std::size_t size) {
  const bool held = offset >= begin_ && offset - begin_ <= length_ &&
                    size <= length_ - static_cast<std::size_t>(offset - begin_);
  if (!held) {
    const std::uint64_t left = offset < file_.size() ? file_.size() - offset : 0;
    const auto wanted =
        static_cast<std::size_t>(std::min<std::uint64_t>(left, std::max(size, kBufferBytes)));
    if (buffer_.size() < wanted) buffer_.resize(wanted);
    begin_ = offset;
    length_ = 0;  // nothing is held should the read fail
    length_ = file_.ReadAt(offset, std::span(buffer_).first(wanted));
  }
  const auto skip = static_cast<std::size_t>(offset - begin_);
  return std::span<const std::byte>(buffer_).subspan(skip, std::min(size, length_ - skip));
}

}  // namespace quarro::survey
