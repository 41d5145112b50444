// How long requests are expected to take.
#pragma once

#include <array>
#include <cstddef>

#include "gridding/service/request.h"

namespace quarro::service {

// What makes a request long or short.
struct RequestSize {
  double cells = 0.0;  // low-resolution cells in its box; 0 for a request without a box
  bool full_resolution = false;
};

// Expects a fixed part and so much a cell for each kind of request at each resolution. The time a
// cell takes is a running mean in which large and late requests weigh most; it begins at a usual
// value. One thread at a time.
class ExpectedDuration {
 public:
  double Of(RequestKind kind, const RequestSize& size) const;  // seconds, above 0
  // A request of this kind and size took so long.
  void Learn(RequestKind kind, const RequestSize& size, double duration_s);

 private:
  struct Mean {
    double seconds = 0.0;
    double cells = 0.0;  // 0 until one was learnt
  };
  static std::size_t Index(RequestKind kind, const RequestSize& size);

  std::array<Mean, 2 * kRequestKinds> means_{};
};

}  // namespace quarro::service
