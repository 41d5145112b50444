#include "gridding/rpc/discovery/interfaces.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <system_error>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/udp.hpp>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

#include "support/exceptions.h"

namespace quarro::rpc {

namespace {

using boost::asio::ip::address_v4;

std::optional<address_v4> Ipv4Of(const sockaddr* address) {
  if (address == nullptr || address->sa_family != AF_INET) return std::nullopt;
  sockaddr_in ipv4{};
  std::memcpy(&ipv4, address, sizeof(ipv4));
  return address_v4(ntohl(ipv4.sin_addr.s_addr));
}

std::optional<Interface> InterfaceOf(const ifaddrs& entry) {
  const auto address = Ipv4Of(entry.ifa_addr);
  if (!address || (entry.ifa_flags & IFF_UP) == 0) return std::nullopt;
  if ((entry.ifa_flags & IFF_LOOPBACK) != 0) {
    const auto mask = Ipv4Of(entry.ifa_netmask);
    if (!mask) return std::nullopt;
    return Interface{entry.ifa_name, *address,
                     address_v4(address->to_uint() | ~static_cast<std::uint32_t>(mask->to_uint()))};
  }
  const auto broadcast = Ipv4Of(entry.ifa_broadaddr);
  if ((entry.ifa_flags & IFF_BROADCAST) == 0 || !broadcast) return std::nullopt;
  return Interface{entry.ifa_name, *address, *broadcast};
}

}  // namespace

std::vector<Interface> BroadcastInterfaces() {
  ifaddrs* first = nullptr;
  if (getifaddrs(&first) != 0) {
    throw ExSGClientBase("cannot list the network interfaces: " +
                         std::error_code(errno, std::generic_category()).message());
  }
  const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(first, &freeifaddrs);
  std::vector<Interface> found;
  for (const ifaddrs* entry = first; entry != nullptr; entry = entry->ifa_next) {
    if (auto interface = InterfaceOf(*entry)) found.push_back(std::move(*interface));
  }
  std::sort(found.begin(), found.end(),
            [](const Interface& a, const Interface& b) { return a.address < b.address; });
  return found;
}

address_v4 ResolveIpv4(const std::string& host) {
  boost::asio::io_context context;
  boost::asio::ip::udp::resolver resolver(context);
  boost::system::error_code error;
  const auto results = resolver.resolve(boost::asio::ip::udp::v4(), host, "", error);
  if (error || results.empty()) {
    throw ExSGClientBase("the host \"" + host + "\" has no IPv4 address" +
                         (error ? " (" + error.message() + ")" : "") +
                         "; give a name that can be looked up, or an address like 192.168.1.7");
  }
  return results.begin()->endpoint().address().to_v4();
}

}  // namespace quarro::rpc
