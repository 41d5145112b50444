// The stress test's account on the standard output, and what the command makes of it.
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <regex>
#include <sstream>

#include <gmock/gmock.h>

#include "diag/stress_test.h"
#include "results/client_fixture.h"
#include "support/test_directory.h"

namespace quarro {
namespace {

// Answers each request at once with the result that it calls for. The ten lines are answered when
// the statistics are asked for again, as if the engine took its time.
class WorkingEngine : public FakeFrontEnd {
 public:
  WorkingEngine() {
    engines = {QuarroSpec{1, 0x10001, 8, 4520, 0xC0A80107}, QuarroSpec()};
    answer = Answer::kAtOnce;
    refusal = [this](const std::string& call) { Prepare(call); };
    result = [this]() -> SEBaseResult* {
      if (line_id_ >= 0) {
        auto* line = new ResultLineAdded;
        line->line_id = static_cast<std::uint32_t>(line_id_);
        line->pings = 100;
        line->soundings_per_ping = 400;
        line->rejected_by_flag = 5;
        line->offered = 39995;
        line->used = 39000;
        return line;
      }
      if (calls.back() == "RequestServerStatistics") {
        auto* statistics = new ResultServStats;
        statistics->threads = 8;
        statistics->priority_queue_duration_s = 1.5F;
        statistics->results_waiting = 3;
        return statistics;
      }
      auto* grid = new ResultGridLoaded;
      grid->bounds = SGBoundingBox(1.0, 2.0, 3.0, 4.0);
      return grid;
    };
  }

  std::string fail_at;  // the call that is refused

 private:
  void Prepare(const std::string& call) {
    if (!fail_at.empty() && call.rfind(fail_at, 0) == 0) {
      throw ExSGClientBase("engine lost");
    }
    const bool many = std::regex_match(call, std::regex("AddLine .*/example_[0-9]\\.gsf .*"));
    if (many) {
      answer = Answer::kWhenDelivered;
      return;
    }
    line_id_ = call.rfind("AddLine ", 0) == 0 ? 1001 : -1;
    for (line_ids_delivered_ = 0; !kept.empty(); ++line_ids_delivered_) {
      line_id_ = line_ids_delivered_;
      Deliver();
    }
    if (line_ids_delivered_ > 0) {
      line_id_ = -1;
    }
    answer = Answer::kAtOnce;
  }

  int line_id_ = -1;  // of the line that the next result is for; -1 when it is for none
  int line_ids_delivered_ = 0;
};

class StressTest : public testing::Test {
 protected:
  StressTest() {
    ::setenv("QUARRO_STRESS_TEST_DATA", "/survey", 1);
    Slog("comproc").RemoveDrains();
    Slog("comproc").AddDrain(console_);
    processor_.State().attached = true;
  }
  ~StressTest() override {
    Slog("comproc").RemoveDrains();
    ::unsetenv("QUARRO_STRESS_TEST_DATA");
  }

  // The lines printed, the time stamp of those that have one replaced by "@".
  Lines Run() {
    testing::internal::CaptureStdout();
    processor_.Dispatch("stress_test");
    std::istringstream printed(testing::internal::GetCapturedStdout());
    const std::regex stamp("^[0-9]{4}-[A-Z][a-z]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}:");
    Lines lines;
    for (std::string line; std::getline(printed, line);) {
      lines.push_back(std::regex_replace(line, stamp, "@:"));
    }
    return lines;
  }

  static Lines Token() {
    return {"@: result token with UID 0", "@:\tObject size: 0", "@:\tExecution Lag: 0s.",
            "@:\tExecution Duration: 0s."};
  }
  static void Append(Lines& lines, const Lines& more) {
    lines.insert(lines.end(), more.begin(), more.end());
  }
  static void AppendStatistics(Lines& lines) {
    Append(lines, {"@: received callback for server statistics, attempting retrieve ... "});
    Append(lines, Token());
    Append(lines, {"\tExec Threads: 8", "\tPriority Queue Length: 0", "\tRun Queue Length: 0",
                   "\tExpected Duration of Priority Queue: 1.5", "\tNumber of Results Waiting: 3"});
  }
  static void AppendLineStatistics(Lines& lines) {
    Append(lines,
           {"\tNumber of pings: 100", "\tSoundings/ping: 400", "\tSoundings rejected by flag: 5",
            "\tSoundings offered to estimator: 39995", "\tSoundings used in update: 39000"});
  }
  // Up to the submission of the ten lines.
  static Lines Beginning() {
    Lines lines = {"@: calling FindEngines to run broadcast discovery.",
                   "@: Found:",
                   "\t 192.168.1.7:4520, 8 threads, engine 1.1, protocol 1",
                   "\t in process, 0 threads, engine 0.0, protocol 0",
                   "@: Attempting to attach first engine.",
                   "@:    .... done.",
                   "@: asking for server statistics ..."};
    AppendStatistics(lines);
    Append(lines, {"@: waiting for alert from server statistics ...",
                   "@: asking for grid construction ... ",
                   "@: received callback for grid creation, attempting retrieve ..."});
    Append(lines, Token());
    Append(lines,
           {"\tBounding Box: (1.000 2.000 3.000 4.000) m.",
            "@: waiting for alert from grid construction ...", "@: simulating a line addition ...",
            "@: received callback for line addition, attempting retrieve ..."});
    Append(lines, Token());
    AppendLineStatistics(lines);
    Append(lines, {"@: waiting for result delivery ...", "@: simulating multi-line addition ..."});
    return lines;
  }
  static void AppendTenLines(Lines& lines) {
    for (int id = 0; id < 10; ++id) {
      Append(lines, {"@: received callback for multiline addition, attempting retrieve ..."});
      Append(lines, Token());
      Append(lines, {"\tLine Reference ID: " + std::to_string(id)});
      AppendLineStatistics(lines);
    }
  }

  std::shared_ptr<CaptureDrain> console_ = std::make_shared<CaptureDrain>();
  WorkingEngine engine_;
  CommandProcessor processor_{&engine_, MParams()};
};

constexpr char kComplete[] = "@: all ten lines now complete.";
constexpr char kDetaching[] = "@: Detaching from engine.";
constexpr char kDetached[] = "@:    .... done.";
constexpr char kStart[] = "1 OK --- hold on to your hat, setting full debug output.";
constexpr char kDone[] = "1 info: done (wasn't that fun?).";
constexpr char kFailed[] = "4 stress test failed to complete successfully.";

// The count of completed lines lasts as long as the process, so the runs stand in one test.
TEST_F(StressTest, PollsUntilTheTenLinesAreDoneAndASecondRunDoesNotWait) {
  const Lines first = Run();
  Lines expected = Beginning();
  AppendTenLines(expected);
  AppendStatistics(expected);
  Append(expected, {kComplete, kDetaching, kDetached});
  EXPECT_EQ(first, expected);
  EXPECT_THAT(engine_.calls,
              testing::ElementsAre(
                  "FindEngines", "AttachEngine 192.168.1.7:4520, 8 threads, engine 1.1, protocol 1",
                  "RequestServerStatistics", "ConstructGrid test_grid1 2 0.25",
                  "AddLine /survey/example.gsf 1001 0", "AddLine /survey/example_0.gsf 0 0",
                  "AddLine /survey/example_1.gsf 1 0", "AddLine /survey/example_2.gsf 2 0",
                  "AddLine /survey/example_3.gsf 3 0", "AddLine /survey/example_4.gsf 4 0",
                  "AddLine /survey/example_5.gsf 5 0", "AddLine /survey/example_6.gsf 6 0",
                  "AddLine /survey/example_7.gsf 7 0", "AddLine /survey/example_8.gsf 8 0",
                  "AddLine /survey/example_9.gsf 9 0", "RequestServerStatistics", "DetachEngine"));
  EXPECT_EQ(console_->Take(), (Lines{kStart, kDone}));
  EXPECT_EQ(engine_.Log().Filter(), 4);

  // Now the engine does the ten lines while it is detached.
  const Lines second = Run();
  expected = Beginning();
  Append(expected, {kComplete, kDetaching});
  AppendTenLines(expected);
  Append(expected, {kDetached});
  EXPECT_EQ(second, expected);
  EXPECT_EQ(engine_.calls.back(), "DetachEngine");
  EXPECT_EQ(std::count(engine_.calls.begin(), engine_.calls.end(), "RequestServerStatistics"), 3);
}

TEST_F(StressTest, WithoutEnginesItFailsAndSaysSo) {
  engine_.engines.clear();
  EXPECT_EQ(Run(),
            (Lines{"@: calling FindEngines to run broadcast discovery.", "@: Found:", "\t None."}));
  EXPECT_EQ(console_->Take(), (Lines{kStart, kFailed, kDone}));
  EXPECT_EQ(engine_.calls, Lines{"FindEngines"});
}

TEST_F(StressTest, AnEngineThatIsLostEndsItWithTheReason) {
  engine_.fail_at = "ConstructGrid";
  const Lines printed = Run();
  EXPECT_EQ(printed.back(), "@: caught exception, reason: engine lost");
  EXPECT_EQ(console_->Take(), (Lines{kStart, kFailed, kDone}));
  EXPECT_EQ(engine_.calls.back(), "ConstructGrid test_grid1 2 0.25");
  EXPECT_EQ(engine_.Log().Filter(), 4);
}

TEST_F(StressTest, ResultsThatCannotBeFetchedAreToldAndDoNotEndIt) {
  engine_.result = []() -> SEBaseResult* { throw ExSGCNoGrid("no such result"); };
  engine_.fail_at = "AddLine";
  const Lines printed = Run();
  EXPECT_EQ(std::count(printed.begin(), printed.end(),
                       "@: error: unexpected exception getting result: no such result"),
            2);
  EXPECT_EQ(printed.back(), "@: caught exception, reason: engine lost");
}

TEST(StressTestData, LiesWhereAskedForElseWhereInstalledElseWhereBuilt) {
  const TestDirectory directory;
  const std::string installed = directory.Path("installed");
  EXPECT_EQ(StressTestDataDirectory(nullptr, installed, "/built"), "/built");
  std::filesystem::create_directory(installed);
  EXPECT_EQ(StressTestDataDirectory(nullptr, installed, "/built"), installed);
  EXPECT_EQ(StressTestDataDirectory("/survey", installed, "/built"), "/survey");
}

TEST_F(StressTest, LeavesTheCommandStateAlone) {
  engine_.engines.clear();
  CommandState& state = processor_.State();
  state.grid_active = true;
  state.grid_name.Set("survey");
  Run();
  EXPECT_TRUE(state.attached);
  EXPECT_TRUE(state.grid_active);
  EXPECT_EQ(state.grid_name.Get(), "survey");
  EXPECT_TRUE(state.engines.empty());
  EXPECT_EQ(state.pending_lines.Count(), 0U);
  EXPECT_EQ(state.next_line_id, 0U);
}

}  // namespace
}  // namespace quarro
