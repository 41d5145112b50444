#include "gridding/service/extraction.h"

#include <cstdint>

#include <gtest/gtest.h>

#include "gridding/local/engine_test_support.h"
#include "gridding/service/grid_session.h"

namespace quarro::service {
namespace {

TEST(CellsOfResult, AreThoseWhoseNodesLieInTheBoxOrOnItsEdge) {
  const core::Lattice lattice(10.0F);
  EXPECT_EQ(CellsOfResult(lattice, {10, -20, 40, 5}), (core::CellRange{{-2, 1}, {0, 4}}));
  EXPECT_EQ(CellsOfResult(lattice, {10.5, -20.5, 39.5, 5}), (core::CellRange{{-2, 2}, {0, 3}}));
}

TEST(CellsOfResult, AreWidenedNorthwardAndEastward) {
  const core::Lattice lattice(10.0F);
  EXPECT_EQ(CellsOfResult(lattice, {19, 19, 21, 41}), (core::CellRange{{2, 2}, {4, 3}}));
  EXPECT_EQ(CellsOfResult(lattice, {19, 19, 41, 21}), (core::CellRange{{2, 2}, {3, 4}}));
}

TEST(CellsOfResult, AtTheEndOfTheLatticeAreWidenedTheOtherWay) {
  const core::Lattice lattice(1.0F);
  const double end = INT32_MAX;
  EXPECT_EQ(CellsOfResult(lattice, {end, end, end, end}),
            (core::CellRange{{INT32_MAX - 1, INT32_MAX - 1}, {INT32_MAX, INT32_MAX}}));
}

// All results of a grid with a heap limit.
std::string ResultsWith(std::uint64_t heap_bytes, const std::string& line) {
  const testing::FreshDirectory directory;
  EngineConfig config = ReadEngineConfig(testing::ParametersFor(directory.path()));
  config.result_heap_bytes = heap_bytes;
  Delivery delivery;
  GridSession session(config, delivery);
  testing::Replies replies;
  session.ConstructGrid("g", 10.0F, 1.0F, replies.Expect());
  session.AddLine(line, 0, false, replies.Expect());
  session.RefineGrid(0, replies.Expect());
  replies.Wait();
  const SGBoundingBox box(-10, -10, 130, 50);
  std::string text;
  const auto take = [&] {
    replies.Wait();
    return delivery.pool().Take(replies.Tokens().back().uid);
  };
  session.RequestDepth(box, 0, true, replies.Expect());
  text += testing::TextOf(dynamic_cast<ResultDepth&>(*take()));
  session.RequestHypotheses(box, 0, true, replies.Expect());
  text += testing::TextOf(dynamic_cast<ResultHypos&>(*take()));
  session.RequestResolution(box, 0, replies.Expect());
  text += testing::TextOf(dynamic_cast<ResultResolution&>(*take()));
  return text;
}

TEST(Extraction, ResultsInAFileAreThoseInMemory) {
  const testing::FreshDirectory lines;
  testing::WriteStrip(lines / "a.xyz", {});
  const std::string in_memory = ResultsWith(std::uint64_t{1} << 30U, lines / "a.xyz");
  EXPECT_GT(in_memory.size(), 100000U);
  EXPECT_EQ(ResultsWith(0, lines / "a.xyz"), in_memory);
}

}  // namespace
}  // namespace quarro::service
