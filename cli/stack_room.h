// How much of the calling thread's stack is left.
#pragma once

namespace quarro {

// True when nested calls had better stop: less than a quarter of a mebibyte is left.
bool StackIsNearlyFull();

}  // namespace quarro
