// Results as bytes and back.
#include "gridding/rpc/result_wire.h"

#include <limits>
#include <random>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "engine/exceptions.h"
#include "gridding/local/engine_test_support.h"
#include "gridding/rpc/message_forms.h"
#include "gridding/service/result_arena.h"

namespace quarro::rpc {
namespace {

using quarro::testing::FreshDirectory;
using quarro::testing::ReasonOf;
using quarro::testing::TextOf;
using service::ResultArena;
using ::testing::HasSubstr;

constexpr std::uint64_t kHeap = std::uint64_t{64} << 20U;

std::vector<v1::ResultChunk> Sent(const SEBaseResult& result) {
  std::vector<v1::ResultChunk> chunks;
  EXPECT_TRUE(SendResult(result, [&](const v1::ResultChunk& chunk) {
    chunks.push_back(chunk);
    return true;
  }));
  return chunks;
}

// The same bytes in chunks of another size.
std::vector<v1::ResultChunk> CutAnew(const std::vector<v1::ResultChunk>& chunks, std::size_t size) {
  std::vector<v1::ResultChunk> anew{chunks.front()};
  std::string bytes;
  for (std::size_t i = 1; i < chunks.size(); ++i) bytes += chunks[i].data();
  for (std::size_t at = 0; at < bytes.size(); at += size) {
    anew.emplace_back().set_data(bytes.substr(at, size));
  }
  return anew;
}

template <typename Result>
std::unique_ptr<Result> Received(const std::vector<v1::ResultChunk>& chunks,
                                 std::uint64_t heap_bytes = kHeap) {
  const FreshDirectory directory;
  std::size_t next = 0;
  auto received = ReceiveResult(
      [&](v1::ResultChunk& chunk) {
        if (next == chunks.size()) return false;
        chunk = chunks[next++];
        return true;
      },
      directory.path(), heap_bytes);
  auto* result = dynamic_cast<Result*>(received.get());
  EXPECT_NE(result, nullptr);
  (void)received.release();
  return std::unique_ptr<Result>(result);
}

class ResultWire : public ::testing::Test {
 protected:
  float Real() { return std::uniform_real_distribution<float>(-9000, 9000)(random_); }
  std::uint32_t Count(std::uint32_t most) {
    return std::uniform_int_distribution<std::uint32_t>(0, most)(random_);
  }
  NodalDepth Node() { return {Real(), Real(), Count(9), Real()}; }

  ResultDepth Depths(std::uint32_t rows, std::uint32_t columns) {
    const auto arena = std::make_shared<ResultArena>(".", kHeap);
    ResultDepth result;
    result.result_number = 41;
    result.bounds = SGBoundingBox(1.5, 2.5, 1e6, 7.25e6);
    auto* cells = arena->Array<DepthCell>(std::uint64_t{rows} * columns);
    for (std::uint32_t i = 0; i < rows * columns; ++i) {
      if (Count(3) == 0) continue;  // without data
      cells[i].estimate = Node();
      if (Count(3) == 0) continue;
      cells[i].resolution_m = Real();
      const std::uint32_t n = 1 + Count(40);
      auto* nodes = arena->Array<RefinedNode>(std::uint64_t{n} * n);
      for (std::uint32_t k = 0; k < n * n; ++k) {
        nodes[k] = {Node(), static_cast<std::uint16_t>(Count(65535))};
      }
      auto* block = arena->Array<RefinementBlock>(1);
      *block = {n, n, nodes};
      cells[i].refinement = block;
    }
    result.grid = {rows, columns, cells, arena};
    return result;
  }
  ResultHypos Hypotheses(std::uint64_t count) {
    const auto arena = std::make_shared<ResultArena>(".", kHeap);
    ResultHypos result;
    result.result_number = 42;
    result.bounds = SGBoundingBox(-5, -6, 7, 8);
    auto* nodes = arena->Array<NodalHypos>(count);
    for (std::uint64_t i = 0; i < count; ++i) {
      const std::uint32_t n = Count(6);
      auto* hypotheses = arena->Array<Hypothesis>(n);
      for (std::uint32_t k = 0; k < n; ++k) hypotheses[k] = {Real(), Real(), Count(1000)};
      nodes[i] = {Real(), Real(), Real(), Real(), n, hypotheses};
    }
    result.count = count;
    result.nodes = nodes;
    result.storage = arena;
    return result;
  }
  ResultResolution Resolutions(std::uint32_t rows, std::uint32_t columns) {
    const auto arena = std::make_shared<ResultArena>(".", kHeap);
    ResultResolution result;
    result.result_number = 43;
    auto* cells = arena->Array<ResolutionRecord>(std::uint64_t{rows} * columns);
    for (std::uint32_t i = 0; i < rows * columns; ++i) {
      cells[i].soundings = Count(100000);
      cells[i].node_spacing_m = Real();
      cells[i].mean_depth_m = Real();
      cells[i].depth_deviation_m = Real();
      cells[i].shallowest_m = Real();
      cells[i].deepest_m = Real();
      cells[i].mean_vertical_sigma_m = Real();
      cells[i].mean_horizontal_sigma_m = Real();
      cells[i].density_per_m2 = Real();
      cells[i].covered_fraction = Real();
      cells[i].occupancy = random_();
      cells[i].covered_area_m2 = Real();
      cells[i].depth_m = Real();
      cells[i].uncertainty_m = Real();
      cells[i].hypothesis_strength = Real();
      cells[i].easting_m = Real();
      cells[i].northing_m = std::numeric_limits<double>::max();
    }
    result.grid = {rows, columns, cells, arena};
    return result;
  }

  std::mt19937_64 random_{20240};
};

TEST_F(ResultWire, EveryValueOfEachClassArrives) {
  const ResultDepth depth = Depths(23, 17);
  EXPECT_EQ(TextOf(*Received<ResultDepth>(Sent(depth))), TextOf(depth));
  EXPECT_EQ(Received<ResultDepth>(Sent(depth))->result_number, 41U);
  const ResultHypos hypotheses = Hypotheses(500);
  EXPECT_EQ(TextOf(*Received<ResultHypos>(Sent(hypotheses))), TextOf(hypotheses));
  EXPECT_EQ(Received<ResultHypos>(Sent(hypotheses))->result_number, 42U);
  const ResultResolution resolution = Resolutions(19, 31);
  EXPECT_EQ(TextOf(*Received<ResultResolution>(Sent(resolution))), TextOf(resolution));
  EXPECT_EQ(Received<ResultResolution>(Sent(resolution))->result_number, 43U);
}

TEST_F(ResultWire, ChunksMayBeCutAnywhere) {
  const ResultDepth depth = Depths(9, 7);
  const ResultHypos hypotheses = Hypotheses(60);
  const ResultResolution resolution = Resolutions(3, 5);
  for (const std::size_t size : {1U, 2U, 3U, 5U, 17U, 19U, 120U, 4096U}) {
    EXPECT_EQ(TextOf(*Received<ResultDepth>(CutAnew(Sent(depth), size))), TextOf(depth)) << size;
    EXPECT_EQ(TextOf(*Received<ResultHypos>(CutAnew(Sent(hypotheses), size))), TextOf(hypotheses));
    EXPECT_EQ(TextOf(*Received<ResultResolution>(CutAnew(Sent(resolution), size))),
              TextOf(resolution));
  }
}

TEST_F(ResultWire, ChunksAreBounded) {
  const auto chunks = Sent(Depths(60, 60));
  ASSERT_GT(chunks.size(), 10U);
  for (const auto& chunk : chunks) EXPECT_LE(chunk.data().size(), std::size_t{1} << 20U);
}

TEST_F(ResultWire, LargeArraysGoToAFileAndAreTheSame) {
  const ResultDepth depth = Depths(30, 30);
  EXPECT_EQ(TextOf(*Received<ResultDepth>(Sent(depth), 1000)), TextOf(depth));
}

TEST_F(ResultWire, EveryCutResultIsRefused) {
  const auto chunks = CutAnew(Sent(Depths(2, 2)), 64);
  for (std::size_t kept = 0; kept < chunks.size(); ++kept) {
    const std::vector<v1::ResultChunk> part(chunks.begin(),
                                            chunks.begin() + static_cast<std::ptrdiff_t>(kept));
    EXPECT_THAT(ReasonOf([&] { Received<ResultDepth>(part); }),
                ::testing::AnyOf(HasSubstr("only part of a result"), HasSubstr("no result")));
  }
}

TEST_F(ResultWire, BytesBehindAResultAreRefused) {
  auto chunks = Sent(Depths(2, 2));
  chunks.emplace_back().set_data("x");
  EXPECT_THAT(ReasonOf([&] { Received<ResultDepth>(chunks); }), HasSubstr("more than one result"));
}

TEST_F(ResultWire, SizesThatNoResultHasAreRefused) {
  v1::ResultChunk header;
  header.mutable_header()->set_kind(v1::GridResultHeader::DEPTH);
  header.mutable_header()->set_rows(0xffffffff);
  header.mutable_header()->set_columns(0xffffffff);
  EXPECT_THAT(ReasonOf([&] { Received<ResultDepth>({header}); }),
              HasSubstr("4294967295 rows and 4294967295 columns"));
  header.mutable_header()->set_columns(0);
  EXPECT_THAT(ReasonOf([&] { Received<ResultDepth>({header}); }),
              HasSubstr("4294967295 rows and 0 columns"));
  header.mutable_header()->set_kind(v1::GridResultHeader::UNKNOWN);
  EXPECT_THAT(ReasonOf([&] { Received<ResultDepth>({header}); }), HasSubstr("unknown kind"));
  v1::ResultChunk many;
  many.mutable_header()->set_kind(v1::GridResultHeader::HYPOTHESES);
  many.mutable_header()->set_count(std::numeric_limits<std::uint64_t>::max());
  EXPECT_THROW(Received<ResultHypos>({many}), ExSGCServerResources);
}

TEST_F(ResultWire, AFailureKeepsItsClassAndItsText) {
  for (const bool in_the_middle : {false, true}) {
    auto chunks = Sent(Depths(2, 2));
    v1::ResultChunk failure;
    *failure.mutable_failure() =
        ToMessage(std::make_exception_ptr(ExSGCNoGrid("there is none, says the engine")));
    chunks[in_the_middle ? 1 : 0] = failure;
    EXPECT_THROW(Received<ResultDepth>(chunks), ExSGCNoGrid);
    EXPECT_EQ(ReasonOf([&] { Received<ResultDepth>(chunks); }), "there is none, says the engine");
  }
}

TEST_F(ResultWire, SendingEndsWhenNobodyTakesTheChunks) {
  int taken = 0;
  EXPECT_FALSE(SendResult(Depths(60, 60), [&](const v1::ResultChunk&) { return ++taken < 3; }));
  EXPECT_EQ(taken, 3);
}

TEST(MessageForms, FailuresKeepTheirClasses) {
  const auto through = [](auto failure) {
    std::rethrow_exception(FromMessage(ToMessage(std::make_exception_ptr(failure))));
  };
  EXPECT_THROW(through(ExSGCNoGrid("a")), ExSGCNoGrid);
  EXPECT_THROW(through(ExSGCServerResources("a")), ExSGCServerResources);
  EXPECT_THROW(through(std::bad_alloc()), ExSGCServerResources);
  EXPECT_EQ(ReasonOf([&] { through(ExTarn("of the store")); }), "of the store");
}

TEST(MessageForms, BytesThatAreNoTextAreReplaced) {
  EXPECT_EQ(Utf8("plain"), "plain");
  EXPECT_EQ(Utf8("na\xc3\xafve \xe2\x82\xac \xf0\x9f\x8c\x8a"),
            "na\xc3\xafve \xe2\x82\xac \xf0\x9f\x8c\x8a");
  EXPECT_EQ(Utf8("a\xff"
                 "b\xc3"),
            "a?b?");
  EXPECT_EQ(Utf8("\xc0\xaf"), "??");
  EXPECT_EQ(Utf8("\xe0\x80\x80"), "???");
  EXPECT_EQ(Utf8("\xed\xa0\x80"), "???");
  EXPECT_EQ(Utf8("\xf4\x90\x80\x80"), "????");
}

}  // namespace
}  // namespace quarro::rpc
