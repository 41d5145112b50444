// Clients and engines that find each other on loopback.
#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <boost/asio/buffer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/udp.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "gridding/rpc/discovery/discovery_packet.h"
#include "gridding/rpc/discovery/discovery_responder.h"
#include "gridding/rpc/discovery/engine_finder.h"
#include "support/exceptions.h"

namespace quarro::rpc {
namespace {

using boost::asio::ip::address_v4;
using boost::asio::ip::udp;
using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr std::uint32_t kLoopback = 0x7f000001;
constexpr std::uint32_t kMany = 100000;  // requests a second

// A UDP socket on loopback that is driven by hand.
class Datagrams {
 public:
  explicit Datagrams(std::uint16_t port = 0)
      : socket_(context_, udp::endpoint(address_v4::loopback(), port)) {
    socket_.non_blocking(true);
  }

  std::uint16_t Port() const { return socket_.local_endpoint().port(); }

  template <typename Bytes>
  void Send(const Bytes& bytes, const udp::endpoint& to) {
    socket_.send_to(boost::asio::buffer(bytes), to);
  }
  template <typename Bytes>
  void Send(const Bytes& bytes, std::uint16_t port) {
    Send(bytes, udp::endpoint(address_v4::loopback(), port));
  }

  // What comes within `wait`, empty if nothing does; `sender` tells from where.
  std::vector<std::uint8_t> Receive(milliseconds wait, udp::endpoint& sender) {
    std::vector<std::uint8_t> bytes(2048);
    std::size_t received = 0;
    socket_.async_receive_from(boost::asio::buffer(bytes), sender,
                               [&](const boost::system::error_code& error, std::size_t size) {
                                 if (!error) received = size;
                               });
    context_.restart();
    if (context_.run_one_for(wait) == 0) {
      socket_.cancel();
      context_.run();
    }
    bytes.resize(received);
    return bytes;
  }

 private:
  boost::asio::io_context context_;
  udp::socket socket_;
};

std::uint16_t FreePort() { return Datagrams().Port(); }

QuarroSpec Engine(std::uint16_t port, std::uint32_t threads = 4) {
  return {.protocol_version = 3,
          .engine_version = (1U << 16U) | 2U,
          .threads = threads,
          .port = port,
          .ipv4_address = 0};
}

QuarroSpec At(QuarroSpec engine, std::uint32_t address) {
  engine.ipv4_address = address;
  return engine;
}

DiscoverySettings Ask(std::uint16_t port, milliseconds wait = milliseconds(300)) {
  return {.port = port, .wait = wait, .addresses = {}, .engines = {}};
}

std::string ReasonOf(const std::function<void()>& act) {
  try {
    act();
  } catch (const ExSGClientBase& failure) {
    return failure.what();
  }
  return "no exception";
}

// Looks on until `condition` holds; false when it does not come to that.
bool Comes(const std::function<bool()>& condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::yield();
  }
  return true;
}

TEST(Discovery, AnEngineIsFoundWithItsFiveWordsAndTheAddressOfTheDatagram) {
  const QuarroSpec engine = Engine(FreePort());
  const DiscoveryResponder responder("127.0.0.1", 0, engine, kMany);
  const DiscoveryOutcome outcome = FindEngines(Ask(responder.DiscoveryPort()));
  EXPECT_THAT(outcome.engines, ElementsAre(At(engine, kLoopback)));
  EXPECT_THAT(outcome.problems, IsEmpty());
}

TEST(Discovery, SeveralEnginesOfOneMachineShareThePortAndComeSortedByTheirOwn) {
  std::vector<QuarroSpec> engines;
  std::vector<std::unique_ptr<DiscoveryResponder>> responders;
  std::uint16_t port = 0;
  for (std::uint32_t i = 0; i < 5; ++i) {
    engines.push_back(Engine(FreePort(), i + 1));
    responders.push_back(
        std::make_unique<DiscoveryResponder>("127.0.0.1", port, engines[i], kMany));
    port = responders[i]->DiscoveryPort();
  }
  std::sort(engines.begin(), engines.end(),
            [](const QuarroSpec& a, const QuarroSpec& b) { return a.port < b.port; });
  for (QuarroSpec& engine : engines) engine.ipv4_address = kLoopback;
  EXPECT_EQ(FindEngines(Ask(port)).engines, engines);
  EXPECT_EQ(FindEngines(Ask(port)).engines, engines) << "and in the same order again";
}

TEST(Discovery, AnEngineOnEveryInterfaceAppearsOnceWithItsLoopbackAddress) {
  const QuarroSpec engine = Engine(FreePort());
  const DiscoveryResponder responder("0.0.0.0", 0, engine, kMany);
  EXPECT_THAT(FindEngines(Ask(responder.DiscoveryPort())).engines,
              ElementsAre(At(engine, kLoopback)));
}

TEST(Discovery, AnotherLoopbackAddressIsFoundByTheBroadcast) {
  const QuarroSpec engine = Engine(FreePort());
  const DiscoveryResponder responder("127.1.2.3", 0, engine, kMany);
  EXPECT_THAT(FindEngines(Ask(responder.DiscoveryPort())).engines,
              ElementsAre(At(engine, 0x7f010203)));
}

TEST(Discovery, AListedEngineIsAskedDirectlyAndDuplicatesAreDropped) {
  const QuarroSpec engine = Engine(FreePort());
  const DiscoveryResponder responder("127.0.0.1", 0, engine, kMany);
  const auto port = static_cast<std::uint16_t>(engine.port);
  DiscoverySettings settings = Ask(FreePort());
  settings.engines = {{"127.0.0.1", port}};
  EXPECT_THAT(FindEngines(settings).engines, ElementsAre(At(engine, kLoopback)));
  settings.port = responder.DiscoveryPort();
  settings.engines = {{"localhost", port}, {"127.0.0.1", port}};
  EXPECT_THAT(FindEngines(settings).engines, ElementsAre(At(engine, kLoopback)));
}

TEST(Discovery, OnlyListedAddressesAreAskedIfThereAreAny) {
  const QuarroSpec here = Engine(FreePort());
  const DiscoveryResponder first("127.0.0.1", 0, here, kMany);
  const QuarroSpec there = Engine(FreePort());
  const DiscoveryResponder second("127.0.0.2", first.DiscoveryPort(), there, kMany);
  DiscoverySettings settings = Ask(first.DiscoveryPort());
  settings.addresses = {"127.0.0.2"};
  EXPECT_THAT(FindEngines(settings).engines, ElementsAre(At(there, 0x7f000002)));
  settings.addresses = {"127.255.255.255"};
  EXPECT_THAT(FindEngines(settings).engines,
              ElementsAre(At(here, kLoopback), At(there, 0x7f000002)));
}

TEST(Discovery, WhereNobodyAnswersTheListIsEmptyAfterTheWholeWait) {
  const auto begin = std::chrono::steady_clock::now();
  const DiscoveryOutcome outcome = FindEngines(Ask(FreePort(), milliseconds(200)));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, milliseconds(200));
  EXPECT_THAT(outcome.engines, IsEmpty());
}

TEST(Discovery, AListedEngineThatIsDownDoesNotHideTheOthers) {
  const QuarroSpec engine = Engine(FreePort());
  const DiscoveryResponder responder("127.0.0.1", 0, engine, kMany);
  DiscoverySettings settings = Ask(FreePort());
  settings.engines = {{"127.0.0.1", FreePort()},
                      {"no_such_host.invalid", 1},
                      {"127.0.0.1", static_cast<std::uint16_t>(engine.port)}};
  const DiscoveryOutcome outcome = FindEngines(settings);
  EXPECT_THAT(outcome.engines, ElementsAre(At(engine, kLoopback)));
  EXPECT_THAT(outcome.listed_problems,
              ElementsAre("no answer from 127.0.0.1:" + std::to_string(settings.engines[0].port) +
                              " of Engines: is it up, and UDP and TCP of that port let through?",
                          HasSubstr("parameter Network/Engines: the host \"no_such_host.invalid\" "
                                    "has no IPv4 address")));
  EXPECT_THAT(outcome.problems, IsEmpty());
}

TEST(Discovery, AnEngineThatIsListedUnderTwoNamesAndAnswersIsNotMissed) {
  const QuarroSpec engine = Engine(FreePort());
  // It answers from 127.0.0.1, whichever address of the machine it was asked at.
  const DiscoveryResponder responder("0.0.0.0", 0, engine, kMany);
  const auto port = static_cast<std::uint16_t>(engine.port);
  DiscoverySettings settings = Ask(FreePort());
  settings.engines = {{"localhost", port}, {"127.0.0.1", port}, {"127.0.0.9", port}};
  const DiscoveryOutcome outcome = FindEngines(settings);
  EXPECT_THAT(outcome.engines, ElementsAre(At(engine, kLoopback)));
  EXPECT_THAT(outcome.listed_problems, IsEmpty());
}

TEST(Discovery, AListedAddressThatHasNoHostIsNamedWithItsKey) {
  DiscoverySettings settings = Ask(FreePort());
  settings.addresses = {"no_such_host.invalid"};
  EXPECT_THAT(FindEngines(settings).listed_problems,
              ElementsAre(HasSubstr("parameter Network/DiscoveryAddresses: the host ")));
}

TEST(Discovery, AnEngineThatIsGoneIsNotFound) {
  std::uint16_t port = 0;
  {
    const DiscoveryResponder responder("127.0.0.1", 0, Engine(FreePort()), kMany);
    port = responder.DiscoveryPort();
  }
  EXPECT_THAT(FindEngines(Ask(port)).engines, IsEmpty());
}

TEST(DiscoveryResponder, MalformedDatagramsAreIgnoredAndCounted) {
  const DiscoveryResponder responder("127.0.0.1", 0, Engine(FreePort()), kMany);
  Datagrams client;
  DiscoveryBytes other_version = Encode(DiscoveryRequest{1});
  other_version[5] = 2;
  client.Send(std::string(), responder.DiscoveryPort());
  client.Send(std::string("hello"), responder.DiscoveryPort());
  client.Send(std::string(1400, 'Q'), responder.DiscoveryPort());
  client.Send(other_version, responder.DiscoveryPort());
  client.Send(Encode(DiscoveryReply{1, 2, Engine(3)}), responder.DiscoveryPort());
  ASSERT_TRUE(Comes([&] { return responder.Count().malformed == 5; }));
  client.Send(Encode(DiscoveryRequest{77}), responder.DiscoveryPort());
  udp::endpoint sender;
  const auto reply = ParseReply(client.Receive(std::chrono::seconds(20), sender));
  ASSERT_TRUE(reply) << "the first answer is that to the request";
  EXPECT_EQ(reply->nonce, 77U);
  EXPECT_TRUE(Comes([&] { return responder.Count().answered == 1; }));
}

TEST(DiscoveryResponder, RequestsOverTheLimitAreDroppedAndCounted) {
  const DiscoveryResponder responder("127.0.0.1", 0, Engine(FreePort()), 3);
  Datagrams client;
  // All within one second of the first answer, or the responder is that slow that more may pass.
  const auto begin = std::chrono::steady_clock::now();
  for (std::uint64_t nonce = 1; nonce <= 50; ++nonce) {
    client.Send(Encode(DiscoveryRequest{nonce}), responder.DiscoveryPort());
  }
  ASSERT_TRUE(Comes([&] {
    const auto count = responder.Count();
    return count.answered + count.over_the_limit == 50;
  }));
  if (std::chrono::steady_clock::now() - begin < std::chrono::seconds(1)) {
    EXPECT_EQ(responder.Count().answered, 3U);
    EXPECT_EQ(responder.Count().over_the_limit, 47U);
  }
  // It goes on once the second is over.
  std::uint64_t nonce = 1000;
  EXPECT_TRUE(Comes([&] {
    client.Send(Encode(DiscoveryRequest{++nonce}), responder.DiscoveryPort());
    udp::endpoint sender;
    const auto reply = ParseReply(client.Receive(milliseconds(50), sender));
    return reply && reply->nonce > 1000;
  }));
}

TEST(DiscoveryResponder, AnAddressThatIsNotOfThisMachineIsNamedWithTheRemedy) {
  EXPECT_THAT(ReasonOf([] { DiscoveryResponder("203.0.113.9", 0, Engine(1), 1); }),
              HasSubstr("cannot listen for discovery requests on UDP 203.0.113.9:0"));
  EXPECT_THAT(ReasonOf([] { DiscoveryResponder("no_such_host.invalid", 0, Engine(1), 1); }),
              HasSubstr("the host \"no_such_host.invalid\" has no IPv4 address"));
  const Datagrams somebody;
  const std::string port = std::to_string(somebody.Port());
  EXPECT_THAT(ReasonOf([&] { DiscoveryResponder("127.0.0.1", somebody.Port(), Engine(1), 1); }),
              HasSubstr("127.0.0.1:" + port + " (Address already in use): check parameters"));
  EXPECT_THAT(ReasonOf([&] { DiscoveryResponder("127.0.0.1", 0, Engine(somebody.Port()), 1); }),
              HasSubstr("127.0.0.1:" + port + " (Address already in use): check parameters"));
}

using Packets = std::vector<std::vector<std::uint8_t>>;

// Plays an engine that answers a discovery with what `replies` makes of the nonce.
class Impostor {
 public:
  using Replies = std::function<Packets(std::uint64_t nonce)>;

  explicit Impostor(Replies replies)
      : port_(socket_.Port()), thread_([this, replies = std::move(replies)] { Run(replies); }) {}
  Impostor(const Impostor&) = delete;
  Impostor& operator=(const Impostor&) = delete;
  ~Impostor() {
    Datagrams().Send(std::string("end"), port_);
    thread_.join();
  }

  std::uint16_t Port() const { return port_; }

 private:
  void Run(const Replies& replies) {
    udp::endpoint sender;
    for (;;) {
      const auto bytes = socket_.Receive(std::chrono::seconds(60), sender);
      const auto request = ParseRequest(bytes);
      if (!request) return;
      for (const auto& reply : replies(request->nonce)) socket_.Send(reply, sender);
    }
  }

  Datagrams socket_;
  const std::uint16_t port_;
  std::thread thread_;
};

std::vector<std::uint8_t> Bytes(const DiscoveryReply& reply) {
  const DiscoveryBytes bytes = Encode(reply);
  return {bytes.begin(), bytes.end()};
}

std::vector<QuarroSpec> FoundAt(const Impostor& impostor) {
  DiscoverySettings settings = Ask(FreePort());
  settings.engines = {{"127.0.0.1", impostor.Port()}};
  return FindEngines(settings).engines;
}

TEST(FindEngines, MalformedRepliesAreIgnored) {
  const Impostor impostor([](std::uint64_t nonce) {
    Packets replies = {{}, {1, 2, 3}};
    replies.emplace_back(60000, std::uint8_t{7});
    const DiscoveryReply good{nonce, 5, Engine(1234)};
    replies.push_back(Bytes({nonce, 6, Engine(0)}));
    replies.push_back(Bytes({nonce, 6, Engine(1235, 0)}));
    for (const std::size_t length : {43U, 45U}) {
      replies.push_back(Bytes(good));
      replies.back().resize(length);
    }
    replies.push_back(Bytes(good));
    return replies;
  });
  EXPECT_THAT(FoundAt(impostor), ElementsAre(At(Engine(1234), kLoopback)));
}

TEST(FindEngines, RepliesToEarlierRequestsAreIgnored) {
  const Impostor impostor([](std::uint64_t nonce) {
    return Packets{Bytes({nonce + 1, 1, Engine(1)}), Bytes({0, 2, Engine(2)}),
                   Bytes({nonce, 3, Engine(3)})};
  });
  EXPECT_THAT(FoundAt(impostor), ElementsAre(At(Engine(3), kLoopback)));
}

TEST(FindEngines, TheAddressThatAReplyNamesIsNotBelieved) {
  const Impostor impostor([](std::uint64_t nonce) {
    return Packets{Bytes({nonce, 1, At(Engine(1), 0xcb007101)})};
  });
  EXPECT_THAT(FoundAt(impostor), ElementsAre(At(Engine(1), kLoopback)));
}

TEST(FindEngines, TwoEnginesThatClaimOnePlaceAreOne) {
  const Impostor impostor([](std::uint64_t nonce) {
    return Packets{Bytes({nonce, 1, Engine(1)}), Bytes({nonce, 2, Engine(1)})};
  });
  EXPECT_THAT(FoundAt(impostor), ElementsAre(At(Engine(1), kLoopback)));
}

TEST(FindEngines, EachDiscoveryDrawsANonceOfItsOwn) {
  std::vector<std::uint64_t> nonces;
  {
    const Impostor impostor([&](std::uint64_t nonce) {
      nonces.push_back(nonce);
      return Packets{};
    });
    FoundAt(impostor);
    FoundAt(impostor);
  }
  ASSERT_EQ(nonces.size(), 4U) << "each asks twice";
  EXPECT_EQ(nonces[0], nonces[1]);
  EXPECT_EQ(nonces[2], nonces[3]);
  EXPECT_NE(nonces[0], nonces[2]);
}

}  // namespace
}  // namespace quarro::rpc
