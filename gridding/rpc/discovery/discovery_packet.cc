#include "gridding/rpc/discovery/discovery_packet.h"

#include <algorithm>

namespace quarro::rpc {

namespace {

constexpr std::uint32_t kMark = 0x51724473;  // "QrDs"
constexpr std::uint16_t kRequest = 1;
constexpr std::uint16_t kReply = 2;
constexpr std::uint32_t kHighestPort = 65535;

constexpr std::size_t kVersionAt = 4;
constexpr std::size_t kKindAt = 6;
constexpr std::size_t kNonceAt = 8;
constexpr std::size_t kInstanceAt = 16;
constexpr std::size_t kWordsAt = 24;

template <typename Number>
void Put(DiscoveryBytes& bytes, std::size_t offset, Number value) {
  for (std::size_t i = sizeof(Number); i > 0; --i) {
    bytes[offset + i - 1] = static_cast<std::uint8_t>(value & 0xffU);
    value = static_cast<Number>(value >> 8U);
  }
}

template <typename Number>
Number Get(std::span<const std::uint8_t> bytes, std::size_t offset) noexcept {
  std::uint64_t value = 0;
  for (std::size_t i = 0; i < sizeof(Number); ++i) value = (value << 8U) | bytes[offset + i];
  return static_cast<Number>(value);
}

DiscoveryBytes Head(std::uint16_t kind, std::uint64_t nonce) {
  DiscoveryBytes bytes{};
  Put(bytes, 0, kMark);
  Put(bytes, kVersionAt, kDiscoveryVersion);
  Put(bytes, kKindAt, kind);
  Put(bytes, kNonceAt, nonce);
  return bytes;
}

bool HasHead(std::span<const std::uint8_t> bytes, std::uint16_t kind) noexcept {
  return bytes.size() == kDiscoveryPacketBytes && Get<std::uint32_t>(bytes, 0) == kMark &&
         Get<std::uint16_t>(bytes, kVersionAt) == kDiscoveryVersion &&
         Get<std::uint16_t>(bytes, kKindAt) == kind;
}

std::uint32_t Word(std::span<const std::uint8_t> bytes, std::size_t number) noexcept {
  return Get<std::uint32_t>(bytes, kWordsAt + number * sizeof(std::uint32_t));
}

}  // namespace

DiscoveryBytes Encode(const DiscoveryRequest& request) { return Head(kRequest, request.nonce); }

DiscoveryBytes Encode(const DiscoveryReply& reply) {
  DiscoveryBytes bytes = Head(kReply, reply.nonce);
  Put(bytes, kInstanceAt, reply.instance);
  std::size_t offset = kWordsAt;
  for (const std::uint32_t word :
       {reply.engine.protocol_version, reply.engine.engine_version, reply.engine.threads,
        reply.engine.port, reply.engine.ipv4_address}) {
    Put(bytes, offset, word);
    offset += sizeof(word);
  }
  return bytes;
}

std::optional<DiscoveryRequest> ParseRequest(std::span<const std::uint8_t> bytes) noexcept {
  if (!HasHead(bytes, kRequest)) return std::nullopt;
  const auto rest = bytes.subspan(kInstanceAt);
  if (std::any_of(rest.begin(), rest.end(), [](std::uint8_t byte) { return byte != 0; })) {
    return std::nullopt;
  }
  return DiscoveryRequest{Get<std::uint64_t>(bytes, kNonceAt)};
}

std::optional<DiscoveryReply> ParseReply(std::span<const std::uint8_t> bytes) noexcept {
  if (!HasHead(bytes, kReply)) return std::nullopt;
  const QuarroSpec engine{.protocol_version = Word(bytes, 0),
                          .engine_version = Word(bytes, 1),
                          .threads = Word(bytes, 2),
                          .port = Word(bytes, 3),
                          .ipv4_address = Word(bytes, 4)};
  if (engine.port == 0 || engine.port > kHighestPort || engine.threads == 0) return std::nullopt;
  return DiscoveryReply{Get<std::uint64_t>(bytes, kNonceAt), Get<std::uint64_t>(bytes, kInstanceAt),
                        engine};
}

}  // namespace quarro::rpc
