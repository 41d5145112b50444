// What both ends of a connection agree on beyond the protocol's own file.
#pragma once

#include <chrono>
#include <cstdint>

namespace quarro::rpc {

inline constexpr std::uint32_t kProtocolVersion = 1;
inline constexpr std::uint32_t kEngineVersion = (1U << 16U) | 1U;

// The name in the certificate of every server. A certificate without it serves clients only.
inline constexpr const char* kServerName = "quarro-server";

// A peer that does not answer a ping for kPingTimeout is gone. The server takes pings twice as
// often as clients send them before it minds.
inline constexpr std::chrono::milliseconds kPingInterval{5000};
inline constexpr std::chrono::milliseconds kPingTimeout{5000};

inline constexpr std::size_t kChunkBytes = std::size_t{1} << 20U;

}  // namespace quarro::rpc
