// Any bytes as a datagram that reaches an engine or a client that looks for one.
#include "gridding/rpc/discovery/discovery_packet.h"

#include <algorithm>

#include "fuzz/harness.h"

namespace {

using quarro::fuzz::Require;
using quarro::rpc::DiscoveryBytes;

bool Same(const DiscoveryBytes& encoded, quarro::fuzz::Input input) {
  return std::equal(encoded.begin(), encoded.end(), input.begin(), input.end());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const quarro::fuzz::Input input(data, size);
  const auto request = quarro::rpc::ParseRequest(input);
  const auto reply = quarro::rpc::ParseReply(input);
  Require(!(request && reply), "a datagram is a request or a reply");
  Require(!request || Same(Encode(*request), input), "a request has one form");
  Require(!reply || Same(Encode(*reply), input), "a reply has one form");
  Require(!reply || (reply->engine.port >= 1 && reply->engine.port <= 65535),
          "an engine has a port");
  return 0;
}
