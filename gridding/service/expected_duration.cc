#include "gridding/service/expected_duration.h"

#include <algorithm>

namespace quarro::service {

namespace {

// What every request takes, whatever its box: a look into the store.
constexpr double kFixed_s = 1e-3;
// Until the first has ended: about what a core takes for a cell at low resolution, and for one that
// is refined.
constexpr double kUsualLow_s = 2e-7;
constexpr double kUsualFull_s = 1e-5;
// Weight that the requests before keep when one more ends.
constexpr double kKept = 0.75;

}  // namespace

std::size_t ExpectedDuration::Index(RequestKind kind, const RequestSize& size) {
  return 2 * static_cast<std::size_t>(kind) + (size.full_resolution ? 1 : 0);
}

double ExpectedDuration::Of(RequestKind kind, const RequestSize& size) const {
  const Mean& mean = means_[Index(kind, size)];
  const double usual_s = size.full_resolution ? kUsualFull_s : kUsualLow_s;
  const double cell_s = mean.cells > 0.0 ? mean.seconds / mean.cells : usual_s;
  return kFixed_s + cell_s * size.cells;
}

void ExpectedDuration::Learn(RequestKind kind, const RequestSize& size, double duration_s) {
  if (size.cells <= 0.0) return;
  Mean& mean = means_[Index(kind, size)];
  mean.seconds = kKept * mean.seconds + std::max(0.0, duration_s - kFixed_s);
  mean.cells = kKept * mean.cells + size.cells;
}

}  // namespace quarro::service
