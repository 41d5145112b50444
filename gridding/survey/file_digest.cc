// A digest of a survey file's bytes, by which a line committed twice is known.
#include "gridding/survey/file_digest.h"

#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include <xxhash.h>

namespace quarro::survey {

std::array<std::byte, 16> DigestOfFile(const FileBytes& file, std::uint64_t& bytes,
                                       const std::function<void()>& between) {
  const std::unique_ptr<XXH3_state_t, decltype(&XXH3_freeState)> state(XXH3_createState(),
                                                                       &XXH3_freeState);
  if (state == nullptr) throw std::bad_alloc();
  XXH3_128bits_reset(state.get());
  std::vector<std::byte> block(std::size_t{1} << 20U);
  bytes = 0;
  for (;;) {
    between();
    const std::size_t got = file.ReadAt(bytes, block);
    if (got == 0) break;
    XXH3_128bits_update(state.get(), block.data(), got);
    bytes += got;
  }
  XXH128_canonical_t canonical;
  XXH128_canonicalFromHash(&canonical, XXH3_128bits_digest(state.get()));
  std::array<std::byte, 16> digest{};
  static_assert(sizeof canonical == sizeof digest);
  std::memcpy(digest.data(), &canonical, sizeof digest);
  return digest;
}

}  // namespace quarro::survey
