// Clients and engines that find each other over links, each machine a network namespace.
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include "gridding/rpc/discovery/discovery_responder.h"
#include "gridding/rpc/discovery/engine_finder.h"

namespace quarro::rpc {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::uint16_t kPort = 47600;
constexpr std::uint32_t kMany = 100000;  // requests a second

// A machine of its own, as far as the network goes: loopback is up, links are to come.
class Machine {
 public:
  Machine() {
    OnThread([this] {
      if (unshare(CLONE_NEWNET) != 0) throw std::system_error(errno, std::generic_category());
      file_ = open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
      if (file_ < 0) throw std::system_error(errno, std::generic_category());
    });
    Ip("link set lo up");
  }
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;
  ~Machine() { close(file_); }

  // Runs `act` as a program of this machine would; sockets opened in it stay here.
  void Run(const std::function<void()>& act) const {
    OnThread([&] {
      if (setns(file_, CLONE_NEWNET) != 0) throw std::system_error(errno, std::generic_category());
      act();
    });
  }

  void Ip(const std::string& command) const {
    Run([&] {
      const int status = std::system(("ip " + command).c_str());  // NOLINT(concurrency-mt-unsafe)
      if (status != 0) throw std::runtime_error("ip " + command + " failed");
    });
  }

  // A link between two machines, called `name` on both sides.
  void Link(const Machine& other, const std::string& name, const std::string& own_address,
            const std::string& other_address) const {
    Ip("link add " + name + " type veth peer name " + name + " netns /proc/" +
       std::to_string(getpid()) + "/fd/" + std::to_string(other.file_));
    for (const auto& [machine, address] :
         {std::pair(this, own_address), std::pair(&other, other_address)}) {
      machine->Ip("address add " + address + "/24 broadcast + dev " + name);
      machine->Ip("link set " + name + " up");
    }
  }

  std::unique_ptr<DiscoveryResponder> StartEngine(const std::string& address,
                                                  std::uint32_t port) const {
    std::unique_ptr<DiscoveryResponder> engine;
    Run([&] {
      engine =
          std::make_unique<DiscoveryResponder>(address, kPort, QuarroSpec{1, 1, 1, port, 0}, kMany);
    });
    return engine;
  }

  DiscoveryOutcome Find(std::vector<HostPort> engines = {}) const {
    DiscoveryOutcome outcome;
    Run([&] {
      outcome = FindEngines({.port = kPort,
                             .wait = std::chrono::milliseconds(1000),
                             .addresses = {},
                             .engines = std::move(engines)});
    });
    return outcome;
  }

 private:
  static void OnThread(const std::function<void()>& act) {
    std::exception_ptr failure;
    std::thread([&] {
      try {
        act();
      } catch (...) {
        failure = std::current_exception();
      }
    }).join();
    if (failure) std::rethrow_exception(failure);
  }

  int file_ = -1;
};

std::uint32_t Address(std::uint32_t network, std::uint32_t host) {
  return (10U << 24U) | (network << 8U) | host;
}

QuarroSpec Engine(std::uint32_t port, std::uint32_t address) { return {1, 1, 1, port, address}; }

class DiscoveryOverLinks : public ::testing::Test {
 protected:
  void SetUp() override {
    try {
      client_ = std::make_unique<Machine>();
      server_ = std::make_unique<Machine>();
      server_->Link(*client_, "near", "10.0.1.1", "10.0.1.2");
      server_->Link(*client_, "far", "10.0.2.1", "10.0.2.2");
    } catch (const std::exception& reason) {
      GTEST_SKIP() << "network namespaces cannot be made here: " << reason.what();
    }
  }

  std::unique_ptr<Machine> client_;
  std::unique_ptr<Machine> server_;
};

TEST_F(DiscoveryOverLinks, AnEngineOnEveryInterfaceIsFoundOnceThoughItAnswersOnTwoLinks) {
  const auto engine = server_->StartEngine("0.0.0.0", 4001);
  EXPECT_THAT(client_->Find().engines, ElementsAre(Engine(4001, Address(1, 1))));
  EXPECT_EQ(engine->Count().answered, 4U) << "two requests on each of two links";
}

TEST_F(DiscoveryOverLinks, AnEngineOfOneAddressAnswersOnItsLinkOnly) {
  const auto engine = server_->StartEngine("10.0.2.1", 4001);
  EXPECT_THAT(client_->Find().engines, ElementsAre(Engine(4001, Address(2, 1))));
  EXPECT_EQ(engine->Count().answered, 2U);
}

TEST_F(DiscoveryOverLinks, AnEngineOfLoopbackIsFoundOnItsOwnMachineOnly) {
  const auto engine = server_->StartEngine("127.0.0.1", 4001);
  EXPECT_THAT(client_->Find({{"10.0.1.1", 4001}, {"10.0.2.1", kPort}}).engines, IsEmpty());
  EXPECT_EQ(engine->Count().answered, 0U);
  EXPECT_THAT(server_->Find().engines, ElementsAre(Engine(4001, 0x7f000001)));
}

TEST_F(DiscoveryOverLinks, SeveralEnginesOfSeveralMachinesComeSortedByAddressAndPort) {
  const auto second = server_->StartEngine("10.0.1.1", 4002);
  const auto first = server_->StartEngine("10.0.1.1", 4001);
  const auto third = server_->StartEngine("10.0.2.1", 4000);
  const auto own = client_->StartEngine("0.0.0.0", 4000);
  EXPECT_THAT(client_->Find().engines,
              ElementsAre(Engine(4001, Address(1, 1)), Engine(4002, Address(1, 1)),
                          Engine(4000, Address(2, 1)), Engine(4000, 0x7f000001)));
}

TEST_F(DiscoveryOverLinks, AnEngineBeyondTheBroadcastDomainIsAskedDirectly) {
  const Machine beyond;
  server_->Link(beyond, "on", "10.0.3.1", "10.0.3.2");
  server_->Run([] {
    ASSERT_EQ(std::system("echo 1 > /proc/sys/net/ipv4/ip_forward"),
              0);  // NOLINT(concurrency-mt-unsafe)
  });
  client_->Ip("route add default via 10.0.1.1");
  beyond.Ip("route add default via 10.0.3.1");
  const auto engine = beyond.StartEngine("0.0.0.0", 4001);
  EXPECT_THAT(client_->Find().engines, IsEmpty());
  EXPECT_THAT(client_->Find({{"10.0.3.2", 4001}}).engines,
              ElementsAre(Engine(4001, Address(3, 2))));
}

TEST_F(DiscoveryOverLinks, ALinkThatIsDownIsNoFailureOfTheOthers) {
  const auto engine = server_->StartEngine("0.0.0.0", 4001);
  client_->Ip("link set near down");
  EXPECT_THAT(client_->Find().engines, ElementsAre(Engine(4001, Address(2, 1))));
  client_->Ip("link set far down");
  client_->Ip("link set lo down");
  const DiscoveryOutcome outcome = client_->Find();
  EXPECT_THAT(outcome.engines, IsEmpty());
}

TEST_F(DiscoveryOverLinks, WhereDatagramsGetLostTheSecondRequestFindsTheEngine) {
  const auto engine = server_->StartEngine("0.0.0.0", 4001);
  client_->Ip("link set far down");
  client_->Ip("link set near down");
  // The link comes back between the first request and the second.
  std::thread repair([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    client_->Ip("link set near up");
  });
  DiscoveryOutcome outcome;
  client_->Run([&] {
    outcome = FindEngines({.port = kPort,
                           .wait = std::chrono::seconds(2),
                           .addresses = {"10.0.1.255"},
                           .engines = {}});
  });
  repair.join();
  EXPECT_THAT(outcome.engines, ElementsAre(Engine(4001, Address(1, 1))));
}

}  // namespace
}  // namespace quarro::rpc
