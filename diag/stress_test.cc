// The steps of the stress test and the call-backs that they wait for.
#include "diag/stress_test.h"

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

#include <boost/date_time/posix_time/posix_time.hpp>
#include <boost/thread/thread.hpp>

#include "diag/alert.h"

namespace quarro {

namespace {

constexpr std::uint32_t kLinesAtOnce = 10;

// What the call-backs share with the test, for the life of the process.
struct SharedState {
  std::atomic<SGClientBase*> engine = nullptr;
  Alert alert;
  std::atomic<std::uint32_t> lines_completed = 0;
  std::mutex output_mutex;  // guards the standard output among the test and its call-backs
};

SharedState& Shared() {
  static SharedState state;
  return state;
}

// Composes lines and prints them together, so that those of different threads do not mix.
class Report {
 public:
  Report() { text_.imbue(std::locale::classic()); }
  Report(const Report&) = delete;
  Report& operator=(const Report&) = delete;
  ~Report() {
    const std::scoped_lock lock(Shared().output_mutex);
    std::cout << text_.str() << std::flush;
  }

  // One line that begins with the time.
  template <typename... Pieces>
  void Stamped(const Pieces&... pieces) {
    const auto now = boost::posix_time::second_clock::universal_time();
    text_ << boost::posix_time::to_simple_string(now);
    Plain(pieces...);
  }

  template <typename... Pieces>
  void Plain(const Pieces&... pieces) {
    (text_ << ... << pieces) << '\n';
  }

 private:
  std::ostringstream text_;
};

template <typename... Pieces>
void Print(const Pieces&... pieces) {
  Report().Stamped(pieces...);
}

void PrintToken(Report& report, const SEResultToken& token) {
  report.Stamped(": result token with UID ", token.uid);
  report.Stamped(":\tObject size: ", token.object_size);
  report.Stamped(":\tExecution Lag: ", token.execution_lag_s, "s.");
  report.Stamped(":\tExecution Duration: ", token.execution_duration_s, "s.");
}

void PrintStatistics(Report& report, const ResultServStats& statistics) {
  report.Plain("\tExec Threads: ", statistics.threads);
  report.Plain("\tPriority Queue Length: ", statistics.priority_queue_length);
  report.Plain("\tRun Queue Length: ", statistics.run_queue_length);
  report.Plain("\tExpected Duration of Priority Queue: ", statistics.priority_queue_duration_s);
  report.Plain("\tNumber of Results Waiting: ", statistics.results_waiting);
}

void PrintGrid(Report& report, const ResultGridLoaded& grid) {
  report.Plain("\tBounding Box: (", grid.bounds, ") m.");
}

void PrintLine(Report& report, const ResultLineAdded& line) {
  report.Plain("\tNumber of pings: ", line.pings);
  report.Plain("\tSoundings/ping: ", line.soundings_per_ping);
  report.Plain("\tSoundings rejected by flag: ", line.rejected_by_flag);
  report.Plain("\tSoundings offered to estimator: ", line.offered);
  report.Plain("\tSoundings used in update: ", line.used);
}

void PrintLineWithId(Report& report, const ResultLineAdded& line) {
  report.Plain("\tLine Reference ID: ", line.line_id);
  PrintLine(report, line);
}

// Prints that the call-back came, its token and, through `print`, the result that it announces.
template <typename Result>
void ReportResult(const SEResultToken& token, const char* announcement,
                  void (*print)(Report&, const Result&)) {
  Report report;
  report.Stamped(announcement);
  PrintToken(report, token);
  try {
    print(report, *FetchResult<Result>(*Shared().engine.load(), token));
  } catch (const ExSGClientBase& failure) {
    report.Stamped(": error: unexpected exception getting result: ", failure.who());
  }
}

// Does its work when it goes, whatever happened before.
class AtEnd {
 public:
  explicit AtEnd(std::function<void()> work) : work_(std::move(work)) {}
  AtEnd(const AtEnd&) = delete;
  AtEnd& operator=(const AtEnd&) = delete;
  ~AtEnd() { work_(); }

 private:
  std::function<void()> work_;
};

void SignalDone() { Shared().alert.Signal(1); }

void OnStatistics(const SEResultToken& token) {
  const AtEnd signal(SignalDone);
  ReportResult<ResultServStats>(
      token, ": received callback for server statistics, attempting retrieve ... ",
      PrintStatistics);
}

void OnGrid(const SEResultToken& token) {
  const AtEnd signal(SignalDone);
  ReportResult<ResultGridLoaded>(
      token, ": received callback for grid creation, attempting retrieve ...", PrintGrid);
}

void OnLine(const SEResultToken& token) {
  const AtEnd signal(SignalDone);
  ReportResult<ResultLineAdded>(
      token, ": received callback for line addition, attempting retrieve ...", PrintLine);
}

void OnOneOfManyLines(const SEResultToken& token) {
  const AtEnd count([] { ++Shared().lines_completed; });
  ReportResult<ResultLineAdded>(
      token, ": received callback for multiline addition, attempting retrieve ...",
      PrintLineWithId);
}

std::string DataFile(const std::string& name) {
  // Nothing in the program changes the environment.
  const char* directory = std::getenv("QUARRO_STRESS_TEST_DATA");  // NOLINT(concurrency-mt-unsafe)
  return StressTestDataDirectory(directory, QUARRO_STRESS_TEST_DATA_INSTALLED,
                                 QUARRO_STRESS_TEST_DATA_BUILT) +
         "/" + name;
}

std::vector<QuarroSpec> Discover(SGClientBase& engine) {
  Print(": calling FindEngines to run broadcast discovery.");
  std::vector<QuarroSpec> found = engine.FindEngines();
  Report report;
  report.Stamped(": Found:");
  if (found.empty()) {
    report.Plain("\t None.");
  }
  for (const QuarroSpec& spec : found) {
    report.Plain("\t ", spec);
  }
  return found;
}

void Attach(SGClientBase& engine, const QuarroSpec& spec) {
  Print(": Attempting to attach first engine.");
  engine.AttachEngine(spec);
  Print(":    .... done.");
}

void AskForStatistics(SGClientBase& engine) {
  Print(": asking for server statistics ...");
  Shared().alert.Reset();
  engine.RequestServerStatistics(OnStatistics);
  Print(": waiting for alert from server statistics ...");
  Shared().alert.Wait();
}

void AskForGrid(SGClientBase& engine) {
  Print(": asking for grid construction ... ");
  Shared().alert.Reset();
  engine.ConstructGrid("test_grid1", 2.0F, 0.25F, OnGrid);
  Print(": waiting for alert from grid construction ...");
  Shared().alert.Wait();
}

void AddOneLine(SGClientBase& engine) {
  Print(": simulating a line addition ...");
  Shared().alert.Reset();
  engine.AddLine(DataFile("example.gsf"), 1001, false, OnLine);
  Print(": waiting for result delivery ...");
  Shared().alert.Wait();
}

void AddLinesAtOnce(SGClientBase& engine) {
  Print(": simulating multi-line addition ...");
  for (std::uint32_t i = 0; i < kLinesAtOnce; ++i) {
    engine.AddLine(DataFile("example_" + std::to_string(i) + ".gsf"), i, false, OnOneOfManyLines);
  }
  const boost::posix_time::microseconds pause(5000000);
  while (Shared().lines_completed < kLinesAtOnce) {
    Shared().alert.Reset();
    engine.RequestServerStatistics(OnStatistics);
    boost::this_thread::sleep(boost::get_system_time() + pause);
  }
  Print(": all ten lines now complete.");
}

void Detach(SGClientBase& engine) {
  Print(": Detaching from engine.");
  engine.DetachEngine();
  Print(":    .... done.");
}

}  // namespace

std::string StressTestDataDirectory(const char* asked_for, const std::string& installed,
                                    const std::string& built) {
  if (asked_for != nullptr) {
    return asked_for;
  }
  std::error_code ignored;
  return std::filesystem::is_directory(installed, ignored) ? installed : built;
}

bool RunStressTest(SGClientBase& engine) {
  Shared().engine = &engine;
  try {
    const std::vector<QuarroSpec> found = Discover(engine);
    if (found.empty()) {
      return false;
    }
    Attach(engine, found.front());
    AskForStatistics(engine);
    AskForGrid(engine);
    AddOneLine(engine);
    AddLinesAtOnce(engine);
    Detach(engine);
    return true;
  } catch (const ExSGClientBase& failure) {
    Print(": caught exception, reason: ", failure.who());
    return false;
  }
}

}  // namespace quarro
