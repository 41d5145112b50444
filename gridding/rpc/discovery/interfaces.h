// The network interfaces of this machine, as far as discovery goes.
#pragma once

#include <string>
#include <vector>

#include <boost/asio/ip/address_v4.hpp>

namespace quarro::rpc {

struct Interface {
  std::string name;
  boost::asio::ip::address_v4 address;
  boost::asio::ip::address_v4 broadcast;  // reaches every host of the interface's network
};

// One entry an IPv4 address, of the interfaces that are up and have a broadcast address; loopback
// has 127.255.255.255. Sorted by address. Throws ExSGClientBase when the system gives none.
std::vector<Interface> BroadcastInterfaces();

// The first IPv4 address of a host name, or the address itself. Blocks while the name is looked up.
// Throws ExSGClientBase naming the host.
boost::asio::ip::address_v4 ResolveIpv4(const std::string& host);

}  // namespace quarro::rpc
