// The client's side of discovery.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "engine/quarro_spec.h"
#include "gridding/rpc/network_settings.h"

namespace quarro::rpc {

struct DiscoverySettings {
  std::uint16_t port = 47600;           // UDP
  std::chrono::milliseconds wait{500};  // for replies
  // Hosts or broadcast addresses to which the request is sent; empty: the broadcast address of
  // every interface, and loopback.
  std::vector<std::string> addresses;
  std::vector<HostPort> engines;  // asked directly, each by the number of its TCP port
};

struct DiscoveryOutcome {
  std::vector<QuarroSpec> engines;
  // For the log: what could not be asked, and why.
  std::vector<std::string> problems;         // of this machine's interfaces
  std::vector<std::string> listed_problems;  // of what was listed; also each engine without answer
};

// Asks for engines and gathers what comes in within `wait`. The request is sent at once and again
// after half of the time, since datagrams get lost. Each engine appears once, with the address from
// which its reply came: of an engine that answers on several ways that of loopback, else the
// lowest. Malformed replies and those to earlier requests are ignored. Sorted by address, then
// port.
//
// Blocks, also while host names are looked up. Any thread. Throws ExSGClientBase when this machine
// has no usable network at all.
DiscoveryOutcome FindEngines(const DiscoverySettings& settings);

}  // namespace quarro::rpc
