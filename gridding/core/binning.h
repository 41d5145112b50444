// Soundings of one chunk sorted into cells.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "gridding/core/lattice.h"
#include "gridding/core/packed_sounding.h"
#include "gridding/survey/soundings.h"

namespace quarro::core {

struct BinnedChunk {
  struct Run {
    CellIndex cell;
    std::uint32_t first = 0;
    std::uint32_t count = 0;
  };
  std::vector<PackedSounding> soundings;  // cell by cell, each in the order of the chunk
  std::vector<Run> runs;                  // row-major

  std::span<const PackedSounding> SoundingsOf(const Run& run) const {
    return std::span(soundings).subspan(run.first, run.count);
  }
};

// Sorts `soundings` into cells. A sounding whose 95 % horizontal uncertainty is wider than the cell
// says nothing of any one cell: it is left out and counted in `too_uncertain`, as is one beyond the
// lattice's reach. One thread a Binner, which keeps its working memory.
class Binner {
 public:
  explicit Binner(const Lattice& lattice) : lattice_(lattice) {}
  const BinnedChunk& Bin(const survey::Soundings& soundings, std::uint64_t& too_uncertain);

 private:
  void SortByCounting(const survey::Soundings& soundings, const CellRange& range);
  void SortByComparing(const survey::Soundings& soundings);
  PackedSounding PackAt(const survey::Soundings& soundings, std::uint32_t index) const;

  Lattice lattice_;
  BinnedChunk chunk_;
  std::vector<std::uint32_t> kept_;  // indices of the soundings that have a cell
  std::vector<CellIndex> cells_;     // of the soundings kept
  std::vector<std::uint32_t> starts_;
};

}  // namespace quarro::core
