// Plain numbers to bytes and back, little endian, for what cells keep on disc.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <type_traits>
#include <vector>

#include "support/exceptions.h"

namespace quarro::core {

static_assert(std::endian::native == std::endian::little,
              "blocks on disc are little endian and are copied as they are");

// Bytes that are no block of the kind expected.
class EncodingError : public ExSGClientBase {
 public:
  using ExSGClientBase::ExSGClientBase;
};

class Encoder {
 public:
  explicit Encoder(std::vector<std::byte>& out) : out_(out) {}

  template <typename T>
  void Put(const T& value) {
    PutArray(std::span<const T>(&value, 1));
  }
  template <typename T>
  void PutArray(std::span<const T> values) {
    static_assert(std::is_trivially_copyable_v<T>);
    const std::size_t before = out_.size();
    out_.resize(before + values.size_bytes());
    if (!values.empty()) std::memcpy(out_.data() + before, values.data(), values.size_bytes());
  }

 private:
  std::vector<std::byte>& out_;
};

// Throws EncodingError, naming `what`, when bytes are missing, and at End when some are left.
class Decoder {
 public:
  Decoder(std::span<const std::byte> bytes, const char* what) : bytes_(bytes), what_(what) {}

  template <typename T>
  T Get() {
    T value;
    std::memcpy(&value, Take(sizeof(T)), sizeof(T));
    return value;
  }
  template <typename T>
  void GetArray(std::uint64_t count, std::vector<T>& values) {
    static_assert(std::is_trivially_copyable_v<T>);
    if (count > bytes_.size() / sizeof(T)) Fail();
    values.resize(count);
    if (count != 0) std::memcpy(values.data(), Take(count * sizeof(T)), count * sizeof(T));
  }
  void End() const {
    if (!bytes_.empty()) Fail();
  }

 private:
  const std::byte* Take(std::size_t size) {
    if (size > bytes_.size()) Fail();
    const std::byte* taken = bytes_.data();
    bytes_ = bytes_.subspan(size);
    return taken;
  }
  [[noreturn]] void Fail() const;

  std::span<const std::byte> bytes_;
  const char* what_;
};

}  // namespace quarro::core
