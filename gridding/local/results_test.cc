// Results over boxes, and the pool in which they wait.
#include <cmath>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "gridding/local/engine_test_support.h"

namespace quarro::testing {
namespace {

using ::testing::HasSubstr;

class Results : public ::testing::Test {
 protected:
  void SetUp() override {
    Attach(client_);
    Construct(client_, "g", 10.0F, 1.0F);
    WriteStrip(directory_ / "a.xyz", {.west_m = 100, .south_m = 200});
    Add(client_, directory_ / "a.xyz");
    Refine(client_);
  }

  FreshDirectory directory_;
  SGDebugClient client_{ParametersFor(directory_.path())};
  EngineLog log_;
};

TEST_F(Results, ADepthIsTheDenseRectangleOfNodesInTheBox) {
  const auto depth = Depth(client_, {119, 205, 151, 231});
  EXPECT_EQ(depth->bounds, SGBoundingBox(120, 210, 150, 230));
  EXPECT_EQ(depth->grid.rows, 3U);
  EXPECT_EQ(depth->grid.columns, 4U);
  for (std::uint32_t row = 0; row < 3; ++row) {
    for (std::uint32_t column = 0; column < 4; ++column) {
      const double x = 120 + 10.0 * column;
      const double y = 210 + 10.0 * row;
      const DepthCell& cell = depth->grid.At(row, column);
      EXPECT_NEAR(cell.estimate.depth_m, SeafloorDepth(x, y), 0.2);
      ASSERT_NE(cell.refinement, nullptr);
      EXPECT_EQ(cell.refinement->nodes_a, cell.refinement->nodes_b);
      EXPECT_FLOAT_EQ(cell.resolution_m * static_cast<float>(cell.refinement->nodes_a), 10.0F);
      const std::uint32_t side = cell.refinement->nodes_a;
      ASSERT_GE(side, 4U);
      for (std::uint32_t i = 0; i < side * side; ++i) {
        const double node_x = x - 5.0 + (i % side + 0.5) * cell.resolution_m;
        const double node_y = y - 5.0 + (i / side + 0.5) * cell.resolution_m;
        EXPECT_NEAR(cell.refinement->nodes[i].estimate.depth_m, SeafloorDepth(node_x, node_y),
                    0.25);
        EXPECT_GT(cell.refinement->nodes[i].sample_count, 0U);
        EXPECT_GT(cell.refinement->nodes[i].estimate.variance_m2, 0.0F);
      }
    }
  }
}

TEST_F(Results, ALowResolutionDepthHasNoRefinements) {
  const auto low = Depth(client_, {119, 205, 151, 231}, 0);
  const auto full = Depth(client_, {119, 205, 151, 231}, 1);
  for (std::uint32_t row = 0; row < low->grid.rows; ++row) {
    for (std::uint32_t column = 0; column < low->grid.columns; ++column) {
      EXPECT_EQ(low->grid.At(row, column).refinement, nullptr);
      EXPECT_EQ(low->grid.At(row, column).resolution_m, kNotRefined);
      EXPECT_EQ(low->grid.At(row, column).estimate.depth_m,
                full->grid.At(row, column).estimate.depth_m);
    }
  }
}

TEST_F(Results, ABoxWithOneNodeIsWidenedToTwoByTwo) {
  const auto depth = Depth(client_, {99, 199, 101, 201});
  EXPECT_EQ(depth->bounds, SGBoundingBox(100, 200, 110, 210));
  EXPECT_EQ(depth->grid.rows, 2U);
  EXPECT_EQ(depth->grid.columns, 2U);
}

TEST_F(Results, ABoxBeyondTheDataHoldsCellsWithoutData) {
  const auto depth = Depth(client_, {5000, 5000, 5010, 5010});
  EXPECT_EQ(depth->grid.rows, 2U);
  EXPECT_EQ(depth->grid.At(1, 1).estimate.depth_m, kNoDepth);
  const auto records = Resolution(client_, {5000, 5000, 5010, 5010});
  EXPECT_EQ(records->grid.At(0, 1).soundings, 0U);
  EXPECT_EQ(records->grid.At(0, 1).node_spacing_m, -1.0);
  EXPECT_EQ(Hypotheses(client_, {5000, 5000, 5010, 5010}, 0)->count, 0U);
  EXPECT_EQ(Hypotheses(client_, {5000, 5000, 5010, 5010}, 1)->count, 0U);
}

TEST_F(Results, ABoxWithoutANodeFailsNamingIt) {
  const SGBoundingBox box(101, 201, 102, 202);
  EXPECT_THAT(ReasonOf([&] { Depth(client_, box); }), HasSubstr("101.000 201.000 102.000 202.000"));
  EXPECT_THAT(ReasonOf([&] { Resolution(client_, box); }), HasSubstr("lies in the box"));
  EXPECT_THAT(ReasonOf([&] { Hypotheses(client_, box, 0); }), HasSubstr("lies in the box"));
}

TEST_F(Results, ABoxOverTooManyCellsFailsNamingTheSize) {
  const SGBoundingBox box(0, 0, 1e6, 1e6);
  EXPECT_THAT(ReasonOf([&] { Depth(client_, box); }), HasSubstr("100001 rows of 100001"));
  EXPECT_THAT(ReasonOf([&] { Resolution(client_, box); }), HasSubstr("67108864"));
  EXPECT_THAT(ReasonOf([&] { Hypotheses(client_, box, 0); }), HasSubstr("100001 rows of 100001"));
  EXPECT_THAT(ReasonOf([&] { Hypotheses(client_, box, 1); }), HasSubstr("100001 rows of 100001"));
  const SGBoundingBox everything(-1e300, -1e300, 1e300, 1e300);
  EXPECT_THAT(ReasonOf([&] { Depth(client_, everything); }), HasSubstr("4294967296 rows"));
}

TEST_F(Results, HypothesesAtFullResolutionAreThoseOfTheNodesInTheBox) {
  // Smaller than a cell, and without a low-resolution node.
  const SGBoundingBox box(121, 211, 124, 214);
  const auto hypotheses = Hypotheses(client_, box);
  const auto cell = Depth(client_, {119, 209, 131, 221});
  const float spacing_m = cell->grid.At(0, 0).resolution_m;
  ASSERT_GT(hypotheses->count, 0U);
  std::uint64_t expected = 0;
  const std::uint32_t side = cell->grid.At(0, 0).refinement->nodes_a;
  for (std::uint32_t i = 0; i < side * side; ++i) {
    const double x = 115 + (i % side + 0.5) * spacing_m;
    const double y = 205 + (i / side + 0.5) * spacing_m;
    if (!box.Contains(x, y)) continue;
    const NodalHypos& node = hypotheses->nodes[expected++];
    EXPECT_NEAR(node.easting_m, x, 1e-4);
    EXPECT_NEAR(node.northing_m, y, 1e-4);
    EXPECT_EQ(node.resolution_m, spacing_m);
    const NodalDepth& estimate = cell->grid.At(0, 0).refinement->nodes[i].estimate;
    EXPECT_EQ(node.count, estimate.hypothesis_count);
    EXPECT_EQ(node.hypothesis_strength, estimate.hypothesis_strength);
    EXPECT_EQ(node.hypotheses[0].depth_m, estimate.depth_m);
    EXPECT_EQ(node.hypotheses[0].variance_m2, estimate.variance_m2);
  }
  EXPECT_EQ(hypotheses->count, expected);
  EXPECT_GE(hypotheses->bounds.west(), 121.0);
  EXPECT_LE(hypotheses->bounds.north(), 214.0);
}

TEST_F(Results, AnUnrefinedCellCountsAsItsOwnNodeAtFullResolution) {
  Construct(client_, "coarse", 10.0F, 10.0F);
  std::ofstream(directory_ / "one.xyz") << "1000 1000 30 0.1 0.1\n";
  Add(client_, directory_ / "one.xyz");
  Refine(client_);
  const auto hypotheses = Hypotheses(client_, {995, 995, 1005, 1005});
  ASSERT_EQ(hypotheses->count, 1U);
  EXPECT_EQ(hypotheses->nodes[0].easting_m, 1000.0);
  EXPECT_EQ(hypotheses->nodes[0].resolution_m, kNotRefined);
  ASSERT_EQ(hypotheses->nodes[0].count, 1U);
  EXPECT_EQ(hypotheses->nodes[0].hypotheses[0].depth_m, 30.0F);
  EXPECT_EQ(hypotheses->nodes[0].hypotheses[0].sample_count, 1U);
  EXPECT_EQ(hypotheses->bounds, SGBoundingBox(1000, 1000, 1000, 1000));
}

TEST_F(Results, AResolutionRecordTellsWhatTheDataOfACellSupports) {
  std::ofstream(directory_ / "b.xyz") << "998 998 30 0.1 0.2\n1002 998 34 0.1 0.2\n";
  Add(client_, directory_ / "b.xyz");
  const auto records = Resolution(client_, {1000, 1000, 1010, 1010});
  const ResolutionRecord& record = records->grid.At(0, 0);
  EXPECT_EQ(record.soundings, 2U);
  EXPECT_EQ(record.mean_depth_m, 32.0);
  EXPECT_NEAR(record.depth_deviation_m, std::sqrt(8.0), 1e-12);
  EXPECT_EQ(record.shallowest_m, 30.0);
  EXPECT_EQ(record.deepest_m, 34.0);
  EXPECT_NEAR(record.mean_vertical_sigma_m, 0.1, 2e-4);
  EXPECT_NEAR(record.mean_horizontal_sigma_m, 0.2, 4e-4);
  EXPECT_EQ(record.covered_fraction, 2.0 / 64.0);
  EXPECT_EQ(record.covered_area_m2, 100.0 * 2.0 / 64.0);
  EXPECT_EQ(record.density_per_m2, 2.0 / (100.0 * 2.0 / 64.0));
  EXPECT_EQ(record.occupancy, (1ULL << (8 * 2 + 2)) | (1ULL << (8 * 2 + 5)));
  EXPECT_EQ(record.easting_m, 1000.0);
  EXPECT_EQ(record.northing_m, 1000.0);
}

TEST_F(Results, ResultsOutliveTheGridAndTheEngine) {
  const auto depth = Depth(client_, GridBounds(client_));
  const auto hypotheses = Hypotheses(client_, GridBounds(client_));
  const std::string depth_text = TextOf(*depth);
  const std::string hypotheses_text = TextOf(*hypotheses);
  Drop(client_);
  client_.DetachEngine();
  EXPECT_EQ(TextOf(*depth), depth_text);
  EXPECT_EQ(TextOf(*hypotheses), hypotheses_text);
}

TEST_F(Results, AResultIsHandedOverOnce) {
  Replies replies;
  client_.RequestDepth(GridBounds(client_), 3, 1, replies.Expect());
  replies.Wait();
  const SEResultToken token = replies.Tokens().front();
  EXPECT_GT(token.object_size, 1000U);
  EXPECT_EQ(FetchResult<ResultDepth>(client_, token)->result_number, 3U);
  EXPECT_THAT(ReasonOf([&] { client_.GetResult(token); }), HasSubstr("no result waits"));
}

TEST_F(Results, AResultOfAnotherClassIsIncompatible) {
  EXPECT_THROW(Await<ResultHypos>(client_,
                                  [&](const ResultCallback& done) {
                                    client_.RequestDepth({99, 199, 121, 221}, 0, 0, done);
                                  }),
               ExSGCResultIncompatible);
}

TEST_F(Results, APurgeDropsTheWaitingResultsNamed) {
  Replies replies;
  client_.RequestDepth({99, 199, 121, 221}, 5, 0, replies.Expect());
  replies.Wait();
  client_.RequestResolution({99, 199, 121, 221}, 6, replies.Expect());
  replies.Wait();
  const auto tokens = replies.Tokens();
  Await<ResultPosAck>(client_, [&](const ResultCallback& done) {
    client_.PurgeResults({5, 9}, done);
  });
  EXPECT_THROW(client_.GetResult(tokens[0]), ExSGClientBase);
  EXPECT_EQ(FetchResult<ResultResolution>(client_, tokens[1])->result_number, 6U);
}

TEST_F(Results, ACallBackStillComesForAPurgedResultAndFetchingItTellsWhy) {
  std::promise<void> go_on;
  std::shared_future<void> may_go_on = go_on.get_future().share();
  std::promise<void> begun;
  std::promise<std::string> reason;
  client_.RequestHypotheses({99, 199, 121, 221}, 8, 0, [&](const SEResultToken& token) {
    begun.set_value();
    may_go_on.wait();
    reason.set_value(ReasonOf([&] { client_.GetResult(token); }));
  });
  begun.get_future().wait();
  Await<ResultPosAck>(client_, [&](const ResultCallback& done) { client_.Purge(done); });
  go_on.set_value();
  EXPECT_EQ(reason.get_future().get(), "result 8 was purged before it was fetched");
}

TEST_F(Results, APurgeOfAllDropsEveryWaitingResultWhoseCallBackStillComes) {
  std::promise<void> go_on;
  const std::shared_future<void> may_go_on = go_on.get_future().share();
  std::promise<void> begun;
  std::promise<std::string> held;
  const SGBoundingBox box(99, 199, 121, 221);
  // Fetched, waiting after its call-back, and waiting in its call-back.
  Replies replies;
  client_.RequestDepth(box, 1, 0, replies.Expect());
  replies.Wait();
  const auto fetched = FetchResult<ResultDepth>(client_, replies.Tokens().back());
  client_.RequestResolution(box, 2, replies.Expect());
  replies.Wait();
  const SEResultToken waiting = replies.Tokens().back();
  client_.RequestDepth(box, 3, 1, [&](const SEResultToken& token) {
    begun.set_value();
    may_go_on.wait();
    held.set_value(ReasonOf([&] { client_.GetResult(token); }));
  });
  begun.get_future().wait();
  Await<ResultPosAck>(client_, [&](const ResultCallback& done) { client_.Purge(done); });
  go_on.set_value();
  EXPECT_EQ(held.get_future().get(), "result 3 was purged before it was fetched");
  EXPECT_THAT(ReasonOf([&] { client_.GetResult(waiting); }), HasSubstr("no result waits"));
  EXPECT_EQ(TextOf(*fetched), TextOf(*Depth(client_, box, 0, 1)));
  EXPECT_EQ(Query(client_, 3), std::vector<std::string>{"no results wait"});
}

}  // namespace
}  // namespace quarro::testing
