// What the tests of the network front end share: servers in this process, and clients of them.
#pragma once

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "gridding/local/engine_test_support.h"
#include "gridding/remote/super_grid_client.h"
#include "gridding/rpc/network_server.h"
#include "gridding/rpc/protocol.h"
#include "gridding/rpc/tcp_proxy.h"

namespace quarro::testing {

inline QuarroSpec SpecOf(std::uint16_t port) {
  return {.protocol_version = rpc::kProtocolVersion,
          .engine_version = rpc::kEngineVersion,
          .threads = 2,
          .port = port,
          .ipv4_address = 0x7f000001};
}

class NetworkTest : public ::testing::Test {
 protected:
  NetworkTest() {
    parameters_ = ParametersFor(directory_.path());
    parameters_.Set("Network", "Port", "0");
    parameters_.Set("Network", "DiscoveryPort", "47698");
    parameters_.Set("Network", "ReconnectSeconds", "2");
    parameters_.Set("Network", "SurveyDirectories", directory_.path().string());
    Slog("server").SetFilter(SlogLevel(8));
  }
  ~NetworkTest() override {
    server_.reset();
    Slog("server").SetFilter(SlogLevel(0));
  }

  void Set(const std::string& key, const std::string& value) {
    parameters_.Set("Network", key, value);
  }
  void StartServer() { server_ = std::make_unique<rpc::NetworkServer>(parameters_); }
  std::unique_ptr<SuperGridClient> NewClient() {
    return std::make_unique<SuperGridClient>(parameters_);
  }
  // A client attached to the server, or to what stands before it.
  std::unique_ptr<SuperGridClient> NewAttachedClient(std::uint16_t port = 0) {
    auto client = NewClient();
    client->AttachEngine(SpecOf(port != 0 ? port : server_->Port()));
    return client;
  }
  // A line of 120 m by 40 m.
  std::string Line(unsigned number) {
    const std::string name = std::to_string(number) + ".xyz";
    WriteStrip(directory_ / name, {.west_m = 10.0 * number, .seed = number});
    return name;
  }
  // A line of its own that takes some tenths of a second.
  std::string LongLine(unsigned number) {
    const std::string all = directory_ / "long.xyz";
    if (!std::filesystem::exists(all)) WriteStrip(all, {.length_m = 1000, .width_m = 250});
    const std::string name = "long_" + std::to_string(number) + ".xyz";
    std::filesystem::copy(all, directory_ / name);
    std::ofstream(directory_ / name, std::ios::app) << number << " 0 20 0.05 0.1\n";
    return name;
  }

  FreshDirectory directory_;
  MParams parameters_;
  EngineLog log_;
  std::unique_ptr<rpc::NetworkServer> server_;
};

}  // namespace quarro::testing
