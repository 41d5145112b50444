// Parallel compression of chunks.

#include "bag/chunk_codec.h"

#include <algorithm>
#include <atomic>
#include <future>
#include <memory>
#include <new>
#include <system_error>
#include <thread>

#include <libdeflate.h>

namespace quarro::bag {
namespace {

constexpr int kDeflateLevel = 1;

using Compressor = std::unique_ptr<libdeflate_compressor, decltype(&libdeflate_free_compressor)>;

}  // namespace

void forEachInParallel(std::size_t count, const std::function<void(std::size_t)>& task) {
  std::atomic<std::size_t> next{0};
  const auto work = [&] {
    for (std::size_t index = next++; index < count; index = next++) task(index);
  };
  const std::size_t cores = std::max(1U, std::thread::hardware_concurrency());
  // The futures' destructors wait, so no helper outlives what it works on.
  std::vector<std::future<void>> helpers;
  for (std::size_t helper = 1; helper < std::min(cores, count); ++helper) {
    try {
      helpers.push_back(std::async(std::launch::async, work));
    } catch (const std::system_error&) {
      // Without a thread more the others do its share.
      break;
    }
  }
  work();
  for (auto& helper : helpers) helper.get();
}

CompressedChunk compress(std::span<const std::byte> chunk) {
  const Compressor compressor(libdeflate_alloc_compressor(kDeflateLevel),
                              libdeflate_free_compressor);
  if (!compressor) throw std::bad_alloc();
  CompressedChunk compressed(libdeflate_zlib_compress_bound(compressor.get(), chunk.size()));
  compressed.resize(libdeflate_zlib_compress(compressor.get(), chunk.data(), chunk.size(),
                                             compressed.data(), compressed.size()));
  return compressed;
}

}  // namespace quarro::bag
