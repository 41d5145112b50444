// A front end with a server of its own in this process, so that what is tested of one front end can
// be tested of the other.
#pragma once

#include <memory>

#include "gridding/remote/super_grid_client.h"
#include "gridding/rpc/network_server.h"
#include "gridding/rpc/protocol.h"

namespace quarro::testing {

// Before the client's part, which is destroyed first.
class OwnServer {
 public:
  explicit OwnServer(const MParams& params) : server_(ServerParameters(params)) {}

  QuarroSpec Spec() const {
    return {.protocol_version = rpc::kProtocolVersion,
            .engine_version = rpc::kEngineVersion,
            .threads = 2,
            .port = server_.Port(),
            .ipv4_address = 0x7f000001};
  }

 private:
  static MParams ServerParameters(MParams params) {
    Slog log("server");
    log.SetFilter(SlogLevel(8));
    params.Set("Network", "Port", "0");
    params.Set("Network", "DiscoveryPort", "47699");
    params.Set("Network", "SurveyDirectories", "/");
    return params;
  }
  rpc::NetworkServer server_;
};

class NetworkedClient : private OwnServer, public SuperGridClient {
 public:
  explicit NetworkedClient(const MParams& params) : OwnServer(params), SuperGridClient(params) {}
  std::vector<QuarroSpec> FindEngines() override { return {Spec()}; }
};

// Tests of the in-process front end that are compiled after this header test this one instead.
using SGDebugClient = NetworkedClient;

}  // namespace quarro::testing
