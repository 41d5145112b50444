// Queries, statistics and traces.
#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <future>
#include <mutex>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "gridding/local/engine_test_support.h"

namespace quarro::testing {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Ge;
using ::testing::HasSubstr;
using ::testing::Le;
using ::testing::Not;
using ::testing::StartsWith;

class Inspection : public ::testing::Test {
 protected:
  void SetUp() override {
    Attach(client_);
    Construct(client_, "g", 10.0F, 1.0F);
  }
  void AddStrip(unsigned seed = 1) {
    const std::string path = directory_ / (std::to_string(seed) + ".xyz");
    WriteStrip(path, {.west_m = 100, .south_m = 200, .seed = seed});
    Add(client_, path);
  }
  std::string TraceAt(double x, double y, bool on) {
    return Await<ResultDebug>(client_,
                              [&](const ResultCallback& done) { client_.DebugAt(x, y, on, done); })
        ->output_file;
  }
  std::string TraceIn(std::uint32_t column, std::uint32_t row, bool on) {
    return Await<ResultDebug>(
               client_,
               [&](const ResultCallback& done) { client_.DebugCell(column, row, on, done); })
        ->output_file;
  }
  std::unique_ptr<ResultServStats> Statistics() {
    return Await<ResultServStats>(
        client_, [&](const ResultCallback& done) { client_.RequestServerStatistics(done); });
  }
  static std::string Read(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
  }

  FreshDirectory directory_;
  SGDebugClient client_{ParametersFor(directory_.path())};
  EngineLog log_;
  std::mutex mutex_;  // guards what call-backs of a test share
};

TEST_F(Inspection, TheBoundsAreThoseOfTheCornerNodesOfCellsWithData) {
  EXPECT_EQ(GridBounds(client_), SGBoundingBox());
  std::ofstream(directory_ / "a.xyz") << "12 38 20\n-27 41 20\n";
  Add(client_, directory_ / "a.xyz");
  EXPECT_EQ(GridBounds(client_), SGBoundingBox(-30, 40, 10, 40));
}

TEST_F(Inspection, TheStatusTellsWhatTheGridHolds) {
  EXPECT_THAT(Query(client_, 1), Contains("cells: none with data"));
  AddStrip();
  auto lines = Query(client_, 1);
  EXPECT_THAT(lines, Contains("name: g"));
  EXPECT_THAT(lines, Contains("resolution: 10 m, refined to no finer than 1 m"));
  EXPECT_THAT(lines, Contains("lines: 1"));
  EXPECT_THAT(lines, Contains("soundings: 19200"));
  EXPECT_THAT(lines, Contains("bounds: 100.000 200.000 220.000 240.000"));
  EXPECT_THAT(lines, Contains("cells: 65 with data in 5 rows of 13"));
  EXPECT_THAT(lines, Contains("refined: 0 cells into 0 nodes"));
  EXPECT_THAT(lines, Contains("changed since the last refinement: 65 cells"));
  Refine(client_);
  lines = Query(client_, 1);
  EXPECT_THAT(lines, Contains("changed since the last refinement: 0 cells"));
  EXPECT_THAT(lines, Not(Contains("refined: 0 cells into 0 nodes")));
}

// The number between `before` and `after` in the line of `lines` that starts with `start`.
double NumberIn(const std::vector<std::string>& lines, const std::string& start,
                const std::string& before, const std::string& after) {
  for (const std::string& line : lines) {
    if (line.rfind(start, 0) != 0) continue;
    const std::size_t end = line.find(after);
    const std::size_t from = line.rfind(before, end);
    return std::stod(line.substr(from + before.size(), end - from - before.size()));
  }
  ADD_FAILURE() << "no line starts with " << start;
  return 0.0;
}

double InMiB(double bytes) { return bytes / (1024.0 * 1024.0); }

// Bytes of `format` with these values.
template <typename... Values>
double TextBytes(const char* format, Values... values) {
  return std::snprintf(nullptr, 0, format, values...);
}

double TextBytesOf(const ResultDepth& result) {
  double bytes = 0.0;
  const auto add = [&](std::uint32_t row, std::uint32_t column, const NodalDepth& depth) {
    if (depth.depth_m == kNoDepth) return;
    bytes += TextBytes("%u %u %.7g %.7g %u %.7g\n", row, column, depth.depth_m, depth.variance_m2,
                       depth.hypothesis_count, depth.hypothesis_strength);
  };
  for (std::uint32_t row = 0; row < result.grid.rows; ++row) {
    for (std::uint32_t column = 0; column < result.grid.columns; ++column) {
      const DepthCell& cell = result.grid.At(row, column);
      add(row, column, cell.estimate);
      if (cell.refinement == nullptr) continue;
      const std::uint32_t side = cell.refinement->nodes_a;
      bytes += TextBytes("%u %u %.7g %u %u %u 0\n", row, column, cell.resolution_m, side, side,
                         side * side);
      for (std::uint32_t i = 0; i < side * side; ++i) {
        add(i / side, i % side, cell.refinement->nodes[i].estimate);
      }
    }
  }
  return bytes;
}

double TextBytesOf(const ResultHypos& result) {
  double bytes = 0.0;
  for (std::uint64_t i = 0; i < result.count; ++i) {
    const NodalHypos& node = result.nodes[i];
    bytes += TextBytes("%.3f %.3f %.7g %.7g %u\n", node.easting_m, node.northing_m,
                       node.resolution_m, node.hypothesis_strength, node.count);
    for (std::uint32_t k = 0; k < node.count; ++k) {
      const Hypothesis& hypothesis = node.hypotheses[k];
      bytes += TextBytes(" %.7g %.7g %u", hypothesis.depth_m, hypothesis.variance_m2,
                         hypothesis.sample_count);
    }
  }
  return bytes;
}

TEST_F(Inspection, TheStatusTellsWhatFullResultsTakeInMemoryAndOnDisc) {
  const std::string path = directory_ / "far.xyz";
  WriteStrip(path, {.west_m = 1'000'005, .south_m = 2'000'005});  // whole cells
  Add(client_, path);
  Refine(client_);
  const auto lines = Query(client_, 1);
  const auto bytes_of = [&](const auto& ask) {
    Replies replies;
    ask(replies.Expect());
    replies.Wait();
    return static_cast<double>(replies.Tokens().front().object_size);
  };
  const SGBoundingBox all = GridBounds(client_);

  const std::string depth = "full-resolution depth of all: ";
  const double depth_bytes =
      bytes_of([&](const ResultCallback& done) { client_.RequestDepth(all, 0, 1, done); });
  EXPECT_NEAR(NumberIn(lines, depth, ": ", " MiB in memory"), InMiB(depth_bytes),
              0.05 * InMiB(depth_bytes));
  const double depth_text = TextBytesOf(*Depth(client_, all));
  EXPECT_NEAR(NumberIn(lines, depth, ", ", " MiB as text"), InMiB(depth_text),
              0.25 * InMiB(depth_text));
  EXPECT_GT(NumberIn(lines, depth, ", ", " MiB as a BAG file"), 0.0);

  const std::string hypotheses = "full-resolution hypotheses of all: ";
  const double hypotheses_bytes =
      bytes_of([&](const ResultCallback& done) { client_.RequestHypotheses(all, 0, 1, done); });
  EXPECT_NEAR(NumberIn(lines, hypotheses, ": ", " MiB in memory"), InMiB(hypotheses_bytes),
              0.4 * InMiB(hypotheses_bytes));
  const double hypotheses_text = TextBytesOf(*Hypotheses(client_, all));
  EXPECT_NEAR(NumberIn(lines, hypotheses, ", ", " MiB as text"), InMiB(hypotheses_text),
              0.4 * InMiB(hypotheses_text));
}

TEST_F(Inspection, TheStatusIsTheSameTextToTheLetterForTheSameGrid) {
  std::ofstream(directory_ / "a.xyz") << "12 38 20\n-27 41 20\n";
  Add(client_, directory_ / "a.xyz");
  const auto lines = Query(client_, 1);
  // Five dense cells, of which two have data; none is refined.
  EXPECT_THAT(lines, Contains("full-resolution depth of all: 0.000152588 MiB in memory or working "
                              "directory, 0.000209808 MiB as a BAG file, 6.48499e-05 MiB as text"));
  EXPECT_THAT(lines, Contains("full-resolution hypotheses of all: 9.91821e-05 MiB in memory or "
                              "working directory, 0.000110626 MiB as text"));
}

TEST_F(Inspection, ThePoolListsWhatWaits) {
  EXPECT_THAT(Query(client_, 3), ElementsAre("no results wait"));
  Replies replies;
  client_.RequestDepth({99, 199, 121, 221}, 5, 0, replies.Expect());
  replies.Wait();
  EXPECT_THAT(Query(client_, 3), ElementsAre(HasSubstr(": depth result 5, ")));
}

TEST_F(Inspection, AnUnknownQueryFails) {
  EXPECT_THAT(ReasonOf([&] { Query(client_, 9); }), HasSubstr("no query of kind 9"));
}

TEST_F(Inspection, StatisticsTellTheLengthsOfTheQueues) {
  const auto idle = Await<ResultServStats>(
      client_, [&](const ResultCallback& done) { client_.RequestServerStatistics(done); });
  EXPECT_EQ(idle->threads, 2U);
  EXPECT_EQ(idle->run_queue_length, 0U);
  EXPECT_EQ(idle->priority_queue_length, 0U);
  EXPECT_EQ(idle->results_waiting, 0U);

  Replies replies;
  for (unsigned i = 0; i < 3; ++i) {
    const std::string path = directory_ / (std::to_string(i) + ".xyz");
    WriteStrip(path, {.seed = i});
    client_.AddLine(path, i, false, replies.Expect());
  }
  const auto busy = Await<ResultServStats>(
      client_, [&](const ResultCallback& done) { client_.RequestServerStatistics(done); });
  EXPECT_GE(busy->run_queue_length, 1U);
  EXPECT_LE(busy->run_queue_length, 3U);
  replies.Wait();
  const auto after = Await<ResultServStats>(
      client_, [&](const ResultCallback& done) { client_.RequestServerStatistics(done); });
  EXPECT_EQ(after->results_waiting, 3U) << "the lines' results, which nobody fetched";
}

// Holds the thread that logs a line's beginning until it is let go.
class HoldingDrain : public SlogDrain {
 public:
  void Write(const std::string&, int, const std::string& text) override {
    if (text.find(" begins") == std::string::npos || held_) return;
    held_ = true;
    held_promise_.set_value();
    go_on_.get_future().wait();
  }
  void WaitUntilHeld() { held_promise_.get_future().wait(); }
  void LetGo() { go_on_.set_value(); }

 private:
  bool held_ = false;  // of the grid thread
  std::promise<void> held_promise_;
  std::promise<void> go_on_;
};

TEST_F(Inspection, TheRunQueueHoldsTheLineInWorkAndWhatIsBehindIt) {
  const auto drain = std::make_shared<HoldingDrain>();
  Slog("engine").AddDrain(drain);
  Replies replies;
  for (unsigned i = 0; i < 3; ++i) {
    const std::string path = directory_ / (std::to_string(i) + ".xyz");
    WriteStrip(path, {.seed = i});
    client_.AddLine(path, i, false, replies.Expect());
  }
  client_.SynchGrid(replies.Expect());
  drain->WaitUntilHeld();
  EXPECT_EQ(Statistics()->run_queue_length, 4U);
  drain->LetGo();
  replies.Wait();
  EXPECT_EQ(Statistics()->run_queue_length, 0U);
}

TEST_F(Inspection, RequestsThatWaitAreCountedAndTheirDurationIsExpected) {
  AddStrip();
  Refine(client_);
  EXPECT_EQ(Statistics()->priority_queue_length, 0U);
  EXPECT_EQ(Statistics()->priority_queue_duration_s, 0.0F);

  // Both threads of result call-backs are held; each request thread then holds one more result.
  std::promise<void> go_on;
  const std::shared_future<void> may_go_on = go_on.get_future().share();
  std::array<std::promise<void>, 2> begun;
  const SGBoundingBox box(99, 199, 221, 241);
  for (std::promise<void>& one : begun) {
    client_.RequestDepth(box, 0, 1, [&one, may_go_on](const SEResultToken&) {
      one.set_value();
      may_go_on.wait();
    });
    one.get_future().wait();
  }
  Replies replies;
  std::vector<ResultServStats> statistics;
  std::promise<void> answered;
  const auto ask = [&] {
    client_.RequestServerStatistics([&](const SEResultToken& token) {
      const auto result = FetchResult<ResultServStats>(client_, token);
      const std::lock_guard lock(mutex_);
      statistics.push_back(*result);
      if (statistics.size() == 2) answered.set_value();
    });
  };
  for (int i = 0; i < 4; ++i) client_.RequestDepth(box, 0, 1, replies.Expect());
  ask();
  for (int i = 0; i < 40; ++i) client_.RequestDepth(box, 0, 1, replies.Expect());
  ask();
  go_on.set_value();
  replies.Wait();
  answered.get_future().wait();
  std::sort(statistics.begin(), statistics.end(), [](const auto& a, const auto& b) {
    return a.priority_queue_length < b.priority_queue_length;
  });
  EXPECT_THAT(statistics[0].priority_queue_length, AllOf(Ge(2U), Le(4U)));
  EXPECT_THAT(statistics[1].priority_queue_length, AllOf(Ge(42U), Le(44U)));
  EXPECT_GT(statistics[0].priority_queue_duration_s, 0.0F);
  EXPECT_GT(statistics[1].priority_queue_duration_s, statistics[0].priority_queue_duration_s);
  Synch(client_);
  EXPECT_EQ(Statistics()->priority_queue_length, 0U);
}

TEST_F(Inspection, ATraceHoldsTheStepsOfItsCellAndOfTheNodeNearest) {
  const std::string path = TraceAt(123, 214, true);
  EXPECT_EQ(path, directory_ / "g.trace_12_21_1.txt");
  EXPECT_THAT(Query(client_, 2), ElementsAre(HasSubstr("at 123.000 214.000")));
  AddStrip();
  std::string text = Read(path);
  EXPECT_THAT(text, StartsWith("# trace at 123.000 214.000, cell column 12 row 21"));
  EXPECT_THAT(text, HasSubstr("# low resolution, with line \"" + (directory_ / "1.xyz") + "\"\n"));
  EXPECT_THAT(text, HasSubstr("hypothesis 1"));
  EXPECT_THAT(text, Not(HasSubstr("# refinement")));
  Refine(client_);
  text = Read(path);
  const std::size_t refinement = text.find("# refinement into ");
  ASSERT_NE(refinement, std::string::npos);
  EXPECT_THAT(text.substr(refinement), HasSubstr("hypothesis 1"));

  EXPECT_EQ(TraceAt(123, 214, false), path);
  EXPECT_THAT(Query(client_, 2), ElementsAre("no debug traces"));
  AddStrip(2);
  EXPECT_EQ(Read(path), text);
}

TEST_F(Inspection, TracingChangesNoResult) {
  AddStrip();
  Refine(client_);
  const std::string untraced = AllResults(client_);
  Construct(client_, "h", 10.0F, 1.0F);
  TraceAt(123, 214, true);
  TraceAt(122, 213, true);
  AddStrip();
  Refine(client_);
  EXPECT_EQ(AllResults(client_), untraced);
}

TEST_F(Inspection, ACellIsCountedFromTheSouthWestOfTheGrid) {
  EXPECT_THAT(ReasonOf([&] { TraceIn(0, 0, true); }), HasSubstr("no data yet"));
  AddStrip();
  EXPECT_EQ(TraceIn(2, 1, true), directory_ / "g.trace_12_21_1.txt");
  EXPECT_THAT(ReasonOf([&] { TraceIn(13, 0, true); }), HasSubstr("13 columns and 5 rows"));
  EXPECT_EQ(TraceIn(2, 1, false), directory_ / "g.trace_12_21_1.txt");
}

TEST_F(Inspection, StoppingWhatIsNotTracedFails) {
  EXPECT_THAT(ReasonOf([&] { TraceAt(1, 2, false); }), HasSubstr("no debug trace runs at 1.000"));
}

TEST_F(Inspection, AllTracesStopAtOnce) {
  TraceAt(1, 2, true);
  TraceAt(3, 4, true);
  Await<ResultDebug>(client_,
                     [&](const ResultCallback& done) { client_.DebugOffEverywhere(done); });
  EXPECT_THAT(Query(client_, 2), ElementsAre("no debug traces"));
}

TEST_F(Inspection, TheRemoteLogLevelIsThatOfTheEnginesChannel) {
  EXPECT_TRUE(client_.SetRemoteLogLevel(4));
  EXPECT_EQ(client_.Log().Filter(), 4);
  EXPECT_FALSE(client_.SetRemoteLogLevel(8));
  EXPECT_EQ(client_.Log().Filter(), 4);
}

}  // namespace
}  // namespace quarro::testing
