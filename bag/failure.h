// How the inside of the BAG library reports a failure; it never leaves the library.

#pragma once

#include "bag/bag.h"

namespace quarro::bag {

struct Failure {
  bagStatus status;
};

[[noreturn]] inline void fail(bagStatus status) { throw Failure{status}; }

}  // namespace quarro::bag
