#include "gridding/service/queries.h"

#include <cstdint>
#include <locale>
#include <sstream>

#include "gridding/service/extraction.h"
#include "gridding/service/open_grid.h"

namespace quarro::service {

namespace {

// Of a variable-resolution BAG: elevation, uncertainty, hypotheses and refinement record of a cell;
// depth, uncertainty and hypotheses of a refined node.
constexpr std::uint64_t kBagBytesPerCell = 4 + 4 + 8 + 28;
constexpr std::uint64_t kBagBytesPerNode = 8 + 12;

// Usual lengths of lines of text. Of a depth extract: of a cell, of the head of a refinement, and
// of a refined node; of a hypothesis extract: of a node with one hypothesis.
constexpr std::uint64_t kTextBytesPerCell = 34;
constexpr std::uint64_t kTextBytesPerRefinement = 26;
constexpr std::uint64_t kTextBytesPerNode = 30;
constexpr std::uint64_t kTextBytesPerHypothesisNode = 58;

class Lines {
 public:
  template <typename... Parts>
  void Add(const Parts&... parts) {
    std::ostringstream line;
    line.imbue(std::locale::classic());
    (line << ... << parts);
    lines_.push_back(line.str());
  }
  std::vector<std::string> Take() { return std::move(lines_); }

 private:
  std::vector<std::string> lines_;
};

double InMiB(std::uint64_t bytes) { return static_cast<double>(bytes) / (1024.0 * 1024.0); }

// Every node of a refined cell counts, with data or not, and one hypothesis a node: a result is
// smaller where refined cells have nodes without data, and larger where hypotheses compete.
void DescribeSizes(const store::Totals& totals, Lines& lines) {
  const std::uint64_t cells = totals.extent->Rows() * totals.extent->Columns();
  lines.Add(
      "full-resolution depth of all: ",
      InMiB(cells * sizeof(DepthCell) + totals.cells_refined * sizeof(RefinementBlock) +
            totals.nodes_refined * sizeof(RefinedNode)),
      " MiB in memory or working directory, ",
      InMiB(cells * kBagBytesPerCell + totals.nodes_refined * kBagBytesPerNode),
      " MiB as a BAG file, ",
      InMiB(totals.cells * kTextBytesPerCell + totals.cells_refined * kTextBytesPerRefinement +
            totals.nodes_refined * kTextBytesPerNode),
      " MiB as text");
  const std::uint64_t nodes = totals.nodes_refined + totals.cells - totals.cells_refined;
  lines.Add("full-resolution hypotheses of all: ",
            InMiB(nodes * (sizeof(NodalHypos) + sizeof(Hypothesis))),
            " MiB in memory or working directory, ", InMiB(nodes * kTextBytesPerHypothesisNode),
            " MiB as text");
}

}  // namespace

std::vector<std::string> DescribeGrid(const std::string& name,
                                      const store::GridParameters& parameters,
                                      const core::Lattice& lattice, store::Snapshot& snapshot) {
  const store::Totals totals = snapshot.GetTotals();
  const int zone = ZoneFromSetting(snapshot.Setting(kZoneSetting));
  Lines lines;
  lines.Add("name: ", name);
  lines.Add("resolution: ", lattice.spacing_m(), " m, refined to no finer than ",
            core::Lattice(parameters.min_resolution_m).spacing_m(), " m");
  if (zone == 0) {
    lines.Add("projection: not known, since no geographic sounding was used");
  } else {
    lines.Add("projection: set projection utm ", zone);
  }
  lines.Add("lines: ", totals.lines);
  lines.Add("soundings: ", totals.soundings);
  if (!totals.extent) {
    lines.Add("cells: none with data");
  } else {
    const std::uint64_t rows = totals.extent->Rows();
    const std::uint64_t columns = totals.extent->Columns();
    lines.Add("bounds: ", BoundsOfGrid(lattice, totals));
    lines.Add("cells: ", totals.cells, " with data in ", rows, " rows of ", columns);
    lines.Add("refined: ", totals.cells_refined, " cells into ", totals.nodes_refined, " nodes");
    lines.Add("changed since the last refinement: ", totals.cells_changed, " cells");
    DescribeSizes(totals, lines);
  }
  lines.Add("store: ", totals.bytes_on_disc, " bytes");
  return lines.Take();
}

}  // namespace quarro::service
