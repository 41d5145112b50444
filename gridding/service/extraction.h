// Results over a box, from a snapshot of the grid.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>

#include "engine/results.h"
#include "gridding/core/lattice.h"
#include "gridding/core/settings.h"
#include "gridding/service/job_queue.h"
#include "gridding/store/grid_store.h"
#include "support/sg_bounding_box.h"

namespace quarro::service {

// A box over more low-resolution cells than this is refused: 64 Mi cells take 2.5 GiB as depths.
inline constexpr std::uint64_t kMostCellsInResult = std::uint64_t{1} << 26U;

// What one request asks for.
struct ExtractRequest {
  SGBoundingBox box;
  std::uint32_t result_number = 0;
  bool full_resolution = false;  // of depth and hypotheses
};

class ResultArena;

// Extracts from one snapshot of one grid. One thread at a time. Throws ExSGClientBase for a box
// with no node in it, one over too many cells, and a request that is cancelled;
// ExSGCServerResources when there is no room for the result.
class Extractor {
 public:
  // Results larger than `heap_bytes` are kept in a file in `directory`. All references must
  // outlive this.
  Extractor(store::Snapshot& snapshot, const core::GridSettings& settings,
            const core::Lattice& lattice, std::filesystem::path directory, std::uint64_t heap_bytes,
            const CancelFlag& cancelled);

  Finished Resolution(const ExtractRequest& request);
  Finished Depth(const ExtractRequest& request);
  // Low: the cells with data whose nodes lie in the box. Full: the nodes with data that lie in the
  // box, of refined cells their refined nodes, of others the cell's own; the bounds are those of
  // the nodes delivered, or as at low resolution when there is none.
  Finished Hypotheses(const ExtractRequest& request);

 private:
  template <typename Result, typename Record>
  std::unique_ptr<Result> GridOver(const core::CellRange& range, const ExtractRequest& request,
                                   const std::shared_ptr<ResultArena>& arena,
                                   Record*& records) const;
  template <typename Visit>
  void VisitHypotheses(const ExtractRequest& request, const core::CellRange& range,
                       const Visit& visit);
  Finished HypothesesOf(const ExtractRequest& request, const core::CellRange& range,
                        const SGBoundingBox& bounds_without_nodes);
  void Visit(const core::CellRange& range, bool with_refinements,
             const std::function<void(const store::Snapshot::Cell&)>& visit);
  SGBoundingBox BoundsOf(const core::CellRange& range) const;

  store::Snapshot& snapshot_;
  const core::GridSettings& settings_;
  const core::Lattice lattice_;
  const std::filesystem::path directory_;
  const std::uint64_t heap_bytes_;
  const CancelFlag& cancelled_;
};

// The dense rectangle of cells whose nodes lie in the box, widened northward and eastward to 2 x 2.
// Throws ExSGClientBase naming the box or the size.
core::CellRange CellsOfResult(const core::Lattice& lattice, const SGBoundingBox& box);

// Bounds of the corner nodes; all zeros for a grid without data.
SGBoundingBox BoundsOfGrid(const core::Lattice& lattice, const store::Totals& totals);

}  // namespace quarro::service
