// What the disc may do to a grid: damage, a full disc, a crash. The answer is an error or the exact
// data, and the program lives on.
#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "gridding/store/grid_store.h"
#include "gridding/store/page_checks.h"
#include "gridding/store/store_test_support.h"

namespace quarro::store {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::AnyOf;
using testing::HasSubstr;

class DamageTest : public testing::Test {
 protected:
  DamageTest() {
    const auto store = CreateGrid(directory_.Path());
    for (std::uint32_t line = 1; line <= 4; ++line) {
      AddLine(*store, line, {.cells = {{0, 0}, {0, 1}, {-3, 7}, {2, 2}}, .bytes_a_cell = 40'000});
    }
    const auto refinement = store->BeginRefinement();
    refinement->Put({0, 0}, BytesOf(1, 70'000), 100);
    refinement->Put({0, 1}, BytesOf(2, 500), 16);
    refinement->PutSetting("zone", "32");
    refinement->Commit();
    const auto writer = store->BeginLine();
    writer->PutCell({0, 0}, BytesOf(3, 300));
    writer->Commit(RecordOf(5));
    contents_ = ReadAll(*store);
  }

  fs::path Database() const { return directory_.Path() / "g" / "grid.sqlite"; }
  std::string FileBytes() const {
    std::ifstream file(Database(), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  void SetFileBytes(const std::string& bytes) const {
    std::ofstream(Database(), std::ios::binary | std::ios::trunc) << bytes;
    std::error_code none;
    fs::remove(Database().string() + "-wal", none);
    fs::remove(Database().string() + "-shm", none);
  }
  std::unique_ptr<GridStore> Open() const { return GridStore::Open(directory_.Path(), "g"); }
  std::string OpeningError() const {
    return ErrorOf([this] { Open(); });
  }
  // Runs SQL below the store, so that pages stay sound and blocks do not.
  void Change(const std::string& sql) const {
    sqlite3* handle = nullptr;
    CheckedFileSystem();
    ASSERT_EQ(
        sqlite3_open_v2(Database().c_str(), &handle, SQLITE_OPEN_READWRITE, CheckedFileSystem()),
        SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(handle, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK)
        << sqlite3_errmsg(handle);
    EXPECT_GT(sqlite3_total_changes(handle), 0);
    sqlite3_close(handle);
  }
  // The file's error or exact contents; anything else fails the test. True for the contents.
  bool IsExactOrAnError(const std::string& what) const {
    try {
      const Contents found = ReadAll(*Open());
      EXPECT_TRUE(found == contents_) << what;
      return true;
    } catch (const StoreError& error) {
      EXPECT_THAT(error.what(), HasSubstr("grid \"g\"")) << what;
      return false;
    }
  }

  FreshDirectory directory_;
  Contents contents_;
};

TEST_F(DamageTest, AChangedByteAnywhereIsAnErrorOrChangesNothing) {
  const std::string whole = FileBytes();
  ASSERT_EQ(whole.size() % kPageBytes, 0U);
  constexpr std::uint32_t kSeed = 20240229;
  SCOPED_TRACE("seed " + std::to_string(kSeed));
  std::minstd_rand random(kSeed);
  int errors = 0;
  const auto flip = [&](std::size_t at) {
    std::string damaged = whole;
    damaged[at] = static_cast<char>(damaged[at] ^ (1 << random() % 8));
    SetFileBytes(damaged);
    if (!IsExactOrAnError("byte " + std::to_string(at))) ++errors;
  };
  // The header, the beginning and the checksum of every page, and places in between.
  for (std::size_t at = 0; at < 108; ++at) flip(at);
  for (std::size_t page = 0; page < whole.size(); page += kPageBytes) {
    for (const std::size_t at : {0U, 3U, 5U, 9U, 40U}) flip(page + at);
    for (int i = 0; i < 5; ++i) flip(page + random() % kPageBytes);
    flip(page + kPageBytes - 1);
  }
  // Pages that nothing uses any more may change unseen; most are in use.
  EXPECT_GT(errors, 150);
}

TEST_F(DamageTest, ABlankedOrExchangedPageIsAnErrorOrChangesNothing) {
  const std::string whole = FileBytes();
  int errors = 0;
  for (std::size_t page = 0; page < whole.size(); page += kPageBytes) {
    std::string damaged = whole;
    std::fill_n(damaged.begin() + static_cast<std::ptrdiff_t>(page), kPageBytes, '\0');
    SetFileBytes(damaged);
    if (!IsExactOrAnError("blanked page at " + std::to_string(page))) ++errors;
    damaged = whole;
    const std::size_t next = (page + kPageBytes) % whole.size();
    std::swap_ranges(damaged.begin() + static_cast<std::ptrdiff_t>(page),
                     damaged.begin() + static_cast<std::ptrdiff_t>(page) + kPageBytes,
                     damaged.begin() + static_cast<std::ptrdiff_t>(next));
    SetFileBytes(damaged);
    if (!IsExactOrAnError("exchanged page at " + std::to_string(page))) ++errors;
  }
  EXPECT_GT(errors, 20);
}

TEST_F(DamageTest, ATruncatedFileIsAnError) {
  const std::string whole = FileBytes();
  for (std::size_t size = 0; size < whole.size(); size += 7'001) {
    SetFileBytes(whole.substr(0, size));
    EXPECT_FALSE(IsExactOrAnError("cut to " + std::to_string(size)));
  }
  for (const std::size_t size : {0U, 1U, 15U, 16U, 99U, 100U, 512U, 4096U, 32767U, 32768U}) {
    SetFileBytes(whole.substr(0, size));
    EXPECT_THAT(OpeningError(), HasSubstr("damaged")) << size;
  }
  SetFileBytes(whole);
  EXPECT_TRUE(IsExactOrAnError("whole again"));
}

TEST_F(DamageTest, WritingToADamagedGridIsAnErrorOrExact) {
  const CellIndex anew{9, 9};
  const LineShape shape{.cells = {{0, 0}, anew}, .bytes_a_cell = 40'000};
  const std::string whole = FileBytes();
  AddLine(*Open(), 6, shape);
  const Contents written = ReadAll(*Open());
  ASSERT_FALSE(written == contents_);
  int refused = 0;
  int taken = 0;
  int told_later = 0;
  for (std::size_t page = 0; page < whole.size(); page += kPageBytes) {
    SCOPED_TRACE("page at " + std::to_string(page));
    std::string damaged = whole;
    damaged[page + 2000] = static_cast<char>(~damaged[page + 2000]);
    damaged[page + 5] = static_cast<char>(~damaged[page + 5]);
    SetFileBytes(damaged);
    std::unique_ptr<GridStore> store;
    try {
      store = Open();
      AddLine(*store, 6, shape);
    } catch (const StoreError& error) {
      EXPECT_THAT(error.what(), HasSubstr("grid \"g\""));
      ++refused;
      continue;
    }
    // The damage is in what the line did not touch, which is told when it is read.
    Bytes soundings;
    std::vector<Snapshot::LineRun> runs;
    store->TakeSnapshot()->AppendSoundings(anew, soundings, runs);
    EXPECT_TRUE(soundings == SoundingsOf(6, anew, shape));
    Bytes state;
    EXPECT_TRUE(store->TakeSnapshot()->CellState(anew, state));
    EXPECT_TRUE(state == StateOf(6, anew));
    ++taken;
    try {
      EXPECT_TRUE(ReadAll(*store) == written);
    } catch (const StoreError& error) {
      EXPECT_THAT(error.what(), HasSubstr("grid \"g\""));
      ++told_later;
    }
  }
  EXPECT_GT(refused, 0);
  EXPECT_GT(taken, 0);
  // Nearly every page is in use.
  EXPECT_GT(told_later, taken / 2);
}

TEST_F(DamageTest, AnotherFormatVersionIsRefusedByBothNumbers) {
  std::string bytes = FileBytes();
  bytes[63] = 9;
  SetFileBytes(bytes);
  EXPECT_THAT(OpeningError(), AllOf(HasSubstr("grid \"g\""), HasSubstr("format version is 9"),
                                    HasSubstr("reads version 1")));
}

TEST_F(DamageTest, ForeignFilesAreRefused) {
  SetFileBytes(
      "This is a text about the sea and quite a bit longer than a file header of SQLite, "
      "so that there is something to read.");
  EXPECT_THAT(OpeningError(), HasSubstr("no SQLite database"));
  fs::remove(Database());
  sqlite3* handle = nullptr;
  ASSERT_EQ(sqlite3_open(Database().c_str(), &handle), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(handle, "CREATE TABLE t (x)", nullptr, nullptr, nullptr), SQLITE_OK);
  sqlite3_close(handle);
  EXPECT_THAT(OpeningError(), HasSubstr("but not of a grid"));
}

TEST_F(DamageTest, AChangedBlockOfSoundingsIsNamedByCellAndLine) {
  Change(
      "UPDATE soundings SET data = x'00' || substr(data, 2) WHERE cell = "
      "(SELECT min(cell) FROM cells) AND line = 3");
  const auto store = Open();
  const auto snapshot = store->TakeSnapshot();
  Bytes out;
  std::vector<Snapshot::LineRun> runs;
  EXPECT_THAT(ErrorOf([&] {
                snapshot->AppendSoundings({-3, 7}, out, runs);
              }),
              AllOf(HasSubstr("grid \"g\" (" + (directory_.Path() / "g").string() + ")"),
                    HasSubstr("the database is damaged"), HasSubstr("soundings"),
                    HasSubstr("cell (row -3, column 7)"), HasSubstr("line 3 (line3.gsf)"),
                    HasSubstr("checksum")));
  out.clear();
  snapshot->AppendSoundings({0, 0}, out, runs);
  EXPECT_EQ(out.size(), 160'000U);
}

TEST_F(DamageTest, ABlockInAnothersPlaceIsDamaged) {
  Change(
      "UPDATE soundings SET (checksum, data) = (SELECT checksum, data FROM soundings AS s "
      "WHERE s.cell = soundings.cell AND s.line = 2) WHERE line = 1");
  const auto store = Open();
  Bytes out;
  std::vector<Snapshot::LineRun> runs;
  EXPECT_THAT(ErrorOf([&] {
                store->TakeSnapshot()->AppendSoundings({2, 2}, out, runs);
              }),
              AllOf(HasSubstr("cell (row 2, column 2)"), HasSubstr("line 1 (line1.gsf)")));
}

TEST_F(DamageTest, AChangedStateIsNamedByItsCell) {
  Change("UPDATE cells SET state = substr(state, 2) WHERE cell = (SELECT max(cell) FROM cells)");
  const auto store = Open();
  const auto says = AllOf(HasSubstr("the state of cell (row 2, column 2)"), HasSubstr("damaged"));
  Bytes state;
  EXPECT_THAT(ErrorOf([&] { store->TakeSnapshot()->CellState({2, 2}, state); }), says);
  EXPECT_THAT(ErrorOf([&] { store->BeginLine()->CellState({2, 2}, state); }), says);
  EXPECT_THAT(ErrorOf([&] { ReadAll(*store); }), says);
}

TEST_F(DamageTest, AChangedRefinementIsNamedByItsCell) {
  Change("UPDATE refinements SET block = block || x'00' WHERE nodes = 16");
  const auto store = Open();
  EXPECT_THAT(ErrorOf([&] { ReadAll(*store); }),
              HasSubstr("the refinement of cell (row 0, column 1)"));
}

TEST_F(DamageTest, ALogThatWasCutGivesWholeLinesOnly) {
  // A copy of the files while the store is open is what a crash leaves.
  const fs::path crashed = directory_.Path() / "crashed";
  {
    const auto store = Open();
    for (std::uint32_t line = 6; line <= 8; ++line) AddLine(*store, line);
    fs::copy(directory_.Path() / "g", crashed);
  }
  const fs::path log = crashed / "grid.sqlite-wal";
  const std::uintmax_t size = fs::file_size(log);
  ASSERT_GT(size, 100'000U);
  std::uint64_t lines = 9;
  for (std::uintmax_t cut = 0; cut < 12; ++cut) {
    const fs::path copy = directory_.Path() / ("cut" + std::to_string(cut));
    fs::copy(crashed, copy);
    fs::remove(copy / "grid.sqlite-shm");
    fs::resize_file(copy / "grid.sqlite-wal", size - size * cut / 12);
    const auto store = GridStore::Open(directory_.Path(), copy.filename());
    const std::uint64_t found = store->TakeSnapshot()->Lines().size();
    EXPECT_EQ(store->TakeSnapshot()->GetTotals().lines, found);
    EXPECT_LE(found, lines);
    EXPECT_GE(found, 5U);
    if (cut == 0) {
      EXPECT_EQ(found, 8U);
    }
    lines = found;
    ReadAll(*store);
  }
  EXPECT_LT(lines, 8U);
}

// No file of this process may grow beyond the limit while this lives.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) : handler_(::signal(SIGXFSZ, SIG_IGN)) {
    ::getrlimit(RLIMIT_FSIZE, &before_);
    rlimit limit = before_;
    limit.rlim_cur = bytes;
    ::setrlimit(RLIMIT_FSIZE, &limit);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;
  ~FileSizeLimit() {
    ::setrlimit(RLIMIT_FSIZE, &before_);
    ::signal(SIGXFSZ, handler_);
  }

 private:
  sighandler_t handler_;
  rlimit before_{};
};

TEST_F(DamageTest, ADiscThatTakesNoMoreFailsTheLineAndTheStoreGoesOn) {
  const auto store = Open();
  const LineShape small{.cells = {{0, 0}}, .bytes_a_cell = 3'000'000};
  const LineShape large{.cells = {{0, 0}, {5, 5}, {6, 6}}, .bytes_a_cell = 30'000'000};
  for (const LineShape& shape : {small, large}) {
    const FileSizeLimit limit(1'000'000);
    EXPECT_THAT(ErrorOf([&] { AddLine(*store, 6, shape); }),
                AllOf(HasSubstr("grid \"g\""),
                      AnyOf(HasSubstr("disk is full"), HasSubstr("File too large"))));
    EXPECT_TRUE(ReadAll(*store) == contents_);
  }
  EXPECT_EQ(AddLine(*store, 6, large), 6U);
  EXPECT_EQ(store->TakeSnapshot()->GetTotals().lines, 6U);
}

TEST_F(DamageTest, AWriterThatFailedTakesNoMoreAndCommitsNothing) {
  const auto store = Open();
  {
    const auto writer = store->BeginLine();
    {
      const FileSizeLimit limit(1'000'000);
      EXPECT_NE(ErrorOf([&] {
                  Write(*writer, 6, {.cells = {{0, 0}, {1, 1}}, .bytes_a_cell = 50'000'000});
                }),
                "no error");
    }
    EXPECT_THAT(ErrorOf([&] { writer->PutCell({0, 0}, {}); }), HasSubstr("has ended already"));
    EXPECT_THAT(ErrorOf([&] { writer->Commit(RecordOf(6)); }), HasSubstr("has ended already"));
  }
  EXPECT_TRUE(ReadAll(*store) == contents_);
}

TEST_F(DamageTest, ACheckpointThatTheDiscRefusesIsAnErrorAndLosesNothing) {
  const auto store = Open();
  AddLine(*store, 6, {.cells = {{7, 7}}, .bytes_a_cell = 5'000'000});
  const Contents before = ReadAll(*store);
  {
    const FileSizeLimit limit(1'500'000);
    EXPECT_THAT(ErrorOf([&] { store->Checkpoint(); }),
                AnyOf(HasSubstr("disk is full"), HasSubstr("File too large")));
  }
  EXPECT_TRUE(ReadAll(*store) == before);
  store->Checkpoint();
  EXPECT_TRUE(ReadAll(*store) == before);
}

constexpr std::size_t kBytesACellOfTheKilled = 300'000;
const LineShape kShapeOfTheKilled{.cells = {{0, 0}, {0, 1}, {1, 0}, {4, 4}},
                                  .bytes_a_cell = kBytesACellOfTheKilled};

// Adds lines without end, and tells of each once it is committed.
[[noreturn]] void AddLinesUntilKilled(const fs::path& directory, int report) {
  try {
    const auto store = GridStore::Open(directory, "k");
    for (std::uint32_t line = 1;; ++line) {
      AddLine(*store, line, kShapeOfTheKilled);
      if (::write(report, "x", 1) != 1) ::_exit(2);
      if (line % 5 == 0) store->Checkpoint();
    }
  } catch (const std::exception&) {
    ::_exit(1);
  }
}

TEST_F(DamageTest, AKilledWriterLeavesEveryLineItReportedAndWholeLinesOnly) {
  constexpr std::uint32_t kSeed = 77;
  SCOPED_TRACE("seed " + std::to_string(kSeed));
  std::minstd_rand random(kSeed);
  for (int round = 0; round < 8; ++round) {
    CreateGrid(directory_.Path(), "k");
    std::array<int, 2> pipe{};
    ASSERT_EQ(::pipe(pipe.data()), 0);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) AddLinesUntilKilled(directory_.Path(), pipe[1]);
    ::close(pipe[1]);
    std::uint64_t reported = 0;
    char byte = 0;
    const std::uint64_t enough = 1 + random() % 12;
    while (reported < enough && ::read(pipe[0], &byte, 1) == 1) ++reported;
    // Some part into the next line.
    ::usleep(static_cast<useconds_t>(random() % 8'000));
    ::kill(child, SIGKILL);
    while (::read(pipe[0], &byte, 1) == 1) ++reported;
    ::close(pipe[0]);
    ::waitpid(child, nullptr, 0);

    const auto store = GridStore::Open(directory_.Path(), "k");
    const Contents contents = ReadAll(*store);
    const std::size_t lines = contents.lines.size();
    ASSERT_GE(lines, reported);
    ASSERT_LE(lines, reported + 1);
    ASSERT_EQ(contents.totals[0], lines);
    for (const CellIndex index : kShapeOfTheKilled.cells) {
      const Contents::Cell& cell = contents.cells.at(index);
      EXPECT_EQ(cell.state, StateOf(static_cast<std::uint32_t>(lines), index));
      Bytes expected;
      for (std::uint32_t line = 1; line <= lines; ++line) {
        const Bytes part = SoundingsOf(line, index, kShapeOfTheKilled);
        expected.insert(expected.end(), part.begin(), part.end());
      }
      EXPECT_TRUE(cell.soundings == expected);
    }
  }
}

}  // namespace
}  // namespace quarro::store
