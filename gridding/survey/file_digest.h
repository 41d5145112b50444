// A digest of a survey file's bytes, by which a line committed twice is known.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>

#include "gridding/survey/file_bytes.h"

namespace quarro::survey {

// XXH3 with 128 bits in its canonical (big-endian) order, the same on every machine; fast rather
// than safe against forgery. Sets `bytes` to the number of bytes digested. Throws LineError when
// the file cannot be read. `between` is called before each MiB is read; what it throws ends the
// reading.
std::array<std::byte, 16> DigestOfFile(
    const FileBytes& file, std::uint64_t& bytes, const std::function<void()>& between = [] {});

}  // namespace quarro::survey
