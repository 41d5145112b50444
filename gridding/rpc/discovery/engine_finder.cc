#include "gridding/rpc/discovery/engine_finder.h"

#include <algorithm>
#include <array>
#include <list>
#include <map>
#include <random>
#include <set>
#include <span>
#include <tuple>

#include <boost/asio/buffer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/udp.hpp>
#include <boost/asio/steady_timer.hpp>

#include "gridding/rpc/discovery/discovery_packet.h"
#include "gridding/rpc/discovery/interfaces.h"
#include "support/exceptions.h"

namespace quarro::rpc {

namespace {

using boost::asio::ip::address_v4;
using boost::asio::ip::udp;
using boost::system::error_code;

constexpr std::size_t kMostEngines = 4096;  // whoever forges replies does not fill the memory
constexpr std::chrono::milliseconds kPauseAfterError{5};

std::uint64_t DrawNonce() {
  std::random_device random;
  return (std::uint64_t{random()} << 32U) | random();
}

auto PlaceOf(const QuarroSpec& engine) { return std::tuple(engine.ipv4_address, engine.port); }

// Loopback first, since it works whatever becomes of the network.
bool IsBetterWay(const QuarroSpec& engine, const QuarroSpec& than) {
  const auto rank = [](const QuarroSpec& spec) {
    return std::tuple(!address_v4(spec.ipv4_address).is_loopback(), PlaceOf(spec));
  };
  return rank(engine) < rank(than);
}

class Search {
 public:
  explicit Search(const DiscoverySettings& settings) : settings_(settings), resend_(context_) {}

  DiscoveryOutcome Run() {
    if (settings_.addresses.empty()) AskEveryInterface();
    AskListed();
    if (sockets_.empty() && !problems_.empty()) throw ExSGClientBase(*problems_.begin());
    for (Socket& socket : sockets_) Receive(socket);
    Send();
    resend_.expires_after(settings_.wait / 2);
    resend_.async_wait([this](const error_code& error) {
      if (!error) Send();
    });
    context_.run_for(settings_.wait);
    NameThoseWithoutAnswer();
    return {Engines(),
            {problems_.begin(), problems_.end()},
            {listed_problems_.begin(), listed_problems_.end()}};
  }

 private:
  struct Socket {
    explicit Socket(boost::asio::io_context& context) : socket(context), pause(context) {}

    udp::socket socket;
    boost::asio::steady_timer pause;
    std::vector<udp::endpoint> targets;
    bool is_listed = false;
    std::string engine;  // the listed one that is asked from here; empty: several places
    bool answered = false;
    udp::endpoint sender;
    // One byte more than a reply has, so that a longer datagram is told from a reply.
    std::array<std::uint8_t, kDiscoveryPacketBytes + 1> bytes{};
  };

  // A socket that sends from `address`; null, with a problem noted, when there is none.
  Socket* Open(const address_v4& address, const std::string& purpose) {
    Socket& socket = sockets_.emplace_back(context_);
    error_code error;
    socket.socket.open(udp::v4(), error);
    if (!error) socket.socket.set_option(udp::socket::broadcast(true), error);
    if (!error) socket.socket.bind({address, 0}, error);
    if (!error) socket.socket.non_blocking(true, error);
    if (!error) return &socket;
    problems_.insert("cannot look for engines " + purpose + ": " + error.message());
    sockets_.pop_back();
    return nullptr;
  }

  // Each from its own address, so that the request leaves there and engines can answer it.
  void AskEveryInterface() {
    for (const Interface& interface : BroadcastInterfaces()) {
      Socket* socket = Open(interface.address, "on the interface " + interface.name);
      if (socket != nullptr) {
        socket->targets.emplace_back(interface.broadcast, settings_.port);
      }
    }
  }

  void AskListed() {
    if (!settings_.addresses.empty()) {
      Socket* socket = OpenListed();
      for (const std::string& address : settings_.addresses) {
        AddTarget(socket, {address, settings_.port}, "DiscoveryAddresses");
      }
    }
    // Each from a socket of its own, which tells who answered: a machine of several addresses may
    // answer from another than it was asked at.
    for (const HostPort& engine : settings_.engines) {
      Socket* socket = OpenListed();
      if (AddTarget(socket, engine, "Engines")) {
        socket->engine = engine.host + ':' + std::to_string(engine.port);
      }
    }
  }

  Socket* OpenListed() {
    Socket* socket = Open(address_v4::any(), "at listed addresses");
    if (socket != nullptr) socket->is_listed = true;
    return socket;
  }

  bool AddTarget(Socket* socket, const HostPort& place, const char* key) {
    if (socket == nullptr) return false;
    try {
      socket->targets.emplace_back(ResolveIpv4(place.host), place.port);
      return true;
    } catch (const ExSGClientBase& failure) {
      listed_problems_.insert(std::string("parameter Network/") + key + ": " + failure.what());
      return false;
    }
  }

  void NameThoseWithoutAnswer() {
    for (const Socket& socket : sockets_) {
      if (socket.engine.empty() || socket.answered) continue;
      listed_problems_.insert("no answer from " + socket.engine +
                              " of Engines: is it up, and UDP and TCP of that port let through?");
    }
  }

  void Send() {
    const DiscoveryBytes request = Encode(DiscoveryRequest{nonce_});
    for (Socket& socket : sockets_) {
      for (const udp::endpoint& target : socket.targets) {
        error_code error;
        socket.socket.send_to(boost::asio::buffer(request), target, 0, error);
        // An earlier request that nobody took, at another target, is no failure of this one.
        if (error == boost::asio::error::connection_refused) {
          socket.socket.send_to(boost::asio::buffer(request), target, 0, error);
        }
        if (error) {
          (socket.is_listed ? listed_problems_ : problems_)
              .insert("cannot ask for engines at " + target.address().to_string() + ":" +
                      std::to_string(target.port()) + ": " + error.message());
        }
      }
    }
  }

  void Receive(Socket& socket) {
    socket.socket.async_receive_from(
        boost::asio::buffer(socket.bytes), socket.sender,
        [this, &socket](const error_code& error, std::size_t size) {
          if (!error) {
            if (Take(std::span(socket.bytes).first(size), socket.sender)) socket.answered = true;
            Receive(socket);
            return;
          }
          socket.pause.expires_after(kPauseAfterError);
          socket.pause.async_wait([this, &socket](const error_code&) { Receive(socket); });
        });
  }

  // False for what is no reply to this discovery.
  bool Take(std::span<const std::uint8_t> bytes, const udp::endpoint& sender) {
    const auto reply = ParseReply(bytes);
    if (!reply || reply->nonce != nonce_) return false;
    QuarroSpec engine = reply->engine;
    engine.ipv4_address = sender.address().to_v4().to_uint();
    const auto known = by_instance_.find(reply->instance);
    if (known == by_instance_.end()) {
      if (by_instance_.size() < kMostEngines) by_instance_.emplace(reply->instance, engine);
    } else if (IsBetterWay(engine, known->second)) {
      known->second = engine;
    }
    return true;
  }

  std::vector<QuarroSpec> Engines() const {
    std::map<std::tuple<std::uint32_t, std::uint32_t>, QuarroSpec> by_place;
    for (const auto& [instance, engine] : by_instance_) by_place.emplace(PlaceOf(engine), engine);
    std::vector<QuarroSpec> engines;
    engines.reserve(by_place.size());
    for (const auto& [place, engine] : by_place) engines.push_back(engine);
    return engines;
  }

  const DiscoverySettings& settings_;
  const std::uint64_t nonce_ = DrawNonce();
  boost::asio::io_context context_{1};
  boost::asio::steady_timer resend_;
  std::list<Socket> sockets_;
  std::map<std::uint64_t, QuarroSpec> by_instance_;
  std::set<std::string> problems_;
  std::set<std::string> listed_problems_;
};

}  // namespace

DiscoveryOutcome FindEngines(const DiscoverySettings& settings) { return Search(settings).Run(); }

}  // namespace quarro::rpc
