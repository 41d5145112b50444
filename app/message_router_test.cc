// Messages of call-backs: queued, numbered, or written through to a file.
#include "app/message_router.h"

#include <iterator>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/command_fixture.h"

namespace quarro {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Router : public CommandFixture {
 protected:
  MessageRouter& Messages() { return State().messages; }
  static std::string ContentOf(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
  }
};

TEST_F(Router, NumbersTheMessagesOfEachFlushFromOne) {
  Messages().PostMessage("first");
  Messages().PostMessage("second");
  EXPECT_FALSE(Messages().Empty());
  EXPECT_THAT(Flushed(), ElementsAre("1 [M1] first", "1 [M2] second"));
  EXPECT_TRUE(Messages().Empty());
  Messages().PostMessage("third");
  EXPECT_THAT(Flushed(), ElementsAre("1 [M1] third"));
}

TEST_F(Router, WritesQueuedAndLaterMessagesToTheFileAsTheyAre) {
  Messages().PostMessage("first");
  Messages().PostMessage("second");
  const std::string path = File("messages", "kept\n");
  EXPECT_TRUE(Messages().RedirectToFile(path, true));
  EXPECT_TRUE(Messages().ToFile());
  EXPECT_EQ(ContentOf(path), "kept\nfirst\nsecond\n");
  Messages().PostMessage("third");
  EXPECT_EQ(ContentOf(path), "kept\nfirst\nsecond\nthird\n");
  EXPECT_THAT(Flushed(), IsEmpty());
}

TEST_F(Router, QueuesAgainAfterTheSwitchBackToTheConsole) {
  const std::string path = File("messages", "");
  EXPECT_TRUE(Messages().RedirectToFile(path, true));
  Messages().RedirectToConsole();
  EXPECT_FALSE(Messages().ToFile());
  Messages().PostMessage("later");
  EXPECT_EQ(ContentOf(path), "");
  testing::internal::CaptureStderr();
  Messages().FlushMessages();
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "[M1] later\n");
}

TEST_F(Router, UsesAFileInADirectory) {
  File("unrelated", "");
  EXPECT_TRUE(Messages().RedirectToFile(folder_.string(), true));
  Messages().PostMessage("text");
  EXPECT_EQ(ContentOf((folder_ / "quarro_messages.txt").string()), "text\n");
}

TEST_F(Router, KeepsMessagesWhenTheFileCannotBeWritten) {
  Messages().PostMessage("first");
  EXPECT_FALSE(Messages().RedirectToFile("/nowhere/messages", true));
  EXPECT_FALSE(Messages().ToFile());
  testing::internal::CaptureStderr();
  Messages().FlushMessages();
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "[M1] first\n");
}

TEST_F(Router, WritesToTheStandardErrorAtOnceAfterAnotherFileCouldNotBeOpened) {
  const std::string path = File("messages", "");
  EXPECT_TRUE(Messages().RedirectToFile(path, true));
  EXPECT_FALSE(Messages().RedirectToFile("/nowhere/messages", true));
  EXPECT_TRUE(Messages().ToFile());
  testing::internal::CaptureStderr();
  Messages().PostMessage("text");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "text\n");
  EXPECT_TRUE(Messages().Empty());
  EXPECT_EQ(ContentOf(path), "");
}

TEST_F(Router, LosesNothingOfWhatSeveralThreadsPost) {
  constexpr int kEach = 200;
  auto post = [this] {
    for (int i = 0; i < kEach; ++i) {
      Messages().PostMessage("m");
    }
  };
  std::thread one(post);
  std::thread two(post);
  one.join();
  two.join();
  const Lines lines = Flushed();
  ASSERT_EQ(lines.size(), 2U * kEach);
  EXPECT_EQ(lines.back(), "1 [M400] m");
}

}  // namespace
}  // namespace quarro
