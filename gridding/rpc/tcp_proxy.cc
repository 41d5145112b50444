#include "gridding/rpc/tcp_proxy.h"

#include <array>
#include <stdexcept>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace quarro::testing {

namespace {

constexpr int kTickMs = 5;

sockaddr_in Loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return address;
}

}  // namespace

TcpProxy::TcpProxy(std::uint16_t server_port) : server_port_(server_port) {
  listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = Loopback(0);
  socklen_t size = sizeof(address);
  if (::bind(listener_, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
      ::listen(listener_, 16) != 0 ||
      ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    throw std::runtime_error("no port for the proxy");
  }
  port_ = ntohs(address.sin_port);
  thread_ = std::thread([this] { Run(); });
}

TcpProxy::~TcpProxy() {
  stopping_ = true;
  thread_.join();
  ::close(listener_);
}

void TcpProxy::Accept() {
  const int client = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
  if (client < 0) return;
  const int server = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = Loopback(server_port_);
  const int on = 1;
  for (const int end : {client, server}) {
    ::setsockopt(end, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
  }
  if (broken_ || ::connect(server, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
    ::close(client);
    ::close(server);
    return;
  }
  ways_.push_back({client, server});
}

bool TcpProxy::Pass(int from, int to, bool from_server) {
  std::array<char, 65536> bytes;
  const ssize_t got = ::recv(from, bytes.data(), bytes.size(), 0);
  if (got <= 0) return false;
  for (ssize_t sent = 0; sent < got;) {
    const ssize_t part =
        ::send(to, bytes.data() + sent, static_cast<std::size_t>(got - sent), MSG_NOSIGNAL);
    if (part <= 0) return false;
    sent += part;
  }
  if (!from_server || bytes_left_ == UINT64_MAX) return true;
  if (bytes_left_ <= static_cast<std::uint64_t>(got)) {
    bytes_left_ = UINT64_MAX;
    return false;
  }
  bytes_left_ -= static_cast<std::uint64_t>(got);
  return true;
}

void TcpProxy::Run() {
  const auto close_all = [this] {
    for (const Way& way : ways_) {
      ::close(way.client);
      ::close(way.server);
    }
    ways_.clear();
  };
  while (!stopping_) {
    const bool broken = broken_;
    if (cut_once_.exchange(false) || broken) close_all();
    if (broken) {
      all_closed_ = true;
      all_closed_.notify_all();
    }
    std::vector<pollfd> ends{{listener_, POLLIN, 0}};
    if (!stalled_) {
      for (const Way& way : ways_) {
        ends.push_back({way.client, POLLIN, 0});
        ends.push_back({way.server, POLLIN, 0});
      }
    }
    ::poll(ends.data(), ends.size(), kTickMs);
    std::size_t end = 1;
    for (auto way = ways_.begin(); end + 1 < ends.size() && way != ways_.end(); end += 2) {
      bool open = true;
      if (ends[end].revents != 0) open = Pass(way->client, way->server, false);
      if (open && ends[end + 1].revents != 0) open = Pass(way->server, way->client, true);
      if (open) {
        ++way;
        continue;
      }
      ::close(way->client);
      ::close(way->server);
      way = ways_.erase(way);
    }
    if (ends[0].revents != 0) Accept();
  }
  close_all();
}

}  // namespace quarro::testing
