// What the parameter file tells of the network, for the server and for the client alike.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "support/mparams.h"

namespace quarro::rpc {

// An address with a TCP port.
struct HostPort {
  std::string host;  // name, IPv4 address, or IPv6 address without brackets
  std::uint16_t port = 0;

  friend bool operator==(const HostPort&, const HostPort&) = default;
};

// Section Network of the parameter file. The members stand in the order of the manual's table.
struct NetworkSettings {
  std::string address = "127.0.0.1";     // on which the server listens
  std::uint16_t port = 47601;            // TCP, for requests; 0: any free one
  std::uint16_t discovery_port = 47600;  // UDP
  std::uint32_t discovery_wait_ms = 500;
  // To which a discovery is sent; empty: the broadcast address of every interface, and loopback.
  std::vector<std::string> discovery_addresses;
  std::vector<HostPort> engines;  // asked directly, beside the discovery
  std::uint32_t reconnect_seconds = 30;
  std::uint32_t detach_seconds = 3;

  // PEM files. All three or none: with them both sides prove who they are.
  std::string certificate_authority;
  std::string certificate;
  std::string private_key;
  bool allow_plain_text = false;  // beyond loopback

  std::string survey_directories = ".";  // parted by ';' or ':'

  std::uint32_t max_message_mib = 4;
  std::uint32_t max_sessions = 64;
  std::uint32_t max_queue_length = 100000;    // requests of a session not yet completed
  std::uint32_t max_waiting_results = 10000;  // of a session, completed and not yet fetched
  std::uint32_t max_result_pool_mib = 16384;  // of a session
  std::uint32_t max_discovery_requests_per_second = 50;

  std::string metrics_address;  // "127.0.0.1:9464"; empty: no metrics

  bool UsesTls() const { return !certificate.empty(); }
};

// Throws ExSGClientBase for a value out of range, naming it and what is allowed.
NetworkSettings ReadNetworkSettings(const MParams& params);

// "host:port", "1.2.3.4:5", "[::1]:5" or a host alone, which gets `default_port`. Throws
// ExSGClientBase naming the text.
HostPort ParseHostPort(const std::string& text, std::uint16_t default_port);

// The form that ParseHostPort reads.
std::string ToText(const HostPort& host_port);

// True for 127.x.x.x, ::1 and "localhost": nobody on another machine reaches it.
bool IsLoopback(const std::string& host);

}  // namespace quarro::rpc
