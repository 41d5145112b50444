// Look-ups of host names, quick, slow and failing.
#include "cli/host_names.h"

#include <atomic>
#include <chrono>
#include <future>
#include <stdexcept>

#include <gtest/gtest.h>

namespace quarro {
namespace {

constexpr std::uint32_t kAddress = 0xc0a80107;  // 192.168.1.7

TEST(HostNames, AQuickAnswerShowsAtOnceAndIsKept) {
  std::atomic<int> lookups = 0;
  HostNames names([&](std::uint32_t address) {
    ++lookups;
    return "engine-" + std::to_string(address & 0xffU);
  });
  EXPECT_EQ(names.NameOf(kAddress), "engine-7");
  EXPECT_EQ(names.NameOf(kAddress), "engine-7");
  EXPECT_EQ(names.NameOf(kAddress + 1), "engine-8");
  EXPECT_EQ(lookups, 2);
}

TEST(HostNames, ASlowAnswerShowsTheAddressFirst) {
  std::promise<std::string> answer;
  auto later = answer.get_future();
  HostNames names([&](std::uint32_t) { return later.get(); });
  const auto before = std::chrono::steady_clock::now();
  EXPECT_EQ(names.NameOf(kAddress), "192.168.1.7");
  EXPECT_EQ(names.NameOf(kAddress), "192.168.1.7");
  EXPECT_LT(std::chrono::steady_clock::now() - before, 10 * HostNames::kFirstWait);
  answer.set_value("engine-7");
  while (names.NameOf(kAddress) != "engine-7") {
    std::this_thread::yield();
  }
}

TEST(HostNames, AFailedLookupLeavesTheAddress) {
  HostNames names([](std::uint32_t) -> std::string { throw std::runtime_error("no answer"); });
  EXPECT_EQ(names.NameOf(kAddress), "192.168.1.7");
  EXPECT_EQ(names.NameOf(kAddress), "192.168.1.7");
}

TEST(HostNames, TheSystemKnowsThisMachine) {
  HostNames names;
  EXPECT_FALSE(names.NameOf(0x7f000001).empty());
}

TEST(HostNames, EndsWithoutHavingBeenAsked) { const HostNames names; }

}  // namespace
}  // namespace quarro
