// The datagrams in which clients ask for engines and engines answer.
//
// Both are 44 bytes, numbers in network byte order:
//
//    offset  bytes
//         0      4  "QrDs"
//         4      2  version of this layout: 1
//         6      2  1 request, 2 reply
//         8      8  nonce: a number that the client drew, which the reply repeats
//        16      8  instance: a number that the engine drew when it came up; 0 in a request
//        24      4  protocol version of the engine   \.
//        28      4  engine version                    |
//        32      4  threads                           |  the five words of QuarroSpec,
//        36      4  TCP port that takes requests      |  all 0 in a request
//        40      4  IPv4 address                     /.
//
// A request is as long as its reply, so that nobody can use engines to multiply traffic towards a
// forged sender. The address is what the engine listens on, 0 for every interface; a client goes by
// the sender of the datagram instead, which is the address that it can reach.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "engine/quarro_spec.h"

namespace quarro::rpc {

inline constexpr std::size_t kDiscoveryPacketBytes = 44;
inline constexpr std::uint16_t kDiscoveryVersion = 1;

using DiscoveryBytes = std::array<std::uint8_t, kDiscoveryPacketBytes>;

struct DiscoveryRequest {
  std::uint64_t nonce = 0;

  friend bool operator==(const DiscoveryRequest&, const DiscoveryRequest&) = default;
};

struct DiscoveryReply {
  std::uint64_t nonce = 0;
  std::uint64_t instance = 0;  // the same in all replies of one engine, whatever way they come
  QuarroSpec engine;

  friend bool operator==(const DiscoveryReply&, const DiscoveryReply&) = default;
};

DiscoveryBytes Encode(const DiscoveryRequest& request);
DiscoveryBytes Encode(const DiscoveryReply& reply);

// Nothing for bytes that are no well-formed datagram of this version and kind: another length,
// mark, version or kind, a request whose rest is not 0, a reply with a port outside 1 to 65535 or
// without threads. Any bytes will do; nothing is allocated and nothing thrown.
std::optional<DiscoveryRequest> ParseRequest(std::span<const std::uint8_t> bytes) noexcept;
std::optional<DiscoveryReply> ParseReply(std::span<const std::uint8_t> bytes) noexcept;

}  // namespace quarro::rpc
