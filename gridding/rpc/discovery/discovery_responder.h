// The engine's side of discovery.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "engine/quarro_spec.h"

namespace quarro::rpc {

// Answers the requests of clients that look for engines, from construction to destruction, on a
// thread of its own.
//
// It listens on two UDP ports: the discovery port, which all engines of a machine share and to
// which clients broadcast, and the port whose number is that of the engine's TCP port, on which
// clients ask one engine directly. Bound to every interface it answers on every interface; bound to
// one address it hears what is sent to this address and to the broadcast address of its network,
// and answers from this address. So an engine bound to loopback hears and answers nobody else.
//
// What is no well-formed request is ignored.
class DiscoveryResponder {
 public:
  struct Counts {
    std::uint64_t answered = 0;
    std::uint64_t over_the_limit = 0;  // well-formed requests that came too fast: not answered
    std::uint64_t malformed = 0;
  };

  // `address` is the IPv4 address or host name on which the engine takes requests, "0.0.0.0" for
  // every interface; `engine` is what replies tell. At most `requests_per_second` are answered.
  // A `discovery_port` of 0 takes any free port. Throws ExSGClientBase naming address and port.
  DiscoveryResponder(const std::string& address, std::uint16_t discovery_port,
                     const QuarroSpec& engine, std::uint32_t requests_per_second);
  DiscoveryResponder(const DiscoveryResponder&) = delete;
  DiscoveryResponder& operator=(const DiscoveryResponder&) = delete;
  // Nothing is answered once it returned.
  ~DiscoveryResponder();

  std::uint16_t DiscoveryPort() const;
  // Any thread.
  Counts Count() const;

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace quarro::rpc
