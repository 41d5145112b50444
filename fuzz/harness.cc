// What the fuzz targets share: files in memory, a scratch folder, and checks that end the program.
#include "fuzz/harness.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <system_error>

#include <stdlib.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

namespace quarro::fuzz {
namespace {

class NoDrain : public SlogDrain {
 public:
  void Write(const std::string& /*channel*/, int /*level*/, const std::string& /*text*/) override {}
};

}  // namespace

void Require(bool holds, const char* what) {
  if (holds) return;
  (void)std::fprintf(stderr, "finding: it does not hold that %s\n", what);
  std::abort();
}

MemoryFile::MemoryFile()
    : descriptor_(::memfd_create("quarro_fuzz", MFD_CLOEXEC)),
      path_("/proc/self/fd/" + std::to_string(descriptor_)) {
  Require(descriptor_ >= 0, "a file in memory can be made");
}

MemoryFile::~MemoryFile() { ::close(descriptor_); }

void MemoryFile::Write(Input bytes) const {
  Require(::ftruncate(descriptor_, 0) == 0, "a file in memory can be emptied");
  const ssize_t written = ::pwrite(descriptor_, bytes.data(), bytes.size(), 0);
  Require(written == static_cast<ssize_t>(bytes.size()), "a file in memory can be written");
}

ScratchFolder::ScratchFolder() {
  std::string name = (std::filesystem::temp_directory_path() / "quarro_fuzz_XXXXXX").string();
  Require(::mkdtemp(name.data()) != nullptr, "a scratch folder can be made");
  path_ = name;
  std::filesystem::current_path(path_);
}

ScratchFolder::~ScratchFolder() {
  std::error_code ignored;
  std::filesystem::current_path(path_.parent_path(), ignored);
  std::filesystem::remove_all(path_, ignored);
}

void ScratchFolder::Empty() const {
  for (const auto& entry : std::filesystem::directory_iterator(path_)) {
    std::filesystem::remove_all(entry.path());
  }
}

void SilenceChannels() {
  static const auto no_drain = std::make_shared<NoDrain>();
  for (const char* channel : {"asynch", "comproc", "driver", "engine"}) {
    Slog log(channel);
    log.RemoveDrains();
    log.AddDrain(no_drain);
  }
  std::cout.rdbuf(nullptr);
  std::cerr.rdbuf(nullptr);
}

void LimitFileSize(std::uint64_t bytes) {
  (void)std::signal(SIGXFSZ, SIG_IGN);
  rlimit limit = {};
  Require(::getrlimit(RLIMIT_FSIZE, &limit) == 0, "the limit of file sizes can be read");
  limit.rlim_cur = bytes;
  Require(::setrlimit(RLIMIT_FSIZE, &limit) == 0, "the limit of file sizes can be set");
}

}  // namespace quarro::fuzz
