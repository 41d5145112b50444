#include "gridding/service/job_queue.h"

#include <array>
#include <future>
#include <memory>
#include <string>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "gridding/local/engine_test_support.h"

namespace quarro::service {
namespace {

using testing::Replies;

// A job that says when it begins and ends when it is let go.
class HeldJob {
 public:
  JobQueue::Job Job() {
    return [this](const CancelFlag&) {
      begun_.set_value();
      go_on_.get_future().wait();
      return FinishedWith(ResultPosAck());
    };
  }
  void WaitUntilBegun() { begun_.get_future().wait(); }
  void LetGo() { go_on_.set_value(); }

 private:
  std::promise<void> begun_;
  std::promise<void> go_on_;
};

JobQueue::Job Acknowledge() {
  return [](const CancelFlag&) { return FinishedWith(ResultPosAck()); };
}

TEST(JobQueue, WhatWaitsIsCountedApartFromWhatRuns) {
  Replies replies;
  Delivery delivery;
  JobQueue queue(2, delivery);
  const auto accept = [&] {
    return delivery.Accept(replies.Expect(), RequestKind::kDepth, Order::kFree);
  };
  std::array<HeldJob, 2> held;
  for (HeldJob& job : held) {
    queue.Submit(accept(), {}, job.Job());
    job.WaitUntilBegun();
  }
  EXPECT_EQ(queue.waiting(), 0U);
  for (int i = 0; i < 3; ++i) queue.Submit(accept(), {}, Acknowledge());
  EXPECT_EQ(queue.waiting(), 3U);
  EXPECT_EQ(queue.unfinished(), 5U);
  for (HeldJob& job : held) job.LetGo();
  queue.WaitUntilIdle();
  EXPECT_EQ(queue.unfinished(), 0U);
  replies.Wait();
}

TEST(JobQueue, TheExpectedTimeGrowsWithTheQueueAndTheBoxesInIt) {
  Replies replies;
  Delivery delivery;
  JobQueue queue(1, delivery);
  const auto accept = [&] {
    return delivery.Accept(replies.Expect(), RequestKind::kDepth, Order::kFree);
  };
  EXPECT_EQ(queue.ExpectedSeconds(), 0.0);
  HeldJob held;
  queue.Submit(accept(), {}, held.Job());
  held.WaitUntilBegun();
  queue.Submit(accept(), {1e9, true}, Acknowledge());
  const double one_s = queue.ExpectedSeconds();
  EXPECT_GT(one_s, 0.0);
  queue.Submit(accept(), {1e9, true}, Acknowledge());
  const double two_s = queue.ExpectedSeconds();
  EXPECT_NEAR(two_s, 2.0 * one_s, 0.01 * one_s);
  queue.Submit(accept(), {1e7, true}, Acknowledge());
  EXPECT_NEAR(queue.ExpectedSeconds(), 2.01 * one_s, 0.005 * one_s);
  held.LetGo();
  replies.Wait();
  queue.WaitUntilIdle();
  EXPECT_EQ(queue.ExpectedSeconds(), 0.0);
}

TEST(JobQueue, WhatIsLeftOfARunningJobIsExpectedToo) {
  Replies replies;
  Delivery delivery;
  JobQueue queue(1, delivery);
  HeldJob held;
  queue.Submit(delivery.Accept(replies.Expect(), RequestKind::kDepth, Order::kFree), {1e9, true},
               held.Job());
  held.WaitUntilBegun();
  EXPECT_EQ(queue.waiting(), 0U);
  const double first_s = queue.ExpectedSeconds();
  EXPECT_GT(first_s, 100.0);
  EXPECT_LT(queue.ExpectedSeconds(), first_s) << "time has gone by";
  held.LetGo();
  replies.Wait();
}

TEST(JobQueue, AThreadBeginsNoOtherJobUntilTheCallBackOfTheLastHasBegun) {
  Replies replies;
  Delivery delivery;
  std::promise<void> go_on;
  const std::shared_future<void> may_go_on = go_on.get_future().share();
  for (int i = 0; i < Delivery::kFreeThreads; ++i) {
    const auto blocker = delivery.Accept([may_go_on](const SEResultToken&) { may_go_on.wait(); },
                                         RequestKind::kDepth, Order::kFree);
    delivery.Deliver(blocker, std::make_unique<ResultPosAck>(), 0);
  }
  JobQueue queue(1, delivery);
  const auto submit = [&](const std::string& name) {
    queue.Submit(delivery.Accept(replies.Expect(), RequestKind::kDepth, Order::kFree), {},
                 [&replies, name](const CancelFlag&) {
                   replies.Note(name);
                   return FinishedWith(ResultPosAck());
                 });
  };
  HeldJob first;
  queue.Submit(delivery.Accept(replies.Expect(), RequestKind::kDepth, Order::kFree), {},
               first.Job());
  submit("second begins");
  first.WaitUntilBegun();
  first.LetGo();
  // Its result is in the pool, and its call-back waits for a thread.
  while (delivery.pool().size() <= Delivery::kFreeThreads) std::this_thread::yield();
  EXPECT_EQ(queue.waiting(), 1U);
  replies.Note("call-backs go on");
  go_on.set_value();
  replies.Wait();
  const auto names = replies.Names();
  EXPECT_EQ(names.front(), "call-backs go on");
  EXPECT_THAT(names, ::testing::Contains("second begins"));
}

TEST(JobQueue, CallBacksInOrderHoldUpNoJob) {
  Delivery delivery;
  JobQueue queue(1, delivery);
  std::promise<void> second_runs;
  const auto first = delivery.Accept([&](const SEResultToken&) { second_runs.get_future().wait(); },
                                     RequestKind::kLine, Order::kInOrder);
  const auto second = delivery.Accept({}, RequestKind::kLine, Order::kInOrder);
  queue.Submit(first, {}, Acknowledge());
  queue.Submit(second, {}, [&](const CancelFlag&) {
    second_runs.set_value();
    return FinishedWith(ResultPosAck());
  });
  queue.WaitUntilIdle();
  delivery.WaitForAll();
  EXPECT_EQ(queue.unfinished(), 0U);
}

}  // namespace
}  // namespace quarro::service
