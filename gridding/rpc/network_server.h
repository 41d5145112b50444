// An engine on the network: what Quarro_Server runs.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "gridding/rpc/network_settings.h"
#include "support/mparams.h"

namespace quarro::rpc {

// Listens, answers discovery and serves sessions from construction to Stop, on threads of its own.
// The channel "server" gets its log: 5 and 4 errors and refusals, 3 warnings, 2 sessions that come
// and the accounts of lines, 1 steps. Stop and destruction belong to one thread.
class NetworkServer {
 public:
  // Throws ExSGClientBase for parameters that do not serve, and when the address cannot be listened
  // on. Without certificates it refuses an address beyond loopback, unless AllowPlainText is set,
  // of which it warns.
  explicit NetworkServer(const MParams& params);
  // Stops.
  ~NetworkServer();
  NetworkServer(const NetworkServer&) = delete;
  NetworkServer& operator=(const NetworkServer&) = delete;

  const std::string& Address() const;
  std::uint16_t Port() const;           // TCP
  std::uint16_t DiscoveryPort() const;  // UDP; 0 when there is no discovery
  int MetricsPort() const;              // 0 without metrics

  // Ends the line in work at its next chunk, fails what waits, tells all sessions that the engine
  // is shutting down, and stops listening.
  void Stop();

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace quarro::rpc
