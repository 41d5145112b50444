// Many lines and many results at once: everything is delivered, and the statistics of the queues
// are right at every moment.
#include <atomic>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "gridding/local/engine_test_support.h"

namespace quarro::testing {
namespace {

constexpr std::uint32_t kLines = 1000;
constexpr std::uint32_t kResults = 100;
constexpr std::uint32_t kSoundingsPerLine = 40;
// Result call-backs run on two threads, and two more results are extracted while those are held.
constexpr std::uint32_t kHeldResults = 4;

// Call-backs wait here until they are let go.
class Gate {
 public:
  void Open() { open_.set_value(); }
  void Wait() const { may_go_on_.wait(); }

 private:
  std::promise<void> open_;
  const std::shared_future<void> may_go_on_ = open_.get_future().share();
};

class Load : public ::testing::Test {
 protected:
  void SetUp() override {
    Attach(client_);
    Construct(client_, "g");
    for (std::uint32_t i = 0; i < kLines; ++i) WriteShortLine(i);
  }

  std::string LineFile(std::uint32_t i) const {
    return directory_ / ("line" + std::to_string(i) + ".xyz");
  }

  // Lines side by side, so that each of them touches several cells, and many lines each cell.
  void WriteShortLine(std::uint32_t i) const {
    std::ofstream file(LineFile(i));
    for (std::uint32_t k = 0; k < kSoundingsPerLine; ++k) {
      file << 0.1 * i << ' ' << k << ' ' << SeafloorDepth(0.1 * i, k) << '\n';
    }
  }

  std::unique_ptr<ResultServStats> Statistics() {
    return Await<ResultServStats>(
        client_, [&](const ResultCallback& done) { client_.RequestServerStatistics(done); });
  }

  FreshDirectory directory_;
  SGDebugClient client_{ParametersFor(directory_.path())};
  EngineLog log_;
};

TEST_F(Load, AThousandLinesAndAHundredResultsBesideThemAreAllDelivered) {
  Replies replies;
  std::atomic<std::uint32_t> lines_told = 0;
  std::atomic<std::uint32_t> results_told = 0;
  std::array<std::atomic<std::uint32_t>, kResults> times_delivered{};
  std::atomic<std::uint64_t> used = 0;
  std::uint32_t lines_asked = 0;
  std::uint32_t results_asked = 0;

  // What was told before is done; what was asked for after is not counted.
  const auto check_statistics = [&] {
    const std::uint32_t lines_done = lines_told;
    const std::uint32_t results_done = results_told;
    const auto statistics = Statistics();
    ASSERT_LE(statistics->run_queue_length, lines_asked - lines_done);
    ASSERT_LE(statistics->priority_queue_length, results_asked - results_done);
    // The pool holds what is done and not yet fetched, and the answer itself at most.
    ASSERT_LE(statistics->results_waiting,
              lines_asked - lines_done + results_asked - results_done + 1);
    ASSERT_GE(statistics->priority_queue_duration_s, 0.0F);
    if (results_asked == results_done) {
      ASSERT_EQ(statistics->priority_queue_duration_s, 0.0F);
    }
  };
  for (std::uint32_t i = 0; i < kLines; ++i) {
    const ResultCallback note = replies.Expect();
    client_.AddLine(LineFile(i), i, false, [&, i, note](const SEResultToken& token) {
      const auto line = FetchResult<ResultLineAdded>(client_, token);
      EXPECT_EQ(line->line_id, i);
      EXPECT_EQ(line->line_id, lines_told) << "lines are told of in their order";
      EXPECT_EQ(line->failed, 0U);
      EXPECT_EQ(line->offered, kSoundingsPerLine);
      used += line->used;
      ++lines_told;
      note(token);
    });
    ++lines_asked;
    if (i % (kLines / kResults) == 0) {
      const ResultCallback note_result = replies.Expect();
      const std::uint32_t number = results_asked;
      client_.RequestDepth({-10, -10, 110, 50}, number, 1, [&, note_result](const auto& token) {
        const auto depth = FetchResult<ResultDepth>(client_, token);
        ++times_delivered.at(depth->result_number);
        EXPECT_EQ(depth->grid.rows, 7U);
        EXPECT_EQ(depth->grid.columns, 13U);
        ++results_told;
        note_result(token);
      });
      ++results_asked;
      check_statistics();
    }
  }
  while (lines_told < kLines || results_told < kResults) check_statistics();
  Synch(client_);
  replies.Wait();
  EXPECT_EQ(results_told, kResults);
  for (const auto& times : times_delivered) EXPECT_EQ(times, 1U);
  EXPECT_EQ(used, std::uint64_t{kLines} * kSoundingsPerLine);
  EXPECT_THAT(Query(client_, 1), ::testing::IsSupersetOf({"lines: 1000", "soundings: 40000"}));
  const auto idle = Statistics();
  EXPECT_EQ(idle->run_queue_length, 0U);
  EXPECT_EQ(idle->priority_queue_length, 0U);
  EXPECT_EQ(idle->priority_queue_duration_s, 0.0F);
}

TEST_F(Load, StatisticsCountExactlyWhatWaitsWhileCallBacksAreHeldUp) {
  for (std::uint32_t i = 0; i < 10; ++i) Add(client_, LineFile(i));
  Replies replies;
  Gate gate;
  // Any two of the first: which results are done first is not said.
  std::atomic<int> begun = 0;
  std::promise<void> two_begun;
  for (std::uint32_t i = 0; i < kResults; ++i) {
    const ResultCallback note = replies.Expect();
    client_.RequestDepth({-10, -10, 110, 50}, i, 0, [&, note](const SEResultToken& token) {
      if (++begun == 2) two_begun.set_value();
      gate.Wait();
      EXPECT_NO_THROW(FetchResult<ResultDepth>(client_, token));
      note(token);
    });
  }
  two_begun.get_future().wait();
  // The queue comes to rest with two results in call-backs and two behind them.
  while (Statistics()->results_waiting < kHeldResults) {
  }
  const auto held = Statistics();
  EXPECT_EQ(held->priority_queue_length, kResults - kHeldResults);
  EXPECT_EQ(held->run_queue_length, 0U);
  EXPECT_EQ(held->results_waiting, kHeldResults);
  EXPECT_GT(held->priority_queue_duration_s, 0.0F);

  // Lines go on beside results that nobody takes, and wait in the pool while one call-back is held.
  Gate line_gate;
  std::promise<void> first_told;
  for (std::uint32_t i = 10; i < 110; ++i) {
    const ResultCallback note = replies.Expect();
    client_.AddLine(LineFile(i), i, false, [&, i, note](const SEResultToken& token) {
      if (i == 10) first_told.set_value();
      line_gate.Wait();
      EXPECT_NO_THROW(FetchResult<ResultLineAdded>(client_, token));
      note(token);
    });
  }
  first_told.get_future().wait();
  while (Statistics()->run_queue_length > 0) {
  }
  while (Statistics()->results_waiting < kHeldResults + 100) {
  }
  EXPECT_EQ(Statistics()->results_waiting, kHeldResults + 100);
  line_gate.Open();
  gate.Open();
  replies.Wait();
  EXPECT_EQ(Statistics()->results_waiting, 0U);
}

}  // namespace
}  // namespace quarro::testing
