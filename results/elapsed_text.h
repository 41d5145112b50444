// How long a timed stretch of work took, in words.
#pragma once

#include <string>

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include "output/number_text.h"

namespace quarro {

inline std::string ElapsedText(const boost::posix_time::time_duration& elapsed) {
  const double seconds = static_cast<double>(elapsed.total_microseconds()) / 1000000.0;
  return "timing sequence completed, " + Fixed(seconds, 6) + " s";
}

}  // namespace quarro
