// What a grid gives back of what was put in: order, totals, snapshots, rollback.
#include "gridding/store/grid_store.h"

#include <atomic>
#include <filesystem>
#include <limits>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "gridding/store/store_test_support.h"

namespace quarro::store {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;

std::vector<std::pair<std::uint32_t, std::size_t>> Pairs(
    const std::vector<Snapshot::LineRun>& runs) {
  std::vector<std::pair<std::uint32_t, std::size_t>> pairs;
  pairs.reserve(runs.size());
  for (const Snapshot::LineRun& run : runs) pairs.emplace_back(run.line, run.bytes);
  return pairs;
}

Bytes Joined(const std::vector<Bytes>& parts) {
  Bytes joined;
  for (const Bytes& part : parts) joined.insert(joined.end(), part.begin(), part.end());
  return joined;
}

std::vector<CellIndex> CellsIn(Snapshot& snapshot, const CellRange& range) {
  std::vector<CellIndex> cells;
  snapshot.VisitCells(range, false,
                      [&](const Snapshot::Cell& cell) { cells.push_back(cell.index); });
  return cells;
}

class GridStoreTest : public testing::Test {
 protected:
  void Reopen() {
    store_.reset();
    store_ = GridStore::Open(directory_.Path(), "g");
  }

  FreshDirectory directory_;
  std::unique_ptr<GridStore> store_ = CreateGrid(directory_.Path());
};

TEST_F(GridStoreTest, ANewGridIsEmptyAndKeepsItsParameters) {
  Reopen();
  EXPECT_EQ(store_->Name(), "g");
  EXPECT_EQ(store_->Parameters().resolution_m, 12.3F);
  EXPECT_EQ(store_->Parameters().min_resolution_m, 0.1F);
  const auto snapshot = store_->TakeSnapshot();
  EXPECT_EQ(snapshot->GetTotals().lines, 0U);
  EXPECT_EQ(snapshot->GetTotals().cells, 0U);
  EXPECT_FALSE(snapshot->GetTotals().extent.has_value());
  EXPECT_TRUE(snapshot->Lines().empty());
  EXPECT_EQ(snapshot->Setting("zone"), "");
  EXPECT_TRUE(CellsIn(*snapshot, kEverywhere).empty());
  Bytes state = Text("left alone");
  EXPECT_FALSE(snapshot->CellState({0, 0}, state));
}

TEST_F(GridStoreTest, LinesAreNumberedFromOneInTheOrderOfCommitment) {
  EXPECT_EQ(AddLine(*store_, 7), 1U);
  EXPECT_EQ(AddLine(*store_, 5), 2U);
  Reopen();
  EXPECT_EQ(AddLine(*store_, 6), 3U);
  const auto lines = store_->TakeSnapshot()->Lines();
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[0].sequence, 1U);
  EXPECT_EQ(lines[0].name, "line7.gsf");
  EXPECT_EQ(lines[0].digest, RecordOf(7).digest);
  EXPECT_EQ(lines[0].file_bytes, 1007U);
  EXPECT_EQ(lines[0].soundings, 70U);
  EXPECT_EQ(lines[0].account, "offered 7");
  EXPECT_EQ(lines[1].name, "line5.gsf");
  EXPECT_EQ(lines[2].name, "line6.gsf");
}

TEST_F(GridStoreTest, NamesAndAccountsOfAnyBytesComeBackUnchanged) {
  LineRecord line = RecordOf(1);
  line.name = "d\xe9j\xe0 'vu'\n\xff";
  line.account = std::string("a\0b", 3);
  line.file_bytes = std::numeric_limits<std::uint64_t>::max();
  store_->BeginLine()->Commit(line);
  const auto lines = store_->TakeSnapshot()->Lines();
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].name, line.name);
  EXPECT_EQ(lines[0].account, line.account);
  EXPECT_EQ(lines[0].file_bytes, line.file_bytes);
}

TEST_F(GridStoreTest, ALineIsFoundByItsDigest) {
  AddLine(*store_, 4);
  AddLine(*store_, 9);
  AddLine(*store_, 9);
  const auto found = store_->FindLine(RecordOf(9).digest);
  ASSERT_TRUE(found.has_value());
  EXPECT_EQ(found->sequence, 2U);
  EXPECT_EQ(found->name, "line9.gsf");
  EXPECT_FALSE(store_->FindLine(RecordOf(8).digest).has_value());
}

TEST_F(GridStoreTest, SoundingsOfACellComeInTheOrderOfLinesAndOfTheFile) {
  const CellIndex cell{5, -9};
  for (const char* const name : {"a", "b"}) {
    const auto writer = store_->BeginLine();
    writer->PutCell(cell, Text("state"));
    for (int chunk = 0; chunk < 3; ++chunk) {
      writer->AppendSoundings(cell, Text(name + std::to_string(chunk)), 1);
      writer->AppendSoundings({5, -8}, Text("other"), 1);
    }
    writer->Commit(RecordOf(1));
  }
  Reopen();
  Bytes out = Text(">");
  std::vector<Snapshot::LineRun> runs{{.line = 1, .bytes = 99}};
  store_->TakeSnapshot()->AppendSoundings(cell, out, runs);
  EXPECT_EQ(out, Text(">a0a1a2b0b1b2"));
  EXPECT_THAT(Pairs(runs), ElementsAre(std::pair(1U, 99U), std::pair(1U, 6U), std::pair(2U, 6U)));
}

TEST_F(GridStoreTest, ALineBeyondTheMemoryKeptForItStaysInOrder) {
  constexpr std::size_t kChunkBytes = 3'000'000;
  const CellIndex cell{0, 0};
  std::vector<Bytes> chunks;
  const auto writer = store_->BeginLine();
  writer->PutCell(cell, Text("state"));
  for (std::uint32_t i = 0; i < 24; ++i) {
    chunks.push_back(BytesOf(i, kChunkBytes));
    writer->AppendSoundings(cell, chunks.back(), 1);
  }
  writer->Commit(RecordOf(1));
  Bytes out;
  std::vector<Snapshot::LineRun> runs;
  store_->TakeSnapshot()->AppendSoundings(cell, out, runs);
  EXPECT_TRUE(out == Joined(chunks));
  EXPECT_THAT(Pairs(runs), ElementsAre(std::pair(1U, 24 * kChunkBytes)));
}

TEST_F(GridStoreTest, EmptyBlocksAreKept) {
  const auto writer = store_->BeginLine();
  writer->PutCell({1, 1}, {});
  writer->AppendSoundings({1, 1}, {}, 0);
  writer->Commit(RecordOf(1));
  const auto snapshot = store_->TakeSnapshot();
  Bytes state = Text("replaced");
  EXPECT_TRUE(snapshot->CellState({1, 1}, state));
  EXPECT_TRUE(state.empty());
  EXPECT_THAT(CellsIn(*snapshot, kEverywhere), ElementsAre(CellIndex{1, 1}));
}

TEST_F(GridStoreTest, AWriterSeesTheStatesOfItsOwnLine) {
  AddLine(*store_, 1);
  const auto writer = store_->BeginLine();
  Bytes state;
  ASSERT_TRUE(writer->CellState({0, 1}, state));
  EXPECT_EQ(state, StateOf(1, {0, 1}));
  writer->PutCell({0, 1}, Text("new"));
  ASSERT_TRUE(writer->CellState({0, 1}, state));
  EXPECT_EQ(state, Text("new"));
  EXPECT_FALSE(writer->CellState({9, 9}, state));
}

TEST_F(GridStoreTest, CellsOfARangeAreVisitedRowByRowFromTheSouthWest) {
  constexpr std::int32_t kLeast = std::numeric_limits<std::int32_t>::min();
  constexpr std::int32_t kMost = std::numeric_limits<std::int32_t>::max();
  const std::vector<CellIndex> cells{
      {kLeast, kLeast}, {kLeast, kMost}, {-2, -1},      {-2, 0}, {-2, 3},
      {-1, -1},         {0, kLeast},     {0, -1},       {0, 0},  {0, kMost},
      {1, 2},           {kMost, kLeast}, {kMost, kMost}};
  const auto writer = store_->BeginLine();
  for (auto cell = cells.rbegin(); cell != cells.rend(); ++cell) writer->PutCell(*cell, {});
  writer->Commit(RecordOf(1));
  const auto snapshot = store_->TakeSnapshot();
  EXPECT_EQ(CellsIn(*snapshot, kEverywhere), cells);
  EXPECT_THAT(CellsIn(*snapshot, {{-2, -1}, {0, 2}}),
              ElementsAre(CellIndex{-2, -1}, CellIndex{-2, 0}, CellIndex{-1, -1}, CellIndex{0, -1},
                          CellIndex{0, 0}));
  EXPECT_THAT(
      CellsIn(*snapshot, {{-1, 0}, {kMost, kMost}}),
      ElementsAre(CellIndex{0, 0}, CellIndex{0, kMost}, CellIndex{1, 2}, CellIndex{kMost, kMost}));
  EXPECT_THAT(
      CellsIn(*snapshot, {{kLeast, kLeast}, {kMost, kLeast}}),
      ElementsAre(CellIndex{kLeast, kLeast}, CellIndex{0, kLeast}, CellIndex{kMost, kLeast}));
  EXPECT_TRUE(CellsIn(*snapshot, {{2, 0}, {1, 0}}).empty());
  EXPECT_TRUE(CellsIn(*snapshot, {{-9, 1}, {9, 0}}).empty());
  EXPECT_EQ(snapshot->GetTotals().extent, kEverywhere);
}

TEST_F(GridStoreTest, AVisitMayReadTheCellItIsAt) {
  AddLine(*store_, 1);
  const auto snapshot = store_->TakeSnapshot();
  std::vector<CellIndex> visited;
  snapshot->VisitCells(kEverywhere, true, [&](const Snapshot::Cell& cell) {
    Bytes state;
    EXPECT_TRUE(snapshot->CellState(cell.index, state));
    EXPECT_EQ(state, StateOf(1, cell.index));
    EXPECT_EQ(CellsIn(*snapshot, {cell.index, cell.index}).size(), 1U);
    visited.push_back(cell.index);
  });
  EXPECT_THAT(visited, ElementsAre(CellIndex{-3, 7}, CellIndex{0, 0}, CellIndex{0, 1}));
}

TEST_F(GridStoreTest, WhatAVisitThrowsPassesThroughAndTheSnapshotStaysUsable) {
  AddLine(*store_, 1);
  const auto snapshot = store_->TakeSnapshot();
  EXPECT_THROW(snapshot->VisitCells(kEverywhere, false,
                                    [](const Snapshot::Cell&) { throw std::bad_alloc(); }),
               std::bad_alloc);
  EXPECT_EQ(CellsIn(*snapshot, kEverywhere).size(), 3U);
}

TEST_F(GridStoreTest, ARefinementReadsBackItsOwnBlocksBeforeItIsCommitted) {
  AddLine(*store_, 1);
  const auto refinement = store_->BeginRefinement();
  refinement->Put({2, 3}, Text("block"), 4);
  Bytes block;
  ASSERT_TRUE(refinement->Block({2, 3}, block));
  EXPECT_EQ(block, Text("block"));
  EXPECT_FALSE(refinement->Block({2, 4}, block));
  refinement->Remove({2, 3});
  EXPECT_FALSE(refinement->Block({2, 3}, block));
}

TEST_F(GridStoreTest, TotalsFollowLinesAndRefinements) {
  AddLine(*store_, 1, {.cells = {{2, 3}, {4, -5}}, .bytes_a_cell = 32});
  AddLine(*store_, 2, {.cells = {{2, 3}, {3, 9}}, .bytes_a_cell = 48});
  Totals totals = store_->TakeSnapshot()->GetTotals();
  EXPECT_EQ(totals.lines, 2U);
  EXPECT_EQ(totals.soundings, 2U * 2 + 2 * 3);
  EXPECT_EQ(totals.cells, 3U);
  EXPECT_EQ(totals.cells_changed, 3U);
  EXPECT_EQ(totals.extent, (CellRange{{2, -5}, {4, 9}}));

  auto refinement = store_->BeginRefinement();
  refinement->Put({2, 3}, Text("five"), 25);
  refinement->Put({2, 3}, Text("two"), 4);
  refinement->Put({3, 9}, Text("one"), 1);
  refinement->Put({4, -5}, Text("gone"), 9);
  refinement->Remove({4, -5});
  refinement->Remove({100, 100});
  refinement->PutSetting("level", "3");
  refinement->Commit();
  refinement.reset();
  Reopen();
  const auto snapshot = store_->TakeSnapshot();
  totals = snapshot->GetTotals();
  EXPECT_EQ(totals.cells_refined, 1U);
  EXPECT_EQ(totals.nodes_refined, 4U);
  EXPECT_EQ(totals.cells_changed, 0U);
  EXPECT_EQ(totals.cells, 3U);
  EXPECT_EQ(snapshot->Setting("level"), "3");
  const Contents contents = ReadAll(*snapshot);
  EXPECT_EQ(contents.cells.at({2, 3}).refinement, Text("two"));
  EXPECT_EQ(contents.cells.at({3, 9}).refinement, Text("one"));
  EXPECT_TRUE(contents.cells.at({4, -5}).refinement.empty());
}

TEST_F(GridStoreTest, BytesOnDiscAreThoseOfTheDatabaseAndItsLog) {
  AddLine(*store_, 1, {.cells = {{0, 0}}, .bytes_a_cell = 1'600'000});
  const std::uint64_t before = store_->TakeSnapshot()->GetTotals().bytes_on_disc;
  EXPECT_GT(before, 1'600'000U);
  store_->Checkpoint();
  std::uint64_t files = 0;
  for (const auto& entry : fs::directory_iterator(directory_.Path() / "g")) {
    if (entry.path().filename() != "lock") files += entry.file_size();
  }
  EXPECT_EQ(store_->TakeSnapshot()->GetTotals().bytes_on_disc, files);
}

TEST_F(GridStoreTest, CellsAreChangedFromALineToTheNextRefinement) {
  AddLine(*store_, 1, {.cells = {{0, 0}, {1, 0}}});
  store_->BeginRefinement()->Commit();
  EXPECT_TRUE(store_->TakeSnapshot()->ChangedCells().empty());
  AddLine(*store_, 2, {.cells = {{1, 0}, {-1, 4}}});
  const auto snapshot = store_->TakeSnapshot();
  EXPECT_THAT(snapshot->ChangedCells(), ElementsAre(CellIndex{-1, 4}, CellIndex{1, 0}));
  const Contents contents = ReadAll(*snapshot);
  EXPECT_FALSE(contents.cells.at({0, 0}).changed);
  EXPECT_TRUE(contents.cells.at({1, 0}).changed);
  EXPECT_TRUE(contents.cells.at({-1, 4}).changed);
}

TEST_F(GridStoreTest, RefinementsAreReadOnlyWhenAskedFor) {
  AddLine(*store_, 1, {.cells = {{0, 0}}});
  auto refinement = store_->BeginRefinement();
  refinement->Put({0, 0}, Text("block"), 4);
  refinement->Commit();
  const auto snapshot = store_->TakeSnapshot();
  std::vector<std::size_t> sizes;
  for (const bool with : {false, true}) {
    snapshot->VisitCells(kEverywhere, with, [&](const Snapshot::Cell& cell) {
      sizes.push_back(cell.refinement.size());
    });
  }
  EXPECT_THAT(sizes, ElementsAre(0U, 5U));
}

TEST_F(GridStoreTest, WhatIsNotCommittedLeavesNoTrace) {
  AddLine(*store_, 1);
  {
    const auto refinement = store_->BeginRefinement();
    refinement->Put({0, 0}, Text("kept"), 4);
    refinement->Commit();
  }
  const Contents before = ReadAll(*store_);
  {
    const auto writer = store_->BeginLine();
    // More than the cache holds, so that pages have gone to the log.
    Write(*writer, 2, {.cells = {{0, 0}, {8, 8}}, .bytes_a_cell = 48'000'000});
    writer->PutSetting("zone", "33");
  }
  {
    const auto refinement = store_->BeginRefinement();
    refinement->Put({0, 0}, Text("lost"), 9);
    refinement->Put({0, 1}, Text("lost"), 9);
    refinement->PutSetting("zone", "33");
  }
  EXPECT_TRUE(ReadAll(*store_) == before);
  EXPECT_EQ(AddLine(*store_, 3), 2U);
  EXPECT_EQ(store_->TakeSnapshot()->GetTotals().cells_changed, 3U);
}

TEST_F(GridStoreTest, OneWriterAtATime) {
  const auto writer = store_->BeginLine();
  EXPECT_THAT(ErrorOf([&] { store_->BeginLine(); }), HasSubstr("it is being written already"));
  EXPECT_THAT(ErrorOf([&] { store_->BeginRefinement(); }),
              HasSubstr("it is being written already"));
  EXPECT_THAT(ErrorOf([&] { store_->Checkpoint(); }), HasSubstr("while it is being written"));
  Write(*writer, 1);
  EXPECT_EQ(writer->Commit(RecordOf(1)), 1U);
}

TEST_F(GridStoreTest, AWriterThatHasCommittedTakesNoMore) {
  const auto writer = store_->BeginLine();
  writer->Commit(RecordOf(1));
  EXPECT_THAT(ErrorOf([&] { writer->PutCell({0, 0}, {}); }), HasSubstr("has ended already"));
  EXPECT_THAT(ErrorOf([&] { writer->Commit(RecordOf(2)); }), HasSubstr("has ended already"));
  EXPECT_EQ(store_->TakeSnapshot()->GetTotals().lines, 1U);
}

TEST_F(GridStoreTest, SettingsAreKeptAndReplaced) {
  auto writer = store_->BeginLine();
  writer->PutSetting("zone", "32");
  writer->PutSetting("zone", "-33");
  writer->PutSetting("", "empty key");
  writer->Commit(RecordOf(1));
  writer.reset();
  Reopen();
  EXPECT_EQ(store_->TakeSnapshot()->Setting("zone"), "-33");
  EXPECT_EQ(store_->TakeSnapshot()->Setting(""), "empty key");
}

TEST_F(GridStoreTest, ASnapshotShowsTheGridAsItWasWhenItWasTaken) {
  AddLine(*store_, 1);
  const auto early = store_->TakeSnapshot();
  const auto writer = store_->BeginLine();
  Write(*writer, 2);
  const auto during = store_->TakeSnapshot();
  writer->Commit(RecordOf(2));
  const auto late = store_->TakeSnapshot();
  EXPECT_TRUE(ReadAll(*early) == ReadAll(*during));
  EXPECT_EQ(early->GetTotals().lines, 1U);
  EXPECT_EQ(late->GetTotals().lines, 2U);
  Bytes state;
  ASSERT_TRUE(during->CellState({0, 0}, state));
  EXPECT_EQ(state, StateOf(1, {0, 0}));
  ASSERT_TRUE(late->CellState({0, 0}, state));
  EXPECT_EQ(state, StateOf(2, {0, 0}));
}

TEST_F(GridStoreTest, ACheckpointEmptiesTheLogAndReadersOnlyDelayThat) {
  const fs::path log = directory_.Path() / "g" / "grid.sqlite-wal";
  AddLine(*store_, 1);
  auto snapshot = store_->TakeSnapshot();
  const Contents before = ReadAll(*snapshot);
  AddLine(*store_, 2);
  store_->Checkpoint();
  EXPECT_TRUE(ReadAll(*snapshot) == before);
  EXPECT_GT(fs::file_size(log), 0U);
  snapshot.reset();
  store_->Checkpoint();
  EXPECT_EQ(fs::file_size(log), 0U);
  EXPECT_EQ(store_->TakeSnapshot()->GetTotals().lines, 2U);
}

TEST_F(GridStoreTest, SnapshotsOnOtherThreadsSeeWholeLinesWhileOneIsWritten) {
  constexpr std::uint32_t kLines = 30;
  const LineShape shape{.cells = {{0, 0}, {0, 1}, {1, 0}}, .bytes_a_cell = 16'000};
  std::atomic<bool> done = false;
  std::atomic<int> torn = 0;
  const auto read = [&] {
    do {
      const auto snapshot = store_->TakeSnapshot();
      const std::uint64_t lines = snapshot->GetTotals().lines;
      const Contents contents = ReadAll(*snapshot);
      if (contents.lines.size() != lines) ++torn;
      for (const auto& [index, cell] : contents.cells) {
        const auto last = static_cast<std::uint32_t>(lines);
        if (cell.soundings.size() != lines * shape.bytes_a_cell) ++torn;
        if (cell.state != StateOf(last, index)) ++torn;
      }
    } while (!done);
  };
  std::thread first(read);
  std::thread second(read);
  for (std::uint32_t line = 1; line <= kLines; ++line) AddLine(*store_, line, shape);
  done = true;
  first.join();
  second.join();
  EXPECT_EQ(torn, 0);
  EXPECT_EQ(store_->TakeSnapshot()->GetTotals().lines, kLines);
}

TEST_F(GridStoreTest, TheSameLinesGiveTheSameContentsWhateverTheChunks) {
  const LineShape shape{.cells = {{0, 0}, {2, 2}}, .bytes_a_cell = 4800};
  AddLine(*store_, 1, shape);
  const auto other = CreateGrid(directory_.Path(), "other");
  const auto writer = other->BeginLine();
  for (std::size_t at = 0; at < shape.bytes_a_cell; at += 160) {
    for (const CellIndex cell : shape.cells) {
      const Bytes soundings = SoundingsOf(1, cell, shape);
      writer->AppendSoundings(cell, std::span(soundings).subspan(at, 160), 10);
    }
  }
  for (const CellIndex cell : shape.cells) writer->PutCell(cell, StateOf(1, cell));
  writer->Commit(RecordOf(1));
  EXPECT_TRUE(ReadAll(*other) == ReadAll(*store_));
}

}  // namespace
}  // namespace quarro::store
