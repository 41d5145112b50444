// Adding a line to a grid, and replacing its refinements.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "gridding/store/grid_store.h"
#include "gridding/store/write_transaction.h"

namespace quarro::store {

class SqliteLineWriter : public LineWriter {
 public:
  explicit SqliteLineWriter(Writer& writer);
  bool CellState(CellIndex cell, Bytes& state) override;
  void PutCell(CellIndex cell, std::span<const std::byte> state) override;
  void AppendSoundings(CellIndex cell, std::span<const std::byte> soundings,
                       std::uint64_t count) override;
  void PutSetting(const std::string& key, const std::string& value) override;
  std::uint32_t Commit(const LineRecord& line) override;

 private:
  std::uint32_t NextSequence();
  void WriteCell(CellIndex cell, std::span<const std::byte> state);
  void InsertCell(CellIndex cell);
  void MarkChanged(CellIndex cell);
  void WritePending();
  void InsertLine(const LineRecord& line);

  WriteTransaction transaction_;
  std::uint32_t sequence_;
  // Soundings gathered by cell, so that a line fed in small chunks still makes few, large blocks.
  std::map<std::int64_t, Bytes> pending_;
  std::size_t pending_bytes_ = 0;
  std::int64_t part_ = 0;  // of the blocks to be written next
};

class SqliteRefinementWriter : public RefinementWriter {
 public:
  explicit SqliteRefinementWriter(Writer& writer) : transaction_(writer) {}
  void Put(CellIndex cell, std::span<const std::byte> block, std::uint64_t nodes) override;
  void Remove(CellIndex cell) override;
  bool Block(CellIndex cell, Bytes& block) override;
  void PutSetting(const std::string& key, const std::string& value) override;
  void Commit() override;

 private:
  void TakeFromTotals(CellIndex cell);

  WriteTransaction transaction_;
};

}  // namespace quarro::store
