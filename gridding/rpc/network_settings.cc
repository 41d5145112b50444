#include "gridding/rpc/network_settings.h"

#include <algorithm>
#include <charconv>
#include <string_view>

#include <boost/asio/ip/address.hpp>

namespace quarro::rpc {

namespace {

constexpr const char* kSection = "Network";
constexpr long kMostMiB = 2047;  // gRPC counts a message's bytes in 32 bits with a sign
constexpr long kMostPoolMiB = 64L << 20U;
constexpr long kMany = 100'000'000;

// The parts between the separators, without white space around them; empty ones are left out.
std::vector<std::string> Split(const std::string& text, const char* separators) {
  std::vector<std::string> parts;
  std::size_t begin = 0;
  while (begin <= text.size()) {
    const std::size_t end = std::min(text.find_first_of(separators, begin), text.size());
    const std::string part = text.substr(begin, end - begin);
    const std::size_t first = part.find_first_not_of(" \t\r\n");
    if (first != std::string::npos) {
      parts.push_back(part.substr(first, part.find_last_not_of(" \t\r\n") - first + 1));
    }
    begin = end + 1;
  }
  return parts;
}

// Reads one section, and remembers what every reading of it needs.
class Section {
 public:
  explicit Section(const MParams& params) : params_(params) {}

  template <typename Number>
  void Read(const char* key, Number& value, long lowest, long highest) const {
    value = static_cast<Number>(
        LookupInteger(params_, kSection, key, static_cast<long>(value), lowest, highest));
  }
  void Read(const char* key, std::string& value) const {
    const std::string text = params_.Lookup(kSection, key);
    if (!text.empty()) value = text;
  }
  void Read(const char* key, bool& value) const {
    value = LookupFlag(params_, kSection, key, value);
  }
  void Read(const char* key, std::vector<HostPort>& value, std::uint16_t default_port) const {
    for (const std::string& part : List(key)) {
      try {
        value.push_back(ParseHostPort(part, default_port));
      } catch (const ExSGClientBase&) {
        throw ExSGClientBase(std::string("parameter ") + kSection + "/" + key + " holds \"" + part +
                             "\"; each entry must be host:port, or [host]:port for IPv6.");
      }
    }
  }
  std::vector<std::string> List(const char* key) const {
    return Split(params_.Lookup(kSection, key), ",; \t\r\n");
  }

 private:
  const MParams& params_;
};

void CheckCertificates(const NetworkSettings& settings) {
  const int given = (settings.certificate_authority.empty() ? 0 : 1) +
                    (settings.certificate.empty() ? 0 : 1) + (settings.private_key.empty() ? 0 : 1);
  if (given != 0 && given != 3) {
    throw ExSGClientBase(
        "parameters CertificateAuthority, Certificate and PrivateKey of section Network belong "
        "together: give all three, or none for plain text");
  }
}

}  // namespace

NetworkSettings ReadNetworkSettings(const MParams& params) {
  NetworkSettings settings;
  const Section section(params);
  section.Read("Address", settings.address);
  section.Read("Port", settings.port, 0, 65535);
  section.Read("DiscoveryPort", settings.discovery_port, 1, 65535);
  section.Read("DiscoveryWaitMs", settings.discovery_wait_ms, 1, 60'000);
  settings.discovery_addresses = section.List("DiscoveryAddresses");
  section.Read("Engines", settings.engines,
               settings.port != 0 ? settings.port : NetworkSettings().port);
  section.Read("ReconnectSeconds", settings.reconnect_seconds, 0, 86'400);
  section.Read("DetachSeconds", settings.detach_seconds, 0, 86'400);
  section.Read("CertificateAuthority", settings.certificate_authority);
  section.Read("Certificate", settings.certificate);
  section.Read("PrivateKey", settings.private_key);
  section.Read("AllowPlainText", settings.allow_plain_text);
  section.Read("SurveyDirectories", settings.survey_directories);
  section.Read("MaxMessageMiB", settings.max_message_mib, 1, kMostMiB);
  section.Read("MaxSessions", settings.max_sessions, 1, 10'000);
  section.Read("MaxQueueLength", settings.max_queue_length, 1, kMany);
  section.Read("MaxWaitingResults", settings.max_waiting_results, 1, kMany);
  section.Read("MaxResultPoolMiB", settings.max_result_pool_mib, 1, kMostPoolMiB);
  section.Read("MaxDiscoveryRequestsPerSecond", settings.max_discovery_requests_per_second, 1,
               1'000'000);
  section.Read("MetricsAddress", settings.metrics_address);
  CheckCertificates(settings);
  return settings;
}

HostPort ParseHostPort(const std::string& text, std::uint16_t default_port) {
  const auto refuse = [&] {
    throw ExSGClientBase("\"" + text +
                         "\" is no address: write host:port, or [host]:port for IPv6");
  };
  HostPort parsed{text, default_port};
  std::string_view port;
  const std::size_t colon = text.rfind(':');
  if (text.starts_with('[')) {
    const std::size_t bracket = text.find(']');
    if (bracket == std::string::npos) refuse();
    parsed.host = text.substr(1, bracket - 1);
    const std::string_view rest = std::string_view(text).substr(bracket + 1);
    if (!rest.empty() && (rest.front() != ':' || rest.size() == 1)) refuse();
    if (!rest.empty()) port = rest.substr(1);
  } else if (colon != std::string::npos && text.find(':') == colon) {
    parsed.host = text.substr(0, colon);
    port = std::string_view(text).substr(colon + 1);
    if (port.empty()) refuse();
  }  // several colons without brackets are an IPv6 address alone
  if (!port.empty()) {
    const auto [end, error] = std::from_chars(port.data(), port.data() + port.size(), parsed.port);
    if (error != std::errc() || end != port.data() + port.size() || parsed.port == 0) refuse();
  }
  if (parsed.host.empty()) refuse();
  return parsed;
}

std::string ToText(const HostPort& host_port) {
  const bool ipv6 = host_port.host.find(':') != std::string::npos;
  return (ipv6 ? "[" + host_port.host + "]" : host_port.host) + ":" +
         std::to_string(host_port.port);
}

bool IsLoopback(const std::string& host) {
  if (host == "localhost") return true;
  boost::system::error_code error;
  const auto address = boost::asio::ip::make_address(host, error);
  return !error && address.is_loopback();
}

}  // namespace quarro::rpc
