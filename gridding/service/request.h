// One accepted request on its way to its call-back.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

#include "engine/result_token.h"
#include "engine/results.h"

namespace quarro::service {

enum class RequestKind : std::uint8_t {
  kResolution,
  kDepth,
  kHypotheses,
  kQuery,
  kTrace,
  kStatistics,
  kPurge,
  kLine,
  kOpenGrid,
  kDropGrid,
  kSynchGrid,
  kRefineGrid,
};
inline constexpr std::size_t kRequestKinds = 12;

const char* RequestKindText(RequestKind kind);  // "depth"

// Results that a purge drops.
constexpr bool IsGridResult(RequestKind kind) {
  return kind == RequestKind::kResolution || kind == RequestKind::kDepth ||
         kind == RequestKind::kHypotheses;
}

// When a request's call-back runs.
enum class Order : std::uint8_t {
  kFree,             // beside others
  kInOrder,          // after those of earlier lines and barriers
  kAfterAllEarlier,  // after those of all earlier requests: a barrier's acknowledgement
};

using Clock = std::chrono::steady_clock;

// Constant once accepted, but for `begun`, which the thread that does the work sets before it
// delivers.
struct Request {
  std::uint64_t sequence = 0;
  RequestKind kind = RequestKind::kQuery;
  Order order = Order::kFree;
  std::uint32_t result_number = 0;  // of a resolution, depth or hypotheses request
  ResultCallback on_done;
  Clock::time_point accepted;
  Clock::time_point begun;
};
using RequestPtr = std::shared_ptr<Request>;

// A finished result and the bytes that it takes.
struct Finished {
  std::unique_ptr<SEBaseResult> result;
  std::uint64_t bytes = 0;
};

template <typename Result>
Finished FinishedWith(Result result) {
  return {std::make_unique<Result>(std::move(result)), sizeof(Result)};
}

}  // namespace quarro::service
