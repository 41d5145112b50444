// The name of one finished piece of work, and the call-back that announces it.
#pragma once

#include <cstdint>

#include <boost/function.hpp>

namespace quarro {

struct SEResultToken {
  std::uint32_t uid = 0;              // of the result in the engine's pool
  std::uint32_t object_size = 0;      // bytes, capped at the largest 32-bit number
  std::uint32_t execution_lag_s = 0;  // from acceptance to the start of the work
  std::uint32_t execution_duration_s = 0;
};

// Called on a thread of the engine library once the request is done or has failed; GetResult then
// gives the result or throws the failure.
using ResultCallback = boost::function<void(const SEResultToken&)>;

}  // namespace quarro
