// Temporary files through mkstemp, which leaves no gap between choosing a name and taking it.
#include "output/temporary_file.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include <unistd.h>

namespace quarro {

namespace {

bool WriteAll(int descriptor, const std::string& text) {
  std::size_t written = 0;
  while (written < text.size()) {
    const ssize_t count = ::write(descriptor, text.data() + written, text.size() - written);
    if (count >= 0) {
      written += static_cast<std::size_t>(count);
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

}  // namespace

TemporaryFile::TemporaryFile(const std::string& pattern)
    : path_(pattern), descriptor_(::mkstemp(path_.data())), made_(descriptor_ >= 0) {}

TemporaryFile::~TemporaryFile() {
  if (descriptor_ >= 0) {
    ::close(descriptor_);
  }
  if (made_ && !kept_) {
    std::remove(path_.c_str());
  }
}

bool TemporaryFile::WriteAndClose(const std::string& text) {
  const bool written = WriteAll(descriptor_, text);
  const int reason = errno;
  const bool closed = ::close(descriptor_) == 0;
  descriptor_ = -1;
  if (!written) {
    errno = reason;
  }
  return written && closed;
}

}  // namespace quarro
