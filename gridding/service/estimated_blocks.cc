#include "gridding/service/estimated_blocks.h"

#include <cstring>

namespace quarro::service {

void EstimatedBlocks::Add(core::CellIndex block, const std::vector<RefinedCell>& cells) {
  if (cells.empty()) return;
  auto* entries = arena_.Array<Entry>(cells.size());
  for (std::size_t i = 0; i < cells.size(); ++i) {
    const RefinedCell& cell = cells[i];
    entries[i] = {cell.block.size(), nullptr, CellBlocks::PlaceOf(cell.cell)};
    if (cell.block.empty()) continue;
    auto* data = arena_.Array<std::byte>(cell.block.size());
    std::memcpy(data, cell.block.data(), cell.block.size());
    entries[i].data = data;
  }
  blocks_[block] = {entries, static_cast<std::uint32_t>(cells.size())};
}

std::optional<std::span<const std::byte>> EstimatedBlocks::Find(core::CellIndex cell) const {
  const auto block = blocks_.find(CellBlocks::BlockOf(cell));
  if (block == blocks_.end()) return std::nullopt;
  const std::uint32_t place = CellBlocks::PlaceOf(cell);
  for (std::uint32_t i = 0; i < block->second.count; ++i) {
    const Entry& entry = block->second.entries[i];
    if (entry.place == place) return std::span(entry.data, entry.bytes);
  }
  return std::nullopt;
}

}  // namespace quarro::service
