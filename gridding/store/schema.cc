#include "gridding/store/schema.h"

#include <array>
#include <cstddef>
#include <fstream>
#include <limits>
#include <string_view>

#include "gridding/store/page_checks.h"

namespace quarro::store {

namespace {

// Soundings are kept in the order of arrival, which makes adding a line fast; the index finds those
// of a cell in the order of lines. Cells that lines touched since the last refinement have a table
// of their own, so that the end of a refinement need not rewrite every cell.
constexpr const char* kTables = R"sql(
CREATE TABLE grid (resolution_m REAL NOT NULL, min_resolution_m REAL NOT NULL);
CREATE TABLE settings (key TEXT PRIMARY KEY, value TEXT NOT NULL) WITHOUT ROWID;
CREATE TABLE lines (sequence INTEGER PRIMARY KEY, name TEXT NOT NULL, digest BLOB NOT NULL,
                    file_bytes INTEGER NOT NULL, soundings INTEGER NOT NULL,
                    account TEXT NOT NULL);
CREATE INDEX lines_by_digest ON lines (digest);
CREATE TABLE cells (cell INTEGER PRIMARY KEY, checksum INTEGER NOT NULL, state BLOB NOT NULL);
CREATE TABLE changed_cells (cell INTEGER PRIMARY KEY);
CREATE TABLE soundings (id INTEGER PRIMARY KEY, cell INTEGER NOT NULL, line INTEGER NOT NULL,
                        part INTEGER NOT NULL, checksum INTEGER NOT NULL, data BLOB NOT NULL);
CREATE UNIQUE INDEX soundings_by_cell ON soundings (cell, line, part);
CREATE TABLE refinements (cell INTEGER PRIMARY KEY, nodes INTEGER NOT NULL,
                          checksum INTEGER NOT NULL, block BLOB NOT NULL);
CREATE TABLE totals (lines INTEGER NOT NULL, soundings INTEGER NOT NULL, cells INTEGER NOT NULL,
                     cells_refined INTEGER NOT NULL, nodes_refined INTEGER NOT NULL,
                     cells_changed INTEGER NOT NULL,
                     south INTEGER NOT NULL, west INTEGER NOT NULL,
                     north INTEGER NOT NULL, east INTEGER NOT NULL);
INSERT INTO totals VALUES (0, 0, 0, 0, 0, 0, 0, 0, 0, 0);
)sql";

// Places in SQLite's file header; numbers there are big-endian.
constexpr std::size_t kHeaderBytes = 100;
constexpr std::size_t kPageSizeAt = 16;
constexpr std::size_t kReservedAt = 20;
constexpr std::size_t kUserVersionAt = 60;
constexpr std::size_t kApplicationIdAt = 68;
constexpr std::string_view kMagic("SQLite format 3\0", 16);

using Header = std::array<unsigned char, kHeaderBytes>;

std::uint32_t BigEndian(const Header& header, std::size_t at, std::size_t bytes) {
  std::uint32_t value = 0;
  for (std::size_t i = at; i < at + bytes; ++i) value = value << 8 | header[i];
  return value;
}

std::int32_t Coordinate(const Statement& totals, int column) {
  return static_cast<std::int32_t>(totals.Integer(column));
}

std::int64_t Signed(std::uint64_t count) { return static_cast<std::int64_t>(count); }
std::uint64_t Count(const Statement& row, int column) {
  return static_cast<std::uint64_t>(row.Integer(column));
}

}  // namespace

void CreateTables(Connection& connection, const GridParameters& parameters) {
  connection.Execute("BEGIN IMMEDIATE");
  connection.Execute(kTables);
  connection.Execute(("PRAGMA application_id = " + std::to_string(kApplicationId)).c_str());
  connection.Execute(("PRAGMA user_version = " + std::to_string(kFormatVersion)).c_str());
  Statement(connection, "INSERT INTO grid VALUES (?, ?)")
      .Bind(1, double{parameters.resolution_m})
      .Bind(2, double{parameters.min_resolution_m})
      .Run([] { return "writing its parameters"; });
  connection.Execute("COMMIT");
}

void CheckFormat(const std::filesystem::path& database, const std::string& grid) {
  Header header{};
  std::error_code error;
  // Opening a pipe would wait for a writer.
  if (std::filesystem::exists(database, error) &&
      !std::filesystem::is_regular_file(database, error)) {
    throw StoreError(grid + ": " + database.string() + " is no file");
  }
  std::ifstream file(database, std::ios::binary);
  if (!file) throw StoreError(grid + ": " + database.string() + " cannot be opened");
  file.read(reinterpret_cast<char*>(header.data()), header.size());
  const std::string damaged = grid + ": the database is damaged: " + database.string();
  if (!file) throw StoreError(damaged + " has no whole file header");
  if (std::string_view(reinterpret_cast<const char*>(header.data()), kMagic.size()) != kMagic) {
    throw StoreError(damaged + " is no SQLite database");
  }
  if (BigEndian(header, kApplicationIdAt, 4) != kApplicationId) {
    throw StoreError(grid + ": " + database.string() + " is a database, but not of a grid");
  }
  const std::uint32_t version = BigEndian(header, kUserVersionAt, 4);
  if (version != kFormatVersion) {
    throw StoreError(grid + ": its format version is " + std::to_string(version) +
                     ", and this program reads version " + std::to_string(kFormatVersion) +
                     ": use the program that wrote it, or add its lines to a new grid");
  }
  if (BigEndian(header, kPageSizeAt, 2) != kPageBytes ||
      header[kReservedAt] != kPageChecksumBytes) {
    throw StoreError(damaged + " has a wrong page size in its header");
  }
}

GridParameters ReadParameters(Connection& connection) {
  Statement select(connection, "SELECT resolution_m, min_resolution_m FROM grid");
  if (!select.Step([] { return "reading its parameters"; })) {
    connection.FailDamaged("it has no parameters");
  }
  return {.resolution_m = static_cast<float>(select.Real(0)),
          .min_resolution_m = static_cast<float>(select.Real(1))};
}

Totals ReadTotals(Connection& connection, Statement& select_totals) {
  const ResetAtEnd reset(select_totals);
  if (!select_totals.Step([] { return "reading its totals"; })) {
    connection.FailDamaged("it has no totals");
  }
  Totals totals{.lines = Count(select_totals, 0),
                .soundings = Count(select_totals, 1),
                .cells = Count(select_totals, 2),
                .cells_refined = Count(select_totals, 3),
                .nodes_refined = Count(select_totals, 4),
                .cells_changed = Count(select_totals, 5),
                .bytes_on_disc = 0,
                .extent = std::nullopt};
  if (totals.cells > 0) {
    totals.extent = CellRange{
        .south_west = {.row = Coordinate(select_totals, 6), .column = Coordinate(select_totals, 7)},
        .north_east = {.row = Coordinate(select_totals, 8),
                       .column = Coordinate(select_totals, 9)}};
  }
  return totals;
}

void WriteTotals(Statement& update_totals, const Totals& totals) {
  const CellRange extent = totals.extent.value_or(CellRange{});
  update_totals.Bind(1, Signed(totals.lines))
      .Bind(2, Signed(totals.soundings))
      .Bind(3, Signed(totals.cells))
      .Bind(4, Signed(totals.cells_refined))
      .Bind(5, Signed(totals.nodes_refined))
      .Bind(6, Signed(totals.cells_changed))
      .Bind(7, std::int64_t{extent.south_west.row})
      .Bind(8, std::int64_t{extent.south_west.column})
      .Bind(9, std::int64_t{extent.north_east.row})
      .Bind(10, std::int64_t{extent.north_east.column})
      .Run([] { return "writing its totals"; });
}

}  // namespace quarro::store
