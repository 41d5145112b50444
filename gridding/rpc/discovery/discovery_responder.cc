#include "gridding/rpc/discovery/discovery_responder.h"

#include <array>
#include <atomic>
#include <chrono>
#include <list>
#include <optional>
#include <random>
#include <span>
#include <thread>

#include <boost/asio/buffer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/udp.hpp>
#include <boost/asio/steady_timer.hpp>

#include "gridding/rpc/discovery/discovery_packet.h"
#include "gridding/rpc/discovery/interfaces.h"
#include "gridding/rpc/discovery/request_rate.h"
#include "support/exceptions.h"

namespace quarro::rpc {

namespace {

using boost::asio::ip::address_v4;
using boost::asio::ip::udp;
using boost::system::error_code;

// A socket reports what went wrong with an earlier reply at its next receive: go on, but not in a
// tight loop.
constexpr std::chrono::milliseconds kPauseAfterError{20};

enum class Sharing { kShared, kAlone };

std::uint64_t DrawInstance() {
  std::random_device random;
  return (std::uint64_t{random()} << 32U) | random();
}

// The broadcast address of the network of `address`, if it has one.
std::optional<address_v4> BroadcastAddressOf(const address_v4& address) {
  for (const Interface& interface : BroadcastInterfaces()) {
    // Loopback serves all of 127.x.x.x, any other interface its own address.
    const bool serves =
        interface.address == address || (interface.address.is_loopback() && address.is_loopback());
    if (serves && interface.broadcast != address) return interface.broadcast;
  }
  return std::nullopt;
}

}  // namespace

class DiscoveryResponder::Impl {
 public:
  Impl(const std::string& address, std::uint16_t discovery_port, const QuarroSpec& engine,
       std::uint32_t requests_per_second)
      : rate_(requests_per_second) {
    const address_v4 own = ResolveIpv4(address);
    reply_.instance = DrawInstance();
    reply_.engine = engine;
    reply_.engine.ipv4_address = own.to_uint();
    Socket& shared = Open({own, discovery_port}, Sharing::kShared);
    discovery_port_ = shared.socket.local_endpoint().port();
    if (const auto broadcast = BroadcastAddressOf(own)) {
      Open({*broadcast, discovery_port_}, Sharing::kShared).answer_from = &shared.socket;
    }
    if (engine.port != discovery_port_) {
      Open({own, static_cast<std::uint16_t>(engine.port)}, Sharing::kAlone);
    }
    for (Socket& socket : sockets_) Receive(socket);
    thread_ = std::thread([this] { context_.run(); });
  }

  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  ~Impl() {
    context_.stop();
    thread_.join();
  }

  std::uint16_t Port() const { return discovery_port_; }

  Counts Count() const { return {answered_.load(), over_the_limit_.load(), malformed_.load()}; }

 private:
  struct Socket {
    explicit Socket(boost::asio::io_context& context) : socket(context), pause(context) {}

    udp::socket socket;
    udp::socket* answer_from = &socket;
    boost::asio::steady_timer pause;
    udp::endpoint sender;
    // One byte more than a request has, so that a longer datagram is told from a request.
    std::array<std::uint8_t, kDiscoveryPacketBytes + 1> bytes{};
  };

  Socket& Open(const udp::endpoint& endpoint, Sharing sharing) {
    Socket& socket = sockets_.emplace_back(context_);
    error_code error;
    socket.socket.open(udp::v4(), error);
    if (!error && sharing == Sharing::kShared) {
      socket.socket.set_option(udp::socket::reuse_address(true), error);
    }
    if (!error) socket.socket.bind(endpoint, error);
    if (!error) socket.socket.non_blocking(true, error);
    if (error) {
      throw ExSGClientBase(
          "cannot listen for discovery requests on UDP " + endpoint.address().to_string() + ":" +
          std::to_string(endpoint.port()) + " (" + error.message() +
          "): check parameters Address, Port and DiscoveryPort of section Network");
    }
    return socket;
  }

  void Receive(Socket& socket) {
    socket.socket.async_receive_from(
        boost::asio::buffer(socket.bytes), socket.sender,
        [this, &socket](const error_code& error, std::size_t size) {
          if (!error) {
            Answer(socket, std::span(socket.bytes).first(size));
            Receive(socket);
            return;
          }
          socket.pause.expires_after(kPauseAfterError);
          socket.pause.async_wait([this, &socket](const error_code&) { Receive(socket); });
        });
  }

  void Answer(Socket& socket, std::span<const std::uint8_t> bytes) {
    const auto request = ParseRequest(bytes);
    if (!request) {
      ++malformed_;
      return;
    }
    if (!rate_.Admit(RequestRate::Clock::now())) {
      ++over_the_limit_;
      return;
    }
    reply_.nonce = request->nonce;
    error_code error;
    // A reply that cannot leave is as lost as one that gets lost on its way: the client asks again.
    socket.answer_from->send_to(boost::asio::buffer(Encode(reply_)), socket.sender, 0, error);
    if (!error) ++answered_;
  }

  boost::asio::io_context context_{1};
  std::list<Socket> sockets_;  // after context_, since they are destroyed first
  std::uint16_t discovery_port_ = 0;

  // The thread's own once it runs.
  RequestRate rate_;
  DiscoveryReply reply_;

  std::atomic<std::uint64_t> answered_{0};
  std::atomic<std::uint64_t> over_the_limit_{0};
  std::atomic<std::uint64_t> malformed_{0};
  std::thread thread_;
};

DiscoveryResponder::DiscoveryResponder(const std::string& address, std::uint16_t discovery_port,
                                       const QuarroSpec& engine, std::uint32_t requests_per_second)
    : impl_(std::make_unique<Impl>(address, discovery_port, engine, requests_per_second)) {}

DiscoveryResponder::~DiscoveryResponder() = default;

std::uint16_t DiscoveryResponder::DiscoveryPort() const { return impl_->Port(); }

DiscoveryResponder::Counts DiscoveryResponder::Count() const { return impl_->Count(); }

}  // namespace quarro::rpc
