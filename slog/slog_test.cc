// Channels and the composition of messages.
#include "slog/slog.h"

#include <iomanip>
#include <locale>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quarro {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Keeps what it is given.
class MemoryDrain : public SlogDrain {
 public:
  void Write(const std::string& channel, int level, const std::string& text) override {
    const std::lock_guard lock(mutex_);
    lines_.push_back(channel + " " + std::to_string(level) + " " + text);
  }
  std::vector<std::string> Lines() const {
    const std::lock_guard lock(mutex_);
    return lines_;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> lines_;
};

// A drain whose disk is full while `broken`.
class FailingDrain : public SlogDrain {
 public:
  void Write(const std::string& /*channel*/, int /*level*/, const std::string& /*text*/) override {
    if (broken) throw std::runtime_error("no space left");
  }
  bool broken = true;
};

// A channel of the test's own name that writes to memory.
class Channel : public testing::Test {
 protected:
  Channel()
      : name_(testing::UnitTest::GetInstance()->current_test_info()->name()),
        drain_(std::make_shared<MemoryDrain>()),
        log_(name_) {
    log_.AddDrain(drain_);
  }
  ~Channel() override {
    log_.RemoveDrains();
    log_.SetFilter(SlogLevel(0));
  }

  // The message as the drain notes it.
  std::string Noted(int level, const std::string& text) const {
    return name_ + " " + std::to_string(level) + " " + text;
  }

  const std::string name_;
  const std::shared_ptr<MemoryDrain> drain_;
  Slog log_;
};

TEST_F(Channel, AMessageHasItsLevelAndAllTextUpToItsEnd) {
  log_ << SlogLevel(4);
  log_() << "could not open \""
         << "x"
         << "\"";
  log_() << ", error " << 5 << "." << endmsg;
  EXPECT_THAT(drain_->Lines(), ElementsAre(Noted(4, "could not open \"x\", error 5.")));
}

TEST_F(Channel, AMessageWithoutALevelHasLevelOne) {
  log_() << "text" << endmsg;
  EXPECT_THAT(drain_->Lines(), ElementsAre(Noted(1, "text")));
}

TEST_F(Channel, TheLevelFallsBackToOneAfterEachMessage) {
  log_ << SlogLevel(4);
  log_() << "first" << endmsg << "second" << endmsg;
  EXPECT_THAT(drain_->Lines(), ElementsAre(Noted(4, "first"), Noted(1, "second")));
}

TEST_F(Channel, TheLevelFallsBackToOneAfterADroppedMessage) {
  log_.SetFilter(SlogLevel(1));
  log_ << SlogLevel(0);
  log_() << "dropped" << endmsg << "kept" << endmsg;
  EXPECT_THAT(drain_->Lines(), ElementsAre(Noted(1, "kept")));
}

TEST_F(Channel, TheLevelInForceAtTheEndOfAMessageCounts) {
  log_.SetFilter(SlogLevel(7));
  log_ << SlogLevel(0);
  log_() << "(range: [";
  log_ << SlogLevel(0);
  log_() << ", ";
  log_ << SlogLevel(7);
  log_() << "])." << endmsg;
  EXPECT_THAT(drain_->Lines(), ElementsAre(Noted(7, "(range: [, ]).")));
}

TEST_F(Channel, MessagesBelowTheFilterAreDroppedWithTheirText) {
  log_.SetFilter(SlogLevel(3));
  EXPECT_EQ(log_.Filter(), 3);
  for (int level = 2; level <= 4; ++level) {
    log_ << SlogLevel(level);
    log_() << "level " << level << endmsg;
  }
  EXPECT_THAT(drain_->Lines(), ElementsAre(Noted(3, "level 3"), Noted(4, "level 4")));
}

TEST_F(Channel, TheFilterStartsAtZero) {
  EXPECT_EQ(log_.Filter(), 0);
  log_ << SlogLevel(0);
  log_() << "detail" << endmsg;
  log_ << SlogLevel(-1);
  log_() << "below" << endmsg;
  EXPECT_THAT(drain_->Lines(), ElementsAre(Noted(0, "detail")));
}

TEST_F(Channel, ObjectsOfOneNameShareItsDrainsAndItsFilter) {
  Slog other(name_);
  other() << "from the other" << endmsg;
  other.SetFilter(SlogLevel(2));
  EXPECT_EQ(log_.Filter(), 2);
  log_() << "dropped" << endmsg;
  EXPECT_THAT(drain_->Lines(), ElementsAre(Noted(1, "from the other")));
}

TEST_F(Channel, DrainsAndFilterOutliveTheObjectsThatSetThem) {
  const std::string name = name_ + " kept";
  {
    Slog first(name);
    first.AddDrain(drain_);
    first.SetFilter(SlogLevel(2));
  }
  Slog second(name);
  EXPECT_EQ(second.Filter(), 2);
  second << SlogLevel(2);
  second() << "text" << endmsg;
  EXPECT_THAT(drain_->Lines(), ElementsAre(name + " 2 text"));
  second.RemoveDrains();
}

TEST_F(Channel, ChannelsOfOtherNamesAreApart) {
  Slog other(name_ + " other");
  other.SetFilter(SlogLevel(5));
  EXPECT_EQ(log_.Filter(), 0);
  log_() << "text" << endmsg;
  EXPECT_THAT(drain_->Lines(), ElementsAre(Noted(1, "text")));
}

TEST_F(Channel, AChildComposesItsOwnMessagesOnTheParentsChannel) {
  log_ << SlogLevel(4);
  log_() << "parent begins, ";
  {
    Slog child(&log_);
    child() << "child" << endmsg;
    child.SetFilter(SlogLevel(1));
  }
  log_() << "parent ends" << endmsg;
  EXPECT_EQ(log_.Filter(), 1);
  EXPECT_THAT(drain_->Lines(),
              ElementsAre(Noted(1, "child"), Noted(4, "parent begins, parent ends")));
}

TEST_F(Channel, TextWithoutAnEndIsDroppedWithItsComposer) {
  {
    Slog child(&log_);
    child() << "unfinished";
  }
  EXPECT_THAT(drain_->Lines(), IsEmpty());
}

TEST_F(Channel, AnEmptyMessageIsAMessage) {
  log_() << endmsg;
  EXPECT_THAT(drain_->Lines(), ElementsAre(Noted(1, "")));
}

TEST_F(Channel, FormatsOfOneMessageDoNotLeakIntoTheNext) {
  log_() << std::fixed << std::setprecision(2) << std::hex << std::showbase << std::setfill('*')
         << 1.0 << " " << 255 << std::setw(9) << endmsg;
  log_() << 0.125 << " " << 255 << std::setw(3) << 7 << endmsg;
  EXPECT_THAT(drain_->Lines(), ElementsAre(Noted(1, "1.00 0xff"), Noted(1, "0.125 255  7")));
}

TEST_F(Channel, AFailedInsertionDoesNotSilenceTheNextMessage) {
  log_().setstate(std::ios::badbit);
  log_() << "lost" << endmsg;
  log_() << "heard" << endmsg;
  EXPECT_THAT(drain_->Lines(), ElementsAre(Noted(1, ""), Noted(1, "heard")));
}

TEST_F(Channel, NumbersDoNotDependOnTheGlobalLocale) {
  class CommaDecimals : public std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
  };
  const std::locale before =
      std::locale::global(std::locale(std::locale::classic(), new CommaDecimals));
  Slog made_under_it(name_);
  made_under_it() << 12345 << " " << 0.5 << endmsg;
  made_under_it() << 12345 << " " << 0.5 << endmsg;
  std::locale::global(before);
  EXPECT_THAT(drain_->Lines(), ElementsAre(Noted(1, "12345 0.5"), Noted(1, "12345 0.5")));
}

TEST_F(Channel, ADrainAddedTwiceWritesOnce) {
  log_.AddDrain(drain_);
  log_() << "once" << endmsg;
  EXPECT_THAT(drain_->Lines(), ElementsAre(Noted(1, "once")));
}

TEST_F(Channel, EveryDrainGetsEveryMessage) {
  const auto second = std::make_shared<MemoryDrain>();
  log_.AddDrain(second);
  log_() << "text" << endmsg;
  EXPECT_THAT(drain_->Lines(), ElementsAre(Noted(1, "text")));
  EXPECT_THAT(second->Lines(), ElementsAre(Noted(1, "text")));
}

TEST_F(Channel, RemovedDrainsGetNothingMoreAndAreReleased) {
  const auto second = std::make_shared<MemoryDrain>();
  log_.AddDrain(second);
  log_.RemoveDrains();
  EXPECT_EQ(second.use_count(), 1);
  testing::internal::CaptureStderr();
  log_() << "text" << endmsg;
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "text\n");
  EXPECT_THAT(second->Lines(), IsEmpty());
}

TEST_F(Channel, WithoutDrainsWritesToTheStandardErrorAboveItsFilter) {
  Slog bare(name_ + " bare");
  bare.SetFilter(SlogLevel(2));
  testing::internal::CaptureStderr();
  bare() << "dropped" << endmsg;
  bare << SlogLevel(4);
  bare() << "shown" << endmsg;
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "shown\n");
}

TEST_F(Channel, AFailingDrainIsReportedOnceAndTheOthersStillGetTheMessage) {
  Slog failing(name_ + " failing");
  const auto broken = std::make_shared<FailingDrain>();
  failing.AddDrain(broken);
  failing.AddDrain(drain_);
  const std::string report =
      "messages of channel \"" + name_ + " failing\" are being lost: no space left\n";

  testing::internal::CaptureStderr();
  EXPECT_NO_THROW(failing() << "one" << endmsg << "two" << endmsg);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), report);
  EXPECT_THAT(drain_->Lines(), ElementsAre(name_ + " failing 1 one", name_ + " failing 1 two"));

  broken->broken = false;
  failing() << "three" << endmsg;
  broken->broken = true;
  testing::internal::CaptureStderr();
  failing() << "four" << endmsg;
  EXPECT_EQ(testing::internal::GetCapturedStderr(), report);
  failing.RemoveDrains();
}

TEST_F(Channel, ThreadsShareAChannelWithoutMixingTheirMessages) {
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([this, i] {
      Slog log(name_);
      for (int j = 0; j < 200; ++j) log() << "thread " << i << " message " << j << endmsg;
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::vector<std::string> expected;
  for (int i = 0; i < 4; ++i) {
    for (int j = 0; j < 200; ++j) {
      expected.push_back(Noted(1, "thread " + std::to_string(i) + " message " + std::to_string(j)));
    }
  }
  EXPECT_THAT(drain_->Lines(), testing::UnorderedElementsAreArray(expected));
}

TEST_F(Channel, DrainsMayChangeWhileOtherThreadsLog) {
  const auto second = std::make_shared<MemoryDrain>();
  std::thread writer([this] {
    Slog log(name_);
    for (int j = 0; j < 500; ++j) log() << j << endmsg;
  });
  testing::internal::CaptureStderr();
  for (int i = 0; i < 100; ++i) {
    log_.RemoveDrains();
    log_.AddDrain(drain_);
    log_.AddDrain(second);
    log_.SetFilter(SlogLevel(1));
  }
  writer.join();
  testing::internal::GetCapturedStderr();
  log_() << "last" << endmsg;
  EXPECT_EQ(drain_->Lines().back(), Noted(1, "last"));
  EXPECT_EQ(second->Lines().back(), Noted(1, "last"));
}

TEST(Endmsg, OnAnotherStreamEndsTheLine) {
  std::ostringstream out;
  out << "text" << endmsg;
  EXPECT_EQ(out.str(), "text\n");
}

TEST(Endmsg, IsAFunctionWithAnAddress) {
  static_assert(std::is_same_v<decltype(&endmsg), std::ostream& (*)(std::ostream&)>);
  std::ostringstream out;
  out << reinterpret_cast<const void*>(&endmsg);
  EXPECT_THAT(out.str(), testing::StartsWith("0x"));
}

}  // namespace
}  // namespace quarro
