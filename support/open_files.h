// How many files the process may have open.
#pragma once

#include <cstddef>

namespace quarro {

// Raises the limit to the most that the system allows. What a login shell sets is meant for
// programs that wait on descriptors in ways that stop at 1024; this one does not. Called at the
// start, before threads.
void RaiseOpenFileLimit();

// Any thread.
std::size_t OpenFileLimit();

}  // namespace quarro
