// The file drain and the console drain.
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "slog/slog.h"
#include "support/exceptions.h"
#include "support/test_directory.h"

namespace quarro {
namespace {

class FileDrain : public testing::Test {
 protected:
  std::string Refusal(const std::string& path) {
    try {
      SlogFileDrain drain(path, true, false, ' ');
    } catch (const ExTarn& error) {
      return error.who();
    }
    return "accepted";
  }

  TestDirectory directory_;
  const std::string path_ = directory_.Path("log.txt");
};

TEST_F(FileDrain, OpensItsFileAtOnce) {
  const SlogFileDrain drain(path_, true, false, ' ');
  EXPECT_TRUE(std::filesystem::exists(path_));
}

TEST_F(FileDrain, EachMessageIsInTheFileWhenTheCallReturns) {
  SlogFileDrain drain(path_, true, false, ' ');
  drain.Write("engine", 4, "one");
  EXPECT_EQ(ReadWholeFile(path_), "one\n");
  drain.Write("engine", 4, "two\nlines {} %v");
  EXPECT_EQ(ReadWholeFile(path_), "one\ntwo\nlines {} %v\n");
}

TEST_F(FileDrain, AppendingKeepsWhatTheFileHolds) {
  directory_.Write("log.txt", "old\n");
  SlogFileDrain(path_, true, false, ' ').Write("engine", 1, "new");
  EXPECT_EQ(ReadWholeFile(path_), "old\nnew\n");
}

TEST_F(FileDrain, WithoutAppendingTheFileStartsEmpty) {
  directory_.Write("log.txt", "old\n");
  SlogFileDrain drain(path_, false, false, ' ');
  EXPECT_EQ(ReadWholeFile(path_), "");
  drain.Write("engine", 1, "new");
  EXPECT_EQ(ReadWholeFile(path_), "new\n");
}

// The time that leads a stamped line, in whole seconds since 1970.
std::time_t StampedSeconds(const std::string& line) {
  std::tm utc{};
  ::strptime(line.c_str(), "%Y-%m-%dT%H:%M:%S", &utc);
  return ::timegm(&utc);
}

// By the clock of the stamps: time() may lag behind it by some milliseconds.
std::time_t SecondsNow() {
  return std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
}

TEST_F(FileDrain, StampedMessagesAreLedByUtcTimeLevelAndChannel) {
  SlogFileDrain drain(path_, true, true, ' ');
  const std::time_t before = SecondsNow();
  drain.Write("engine", 4, "some text\nand more");
  const std::time_t after = SecondsNow();
  const std::string content = ReadWholeFile(path_);
  EXPECT_THAT(content, testing::MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}"
                                             "\\.[0-9]{6}Z 4 engine some text\nand more\n"));
  EXPECT_GE(StampedSeconds(content), before);
  EXPECT_LE(StampedSeconds(content), after);
}

// Puts the process into another time zone for as long as it lives. For one thread.
class TimeZone {
 public:
  explicit TimeZone(const char* zone) {
    // NOLINTBEGIN(concurrency-mt-unsafe)
    const char* const before = ::getenv("TZ");
    if (before != nullptr) before_ = before;
    ::setenv("TZ", zone, 1);
    ::tzset();
    // NOLINTEND(concurrency-mt-unsafe)
  }
  TimeZone(const TimeZone&) = delete;
  TimeZone& operator=(const TimeZone&) = delete;
  ~TimeZone() {
    // NOLINTBEGIN(concurrency-mt-unsafe)
    if (before_) {
      ::setenv("TZ", before_->c_str(), 1);
    } else {
      ::unsetenv("TZ");
    }
    ::tzset();
    // NOLINTEND(concurrency-mt-unsafe)
  }

 private:
  std::optional<std::string> before_;
};

TEST_F(FileDrain, TheStampIsUtcWhereverTheProgramRuns) {
  const TimeZone nine_hours_ahead("XYZ-9");
  const std::time_t before = SecondsNow();
  SlogFileDrain(path_, true, true, ' ').Write("engine", 1, "text");
  const std::time_t after = SecondsNow();
  EXPECT_GE(StampedSeconds(ReadWholeFile(path_)), before);
  EXPECT_LE(StampedSeconds(ReadWholeFile(path_)), after);
}

TEST_F(FileDrain, TheSeparatorPartsTheFieldsOfAStampedMessage) {
  for (const char separator : {'\t', '|', '%', ';'}) {
    SlogFileDrain drain(path_, false, true, separator);
    drain.Write("engine", 12, "a text");
    const std::string content = ReadWholeFile(path_);
    EXPECT_EQ(content.substr(std::string("2026-11-21T07:03:12.123456Z").size()),
              std::string(1, separator) + "12" + separator + "engine" + separator + "a text\n");
  }
}

TEST_F(FileDrain, AFileThatCannotBeWrittenIsRefusedWithNameAndReason) {
  EXPECT_EQ(Refusal(directory_.Path()),
            "log file \"" + directory_.Path() + "\" cannot be written: Is a directory.");
  EXPECT_EQ(Refusal(""), "log file \"\" cannot be written: No such file or directory.");
  const std::string below_a_file = directory_.Write("file", "") + "/log.txt";
  EXPECT_EQ(Refusal(below_a_file),
            "log file \"" + below_a_file + "\" cannot be written: Not a directory.");
}

TEST_F(FileDrain, MissingFoldersAreNotMade) {
  const std::string path = directory_.Path("absent/log.txt");
  EXPECT_EQ(Refusal(path),
            "log file \"" + path + "\" cannot be written: No such file or directory.");
  EXPECT_FALSE(std::filesystem::exists(directory_.Path("absent")));
}

TEST_F(FileDrain, AFullDiskIsReportedOnceAndDoesNotStopTheProgram) {
  if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "no /dev/full here";
  Slog log("full disk");
  log.AddDrain(std::make_shared<SlogFileDrain>("/dev/full", true, false, ' '));
  log.AddDrain(std::make_shared<SlogFileDrain>(path_, true, false, ' '));
  testing::internal::CaptureStderr();
  EXPECT_NO_THROW(log() << "one" << endmsg << "two" << endmsg);
  const std::string report = testing::internal::GetCapturedStderr();
  EXPECT_THAT(report, testing::MatchesRegex("messages of channel \"full disk\" are being lost: "
                                            "[^\n]*/dev/full[^\n]*No space left on device\n"));
  EXPECT_EQ(ReadWholeFile(path_), "one\ntwo\n");
  log.RemoveDrains();
}

TEST_F(FileDrain, MessagesOfSeveralLinesFromSeveralThreadsStayWhole) {
  constexpr int kThreads = 4;
  constexpr int kMessages = 100;
  const std::string filler(3000, '.');  // longer than the file's buffer with its neighbours
  const auto drain = std::make_shared<SlogFileDrain>(path_, true, false, ' ');
  Slog("whole").AddDrain(drain);
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      Slog log("whole");
      for (int j = 0; j < kMessages; ++j) {
        log() << "begin " << i << " " << j << "\n" << filler << "\nend " << i << " " << j << endmsg;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  Slog("whole").RemoveDrains();

  std::istringstream content(ReadWholeFile(path_));
  std::map<std::string, int> next;  // each thread's messages come in its order
  std::string begin;
  int messages = 0;
  while (std::getline(content, begin)) {
    std::string middle;
    std::string end;
    std::getline(content, middle);
    std::getline(content, end);
    std::istringstream words(begin);
    std::string word;
    std::string thread;
    int number = -1;
    words >> word >> thread >> number;
    ASSERT_EQ(word, "begin");
    ASSERT_EQ(middle, filler);
    ASSERT_EQ(end, "end " + thread + " " + std::to_string(number));
    ASSERT_EQ(number, next[thread]++);
    ++messages;
  }
  EXPECT_EQ(messages, kThreads * kMessages);
}

TEST(CerrDrain, WritesTheTextAlone) {
  testing::internal::CaptureStderr();
  SlogCerrDrain::Instance(' ')->Write("driver", 4, "command {} %v\nfailed.");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "command {} %v\nfailed.\n");
}

TEST(CerrDrain, IsOneObjectForTheProgram) {
  EXPECT_EQ(SlogCerrDrain::Instance(' '), SlogCerrDrain::Instance('|'));
}

TEST(CerrDrain, AddedToAChannelTakesItsMessagesOnce) {
  Slog log("console");
  log.AddDrain(SlogCerrDrain::Instance(' '));
  log.AddDrain(SlogCerrDrain::Instance(' '));
  testing::internal::CaptureStderr();
  log() << "text" << endmsg;
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "text\n");
  log.RemoveDrains();
}

// Logs when the program's static objects are destroyed, after anything made later.
struct LogsAtExit {
  ~LogsAtExit() { Slog("at exit")() << "goodbye" << endmsg; }
};

TEST(CerrDrain, ServesObjectsDestroyedAtTheEndOfTheProgram) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        static const LogsAtExit logs_at_exit;
        std::exit(0);  // NOLINT(concurrency-mt-unsafe)
      },
      testing::ExitedWithCode(0), "^goodbye\n$");
}

}  // namespace
}  // namespace quarro
