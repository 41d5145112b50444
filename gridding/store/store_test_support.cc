#include "gridding/store/store_test_support.h"

#include <cstdlib>
#include <random>
#include <stdexcept>

namespace quarro::store {

FreshDirectory::FreshDirectory() {
  std::string path = (std::filesystem::temp_directory_path() / "store_test.XXXXXX").string();
  if (::mkdtemp(path.data()) == nullptr) throw std::runtime_error("no directory for the test");
  path_ = path;
}

FreshDirectory::~FreshDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::unique_ptr<GridStore> CreateGrid(const std::filesystem::path& directory,
                                      const std::string& name) {
  std::string set_aside_as;
  return GridStore::Create(directory, name, kParameters, set_aside_as);
}

Bytes BytesOf(std::uint32_t seed, std::size_t size) {
  std::minstd_rand random(seed + 1);
  Bytes bytes(size);
  for (std::byte& byte : bytes) byte = static_cast<std::byte>(random() >> 8);
  return bytes;
}

Bytes Text(const std::string& text) {
  Bytes bytes;
  for (const char c : text) bytes.push_back(static_cast<std::byte>(c));
  return bytes;
}

LineRecord RecordOf(std::uint32_t number) {
  LineRecord line{.sequence = 0,
                  .name = "line" + std::to_string(number) + ".gsf",
                  .digest = {},
                  .file_bytes = std::uint64_t{1000} + number,
                  .soundings = std::uint64_t{10} * number,
                  .account = "offered " + std::to_string(number)};
  line.digest[3] = static_cast<std::byte>(number);
  return line;
}

namespace {

std::uint32_t SeedOf(std::uint32_t number, CellIndex cell) {
  return number * 1'000'003U + static_cast<std::uint32_t>(cell.row) * 1009U +
         static_cast<std::uint32_t>(cell.column);
}

}  // namespace

Bytes SoundingsOf(std::uint32_t number, CellIndex cell, const LineShape& shape) {
  return BytesOf(SeedOf(number, cell), shape.bytes_a_cell);
}

Bytes StateOf(std::uint32_t number, CellIndex cell) {
  return BytesOf(SeedOf(number, cell) + 7, 100 + number % 50);
}

void Write(LineWriter& writer, std::uint32_t number, const LineShape& shape) {
  for (const CellIndex cell : shape.cells) {
    const Bytes soundings = SoundingsOf(number, cell, shape);
    writer.AppendSoundings(cell, soundings, soundings.size() / 16);
    writer.PutCell(cell, StateOf(number, cell));
  }
}

std::uint32_t AddLine(GridStore& store, std::uint32_t number, const LineShape& shape) {
  const auto writer = store.BeginLine();
  Write(*writer, number, shape);
  return writer->Commit(RecordOf(number));
}

Contents ReadAll(Snapshot& snapshot) {
  Contents contents;
  const Totals totals = snapshot.GetTotals();
  contents.totals = {totals.lines,         totals.soundings,     totals.cells,
                     totals.cells_refined, totals.nodes_refined, totals.cells_changed};
  if (totals.extent) {
    for (const CellIndex corner : {totals.extent->south_west, totals.extent->north_east}) {
      contents.totals.push_back(static_cast<std::uint64_t>(corner.row));
      contents.totals.push_back(static_cast<std::uint64_t>(corner.column));
    }
  }
  for (const LineRecord& line : snapshot.Lines()) {
    std::string text = std::to_string(line.sequence) + " " + line.name + " " +
                       std::to_string(line.file_bytes) + " " + std::to_string(line.soundings) +
                       " " + line.account + " ";
    for (const std::byte byte : line.digest) text += static_cast<char>(byte);
    contents.lines.push_back(text);
  }
  contents.setting = snapshot.Setting("zone");
  contents.changed_cells = snapshot.ChangedCells();
  snapshot.VisitCells(kEverywhere, true, [&](const Snapshot::Cell& seen) {
    Contents::Cell& cell = contents.cells[seen.index];
    cell.state.assign(seen.state.begin(), seen.state.end());
    cell.refinement.assign(seen.refinement.begin(), seen.refinement.end());
    cell.changed = seen.changed;
    std::vector<Snapshot::LineRun> runs;
    snapshot.AppendSoundings(seen.index, cell.soundings, runs);
    for (const Snapshot::LineRun& run : runs) cell.runs.emplace_back(run.line, run.bytes);
  });
  return contents;
}

Contents ReadAll(GridStore& store) { return ReadAll(*store.TakeSnapshot()); }

}  // namespace quarro::store
