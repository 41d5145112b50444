// Text result files, formatted in memory and handed to the file in large pieces.
#include "output/text_writers.h"

#include <functional>
#include <ostream>
#include <sstream>
#include <utility>

#include "output/number_text.h"
#include "output/result_file.h"

namespace quarro {

namespace {

constexpr int kDefaultDigits = 6;  // of a stream that nobody set
constexpr int kRecordDigits = 7;
constexpr int kPositionDecimals = 3;
constexpr std::size_t kPieceBytes = 1U << 20U;

// Composes lines of blank-separated fields and hands them over in large pieces, the last one when
// it is destroyed.
class FieldText {
 public:
  using Taker = std::function<void(const std::string& piece)>;
  explicit FieldText(Taker take) : take_(std::move(take)) {}
  explicit FieldText(ResultFile& file)
      : FieldText([&file](const std::string& piece) { file.Write(piece); }) {}
  explicit FieldText(std::ostream& out)
      : FieldText([&out](const std::string& piece) {
          out.write(piece.data(), static_cast<std::streamsize>(piece.size()));
        }) {}
  FieldText(const FieldText&) = delete;
  FieldText& operator=(const FieldText&) = delete;
  ~FieldText() { WritePiece(); }

  template <typename Integer>
  void Count(Integer value) {
    Separate();
    AppendInteger(text_, value);
  }

  template <typename Float>
  void Number(Float value, int digits) {
    Separate();
    AppendGeneral(text_, value, digits);
  }

  void Position(double metres) {
    Separate();
    AppendFixed(text_, metres, kPositionDecimals);
  }

  void Literal(const std::string& fields) {
    Separate();
    text_ += fields;
  }

  void Bounds(const SGBoundingBox& bounds) {
    std::ostringstream form;
    form << bounds;
    Literal(form.str());
  }

  void Estimate(const NodalDepth& estimate) {
    Number(estimate.depth_m, kRecordDigits);
    Number(estimate.variance_m2, kRecordDigits);
    Count(estimate.hypothesis_count);
    Number(estimate.hypothesis_strength, kRecordDigits);
  }

  void EndLine() {
    text_ += '\n';
    line_open_ = false;
    if (text_.size() >= kPieceBytes) {
      WritePiece();
    }
  }

 private:
  void Separate() {
    if (line_open_) {
      text_ += ' ';
    }
    line_open_ = true;
  }

  void WritePiece() {
    take_(text_);
    text_.clear();
  }

  const Taker take_;
  std::string text_;
  bool line_open_ = false;
};

template <typename Cell>
void WriteGridHeader(FieldText& text, const ResultGrid<Cell>& grid, const SGBoundingBox& bounds) {
  text.Count(grid.rows);
  text.Count(grid.columns);
  text.Bounds(bounds);
  text.EndLine();
}

bool HasData(const NodalDepth& estimate) { return estimate.depth_m != kNoDepth; }

std::size_t NodeCount(const RefinementBlock& block) {
  return static_cast<std::size_t>(block.nodes_a) * block.nodes_b;
}

std::size_t NodesWithData(const RefinementBlock& block) {
  std::size_t count = 0;
  for (std::size_t i = 0; i < NodeCount(block); ++i) {
    count += HasData(block.nodes[i].estimate) ? 1U : 0U;
  }
  return count;
}

void WriteRefinement(FieldText& text, const RefinementBlock& block) {
  const RefinedNode* node = block.nodes;
  for (std::uint32_t i = 0; i < block.nodes_b; ++i) {
    for (std::uint32_t j = 0; j < block.nodes_a; ++j, ++node) {
      if (HasData(node->estimate)) {
        text.Count(i);
        text.Count(j);
        text.Estimate(node->estimate);
        text.EndLine();
      }
    }
  }
}

void WriteDepthCell(FieldText& text, std::uint32_t row, std::uint32_t column,
                    const DepthCell& cell) {
  text.Count(row);
  text.Count(column);
  text.Estimate(cell.estimate);
  text.EndLine();
  if (cell.resolution_m == kNotRefined) {
    return;
  }
  text.Count(row);
  text.Count(column);
  text.Number(cell.resolution_m, kRecordDigits);
  if (cell.refinement == nullptr) {
    text.Literal("0 0 0 0");
    text.EndLine();
    return;
  }
  text.Count(cell.refinement->nodes_b);
  text.Count(cell.refinement->nodes_a);
  text.Count(NodesWithData(*cell.refinement));
  text.Count(0);
  text.EndLine();
  WriteRefinement(text, *cell.refinement);
}

void WriteHypotheses(FieldText& text, const NodalHypos& node) {
  text.Position(node.easting_m);
  text.Position(node.northing_m);
  text.Number(node.resolution_m, kRecordDigits);
  text.Number(node.hypothesis_strength, kRecordDigits);
  text.Count(node.count);
  for (std::uint32_t i = 0; i < node.count; ++i) {
    text.Number(node.hypotheses[i].depth_m, kRecordDigits);
    text.Number(node.hypotheses[i].variance_m2, kRecordDigits);
    text.Count(node.hypotheses[i].sample_count);
  }
  text.EndLine();
}

// Until the position of the first cell with data is written, numbers have the default digits.
void WriteResolutionRecord(FieldText& text, const ResolutionRecord& record, int& digits) {
  for (const double value : {record.node_spacing_m, record.mean_depth_m, record.depth_deviation_m,
                             record.shallowest_m, record.deepest_m, record.covered_area_m2}) {
    text.Number(value, digits);
  }
  for (const float value : {record.depth_m, record.uncertainty_m, record.hypothesis_strength}) {
    text.Number(value, digits);
  }
  digits = kRecordDigits;
  text.Number(record.easting_m, digits);
  text.Number(record.northing_m, digits);
  text.Count(record.occupancy);
  for (const double value : {record.mean_vertical_sigma_m, record.density_per_m2,
                             record.mean_horizontal_sigma_m, record.covered_fraction}) {
    text.Number(value, digits);
  }
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const NodalDepth& estimate) {
  FieldText(out).Estimate(estimate);
  return out;
}

std::ostream& operator<<(std::ostream& out, const NodalHypos& node) {
  FieldText text(out);
  WriteHypotheses(text, node);
  return out;
}

void WriteDepthText(const ResultGrid<DepthCell>& grid, const SGBoundingBox& bounds,
                    const std::string& path) {
  ResultFile file(path);
  FieldText text(file);
  WriteGridHeader(text, grid, bounds);
  WriteGridHeader(text, grid, bounds);
  for (std::uint32_t row = 0; row < grid.rows; ++row) {
    for (std::uint32_t column = 0; column < grid.columns; ++column) {
      const DepthCell& cell = grid.At(row, column);
      if (HasData(cell.estimate)) {
        WriteDepthCell(text, row, column, cell);
      }
    }
  }
}

void WriteHypothesesText(const ResultHypos& hypotheses, const SGBoundingBox& bounds,
                         const std::string& path) {
  ResultFile file(path);
  FieldText text(file);
  text.Count(hypotheses.count);
  text.Bounds(bounds);
  text.EndLine();
  for (std::uint64_t i = 0; i < hypotheses.count; ++i) {
    WriteHypotheses(text, hypotheses.nodes[i]);
  }
}

void WriteResolutionText(const ResultGrid<ResolutionRecord>& grid, const SGBoundingBox& bounds,
                         const std::string& path) {
  ResultFile file(path);
  FieldText text(file);
  WriteGridHeader(text, grid, bounds);
  int digits = kDefaultDigits;
  for (std::uint32_t row = 0; row < grid.rows; ++row) {
    for (std::uint32_t column = 0; column < grid.columns; ++column) {
      const ResolutionRecord& record = grid.At(row, column);
      text.Count(row);
      text.Count(column);
      text.Count(record.soundings);
      if (record.node_spacing_m == kNotRefined) {
        text.Literal("0.0 0.0 0.0 0.0 0.0 0.0 0.0 0.0 0.0 0.0 0.0 0 0.0 0.0 0.0 0.0");
      } else {
        WriteResolutionRecord(text, record, digits);
      }
      text.EndLine();
    }
  }
}

}  // namespace quarro
