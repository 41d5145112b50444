#include "gridding/service/result_arena.h"

#include <algorithm>
#include <cerrno>
#include <limits>
#include <string>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "engine/exceptions.h"

namespace quarro::service {

namespace {

constexpr std::size_t kAlignment = alignof(std::max_align_t);
constexpr std::size_t kFirstHeapChunk = std::size_t{64} << 10U;
constexpr std::size_t kFirstFileChunk = std::size_t{16} << 20U;
constexpr std::size_t kGreatestFileChunk = std::size_t{256} << 20U;
constexpr std::size_t kPage = std::size_t{64} << 10U;  // a multiple of every page size in use

[[noreturn]] void ThrowNoRoom(const std::filesystem::path& directory, std::uint64_t bytes,
                              int error) {
  throw ExSGCServerResources("a result of over " + std::to_string(bytes) +
                             " bytes found no room in \"" + directory.string() +
                             "\": " + std::generic_category().message(error));
}

}  // namespace

ResultArena::ResultArena(std::filesystem::path directory, std::uint64_t heap_bytes)
    : directory_(std::move(directory)), heap_bytes_(heap_bytes), next_chunk_(kFirstHeapChunk) {}

ResultArena::~ResultArena() {
  for (const Mapping& mapping : mappings_) ::munmap(mapping.address, mapping.size);
  if (file_ >= 0) ::close(file_);
}

void* ResultArena::Take(std::uint64_t count, std::size_t size) {
  if (count > (std::numeric_limits<std::size_t>::max() - kPage) / size) {
    ThrowNoRoom(directory_, count, ENOMEM);
  }
  const std::size_t wanted = (count * size + kAlignment - 1) / kAlignment * kAlignment;
  if (wanted > left_) {
    if (bytes_ + wanted <= heap_bytes_) {
      AddHeapChunk(wanted);
    } else {
      AddFileChunk(wanted);
    }
  }
  std::byte* taken = next_;
  next_ += wanted;
  left_ -= wanted;
  bytes_ += wanted;
  return taken;
}

void ResultArena::AddHeapChunk(std::size_t size) {
  const std::size_t chunk = std::max(size, next_chunk_);
  heap_chunks_.emplace_back(new std::byte[chunk]);
  next_ = heap_chunks_.back().get();
  left_ = chunk;
  next_chunk_ = std::min(2 * next_chunk_, kFirstFileChunk);
}

void ResultArena::AddFileChunk(std::size_t size) {
  if (file_ < 0) OpenFile();
  const std::size_t chunk = (std::max(size, next_chunk_) + kPage - 1) / kPage * kPage;
  int error = EINTR;
  while (error == EINTR) {
    error = ::posix_fallocate(file_, static_cast<off_t>(file_bytes_), static_cast<off_t>(chunk));
  }
  if (error != 0) ThrowNoRoom(directory_, file_bytes_ + chunk, error);
  void* address = ::mmap(nullptr, chunk, PROT_READ | PROT_WRITE, MAP_SHARED, file_,
                         static_cast<off_t>(file_bytes_));
  if (address == MAP_FAILED) ThrowNoRoom(directory_, file_bytes_ + chunk, errno);
  mappings_.push_back({address, chunk});
  file_bytes_ += chunk;
  next_ = static_cast<std::byte*>(address);
  left_ = chunk;
  next_chunk_ = std::min(2 * next_chunk_, kGreatestFileChunk);
}

void ResultArena::OpenFile() {
  std::string path = (directory_ / ".quarro_result.XXXXXX").string();
  file_ = ::mkostemp(path.data(), O_CLOEXEC);
  if (file_ < 0) ThrowNoRoom(directory_, bytes_, errno);
  ::unlink(path.c_str());
  next_chunk_ = kFirstFileChunk;
}

}  // namespace quarro::service
