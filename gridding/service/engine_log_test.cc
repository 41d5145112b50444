#include "gridding/service/engine_log.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "gridding/local/engine_test_support.h"
#include "gridding/service/delivery.h"
#include "gridding/service/job_queue.h"

namespace quarro::service {
namespace {

using ::testing::ElementsAre;

TEST(EngineLog, ASinkTakesTheMessagesOfItsThreadWhileItIsInForce) {
  const testing::EngineLog channel;
  std::vector<std::string> taken;
  {
    const EngineLogScope scope(
        std::make_shared<const EngineLogSink>([&](int level, const std::string& text) {
          taken.push_back(std::to_string(level) + text);
        }));
    LogEngine(kLogWarning, " for the sink");
    {
      const EngineLogScope none(nullptr);
      LogEngine(kLogStep, "for the channel");
    }
    LogEngine(kLogStep, " again");
  }
  LogEngine(kLogStep, "afterwards");
  EXPECT_THAT(taken, ElementsAre("3 for the sink", "1 again"));
  EXPECT_EQ(channel.Text(), "1 for the channel\n1 afterwards\n");
}

TEST(EngineLog, TheThreadsOfAQueueKeepTheSinkWithWhichTheyWereMade) {
  const testing::EngineLog channel;
  std::vector<std::string> taken;
  Delivery delivery;
  {
    const auto make_queue = [&] {
      const EngineLogScope scope(std::make_shared<const EngineLogSink>(
          [&](int, const std::string& text) { taken.push_back(text); }));
      return std::make_unique<JobQueue>(1, delivery);
    };
    const auto queue = make_queue();
    const auto request = delivery.Accept({}, RequestKind::kLine, Order::kInOrder);
    queue->Submit(request, {}, [](const CancelFlag&) {
      LogEngine(kLogStep, "of the job");
      return FinishedWith(ResultPosAck());
    });
    delivery.WaitFor(request);
  }
  EXPECT_THAT(taken, ElementsAre("of the job"));
  EXPECT_EQ(channel.Text(), "");
}

}  // namespace
}  // namespace quarro::service
