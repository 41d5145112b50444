#include "gridding/rpc/network_settings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "gridding/local/engine_test_support.h"

namespace quarro::rpc {
namespace {

using quarro::testing::ReasonOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

MParams With(const std::string& key, const std::string& value) {
  MParams params;
  params.Set("Network", key, value);
  return params;
}

TEST(NetworkSettings, EveryKeyHasADefault) {
  const NetworkSettings settings = ReadNetworkSettings(MParams());
  EXPECT_EQ(settings.address, "127.0.0.1");
  EXPECT_EQ(settings.port, 47601);
  EXPECT_EQ(settings.discovery_port, 47600);
  EXPECT_EQ(settings.discovery_wait_ms, 500U);
  EXPECT_EQ(settings.reconnect_seconds, 30U);
  EXPECT_EQ(settings.detach_seconds, 3U);
  EXPECT_EQ(settings.survey_directories, ".");
  EXPECT_FALSE(settings.UsesTls());
  EXPECT_FALSE(settings.allow_plain_text);
}

TEST(NetworkSettings, ListsArePartedByBlanksCommasAndSemicolons) {
  EXPECT_THAT(
      ReadNetworkSettings(With("DiscoveryAddresses", "10.0.0.255, host;b  c")).discovery_addresses,
      ElementsAre("10.0.0.255", "host", "b", "c"));
  EXPECT_THAT(ReadNetworkSettings(With("Engines", "a:1, b")).engines,
              ElementsAre(HostPort{"a", 1}, HostPort{"b", 47601}));
}

TEST(NetworkSettings, AValueOutOfRangeIsNamed) {
  EXPECT_THAT(ReasonOf([] { ReadNetworkSettings(With("Port", "70000")); }), HasSubstr("Port"));
  EXPECT_THAT(ReasonOf([] { ReadNetworkSettings(With("MaxMessageMiB", "4096")); }),
              HasSubstr("MaxMessageMiB"));
  EXPECT_THAT(ReasonOf([] { ReadNetworkSettings(With("AllowPlainText", "perhaps")); }),
              HasSubstr("AllowPlainText"));
  EXPECT_THAT(ReasonOf([] { ReadNetworkSettings(With("Engines", "a:b")); }), HasSubstr("\"a:b\""));
  EXPECT_THAT(ReasonOf([] { ReadNetworkSettings(With("Certificate", "a.pem")); }),
              HasSubstr("give all three"));
}

TEST(HostPorts, ReadsNamesAndAddresses) {
  EXPECT_EQ(ParseHostPort("host", 5), (HostPort{"host", 5}));
  EXPECT_EQ(ParseHostPort("host:7", 5), (HostPort{"host", 7}));
  EXPECT_EQ(ParseHostPort("10.1.2.3:7", 5), (HostPort{"10.1.2.3", 7}));
  EXPECT_EQ(ParseHostPort("[::1]:7", 5), (HostPort{"::1", 7}));
  EXPECT_EQ(ParseHostPort("[::1]", 5), (HostPort{"::1", 5}));
  EXPECT_EQ(ParseHostPort("fe80::1", 5), (HostPort{"fe80::1", 5}));
  for (const char* text :
       {"", ":7", "host:", "host:0", "host:65536", "host:7x", "[::1", "[::1]7", "[::1]:", "[]:7"}) {
    EXPECT_THAT(ReasonOf([&] { ParseHostPort(text, 5); }), HasSubstr("is no address")) << text;
  }
  EXPECT_EQ(ToText({"::1", 7}), "[::1]:7");
  EXPECT_EQ(ToText({"host", 7}), "host:7");
}

TEST(HostPorts, KnowsLoopback) {
  for (const char* host : {"127.0.0.1", "127.8.0.1", "::1", "localhost"}) {
    EXPECT_TRUE(IsLoopback(host)) << host;
  }
  for (const char* host : {"0.0.0.0", "10.0.0.1", "::", "127.0.0.1.example.com", "128.0.0.1", ""}) {
    EXPECT_FALSE(IsLoopback(host)) << host;
  }
}

}  // namespace
}  // namespace quarro::rpc
