#include "gridding/rpc/discovery/request_rate.h"

#include <chrono>
#include <cstddef>
#include <random>
#include <vector>

#include <gtest/gtest.h>

namespace quarro::rpc {
namespace {

using std::chrono::milliseconds;

TEST(RequestRate, AsManyAsTheLimitPassWithinASecond) {
  const RequestRate::Clock::time_point begin = RequestRate::Clock::now();
  RequestRate rate(3);
  EXPECT_TRUE(rate.Admit(begin));
  EXPECT_TRUE(rate.Admit(begin + milliseconds(400)));
  EXPECT_TRUE(rate.Admit(begin + milliseconds(900)));
  EXPECT_FALSE(rate.Admit(begin + milliseconds(999)));
  EXPECT_TRUE(rate.Admit(begin + milliseconds(1000))) << "the first one is a second ago";
  EXPECT_FALSE(rate.Admit(begin + milliseconds(1399)));
  EXPECT_TRUE(rate.Admit(begin + milliseconds(1400)));
}

TEST(RequestRate, RefusedRequestsDoNotUseTheAllowance) {
  const RequestRate::Clock::time_point begin = RequestRate::Clock::now();
  RequestRate rate(1);
  EXPECT_TRUE(rate.Admit(begin));
  for (int i = 1; i < 1000; ++i) EXPECT_FALSE(rate.Admit(begin + milliseconds(i)));
  EXPECT_TRUE(rate.Admit(begin + milliseconds(1000)));
}

TEST(RequestRate, NoSecondHoldsMoreThanTheLimit) {
  constexpr std::size_t kLimit = 20;
  const unsigned seed = 4;
  std::mt19937 random(seed);
  std::exponential_distribution<> gap(0.03);  // about 30 a second, in bursts
  RequestRate rate(kLimit);
  RequestRate::Clock::time_point now = RequestRate::Clock::now();
  std::vector<RequestRate::Clock::time_point> admitted;
  for (int i = 0; i < 5000; ++i) {
    now += milliseconds(static_cast<int>(gap(random)));
    if (rate.Admit(now)) admitted.push_back(now);
  }
  ASSERT_GT(admitted.size(), 1000U) << "seed " << seed;
  for (std::size_t i = kLimit; i < admitted.size(); ++i) {
    EXPECT_GE(admitted[i] - admitted[i - kLimit], std::chrono::seconds(1)) << "seed " << seed;
  }
}

}  // namespace
}  // namespace quarro::rpc
