// Memory of one result's arrays.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <new>
#include <type_traits>
#include <vector>

namespace quarro::service {

// Hands out arrays whose addresses stay as they are: from the heap as long as all of them together
// are small, else from a file that is mapped and has no name any more, so that the operating system
// can move what is not in use to the disc. The file's room is taken before it is mapped: a full
// disc is an error, not a signal. One thread at a time.
class ResultArena {
 public:
  // Arrays go to a file in `directory` once all of them take more than `heap_bytes`.
  ResultArena(std::filesystem::path directory, std::uint64_t heap_bytes);
  ~ResultArena();
  ResultArena(const ResultArena&) = delete;
  ResultArena& operator=(const ResultArena&) = delete;

  // `count` values as T{}. They live as long as the arena. Throws ExSGCServerResources when there
  // is no room.
  template <typename T>
  T* Array(std::uint64_t count) {
    static_assert(std::is_trivially_destructible_v<T>);
    T* values = static_cast<T*>(Take(count, sizeof(T)));
    for (std::uint64_t i = 0; i < count; ++i) new (values + i) T{};
    return values;
  }

  std::uint64_t bytes() const { return bytes_; }
  bool UsesFile() const { return file_ >= 0; }

 private:
  struct Mapping {
    void* address;
    std::size_t size;
  };
  void* Take(std::uint64_t count, std::size_t size);
  void AddHeapChunk(std::size_t size);
  void AddFileChunk(std::size_t size);
  void OpenFile();

  std::filesystem::path directory_;
  std::uint64_t heap_bytes_;
  std::uint64_t bytes_ = 0;  // handed out
  std::byte* next_ = nullptr;
  std::size_t left_ = 0;  // in the chunk in use
  std::vector<std::unique_ptr<std::byte[]>> heap_chunks_;
  std::vector<Mapping> mappings_;
  int file_ = -1;
  std::uint64_t file_bytes_ = 0;
  std::size_t next_chunk_ = 0;
};

}  // namespace quarro::service
