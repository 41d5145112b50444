#include "gridding/rpc/network_settings.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "gridding/local/engine_test_support.h"
#include "gridding/service/parameter_table.h"
#include "gridding/service/test_parameter_manual.h"

namespace quarro::rpc {
namespace {

using quarro::testing::ReasonOf;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

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
  EXPECT_THAT(settings.discovery_addresses, IsEmpty());
  EXPECT_THAT(settings.engines, IsEmpty());
  EXPECT_EQ(settings.reconnect_seconds, 30U);
  EXPECT_EQ(settings.detach_seconds, 3U);
  EXPECT_EQ(settings.certificate_authority, "");
  EXPECT_EQ(settings.certificate, "");
  EXPECT_EQ(settings.private_key, "");
  EXPECT_FALSE(settings.UsesTls());
  EXPECT_FALSE(settings.allow_plain_text);
  EXPECT_EQ(settings.survey_directories, ".");
  EXPECT_EQ(settings.max_message_mib, 4U);
  EXPECT_EQ(settings.max_sessions, 64U);
  EXPECT_EQ(settings.max_queue_length, 100000U);
  EXPECT_EQ(settings.max_waiting_results, 10000U);
  EXPECT_EQ(settings.max_result_pool_mib, 16384U);
  EXPECT_EQ(settings.max_discovery_requests_per_second, 50U);
  EXPECT_EQ(settings.metrics_address, "");
}

// Every member, as the manual writes it.
std::vector<std::string> TextsOf(const NetworkSettings& settings) {
  std::string engines;
  for (const HostPort& engine : settings.engines) engines += ToText(engine);
  std::string addresses;
  for (const std::string& address : settings.discovery_addresses) addresses += address;
  return {settings.address,
          std::to_string(settings.port),
          std::to_string(settings.discovery_port),
          std::to_string(settings.discovery_wait_ms),
          addresses,
          engines,
          std::to_string(settings.reconnect_seconds),
          std::to_string(settings.detach_seconds),
          settings.certificate_authority,
          settings.certificate,
          settings.private_key,
          settings.allow_plain_text ? "true" : "false",
          settings.survey_directories,
          std::to_string(settings.max_message_mib),
          std::to_string(settings.max_sessions),
          std::to_string(settings.max_queue_length),
          std::to_string(settings.max_waiting_results),
          std::to_string(settings.max_result_pool_mib),
          std::to_string(settings.max_discovery_requests_per_second),
          settings.metrics_address};
}

TEST(NetworkSettings, DefaultsAndTheirOrderAreThoseOfTheManual) {
  std::vector<std::string> told;
  for (const service::ManualRow& row : service::ReadParameterManual()) {
    if (row.section == "Network") told.push_back(row.fallback);
  }
  EXPECT_EQ(told, TextsOf(ReadNetworkSettings(MParams())));
}

TEST(NetworkSettings, EveryDefaultOfTheTableIsOneThatReadingTakes) {
  MParams params;
  for (const service::ParameterInfo& info : service::ParameterTable()) {
    if (std::string(info.section) == "Network") params.Set(info.section, info.key, info.fallback);
  }
  EXPECT_EQ(TextsOf(ReadNetworkSettings(params)), TextsOf(ReadNetworkSettings(MParams())));
}

TEST(NetworkSettings, TheManualTellsWhatIsAllowed) {
  int told = 0;
  for (const service::ManualRow& row : service::ReadParameterManual()) {
    if (row.section != "Network" || row.RefusalSays().empty()) continue;
    EXPECT_THAT(ReasonOf([&] { ReadNetworkSettings(row.With("?")); }), EndsWith(row.RefusalSays()))
        << row.key;
    ++told;
  }
  EXPECT_EQ(told, 12);  // of numbers and flags
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

TEST(NetworkSettings, AnEntryOfEnginesThatIsNoAddressIsNamedWithItsKey) {
  EXPECT_EQ(ReasonOf([&] { ReadNetworkSettings(With("Engines", "10.0.0.1, nest:port")); }),
            "parameter Network/Engines holds \"nest:port\"; each entry must be host:port, or "
            "[host]:port for IPv6.");
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
