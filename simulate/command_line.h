// The command line of Quarro_Simulate.
#pragma once

#include <iosfwd>

namespace quarro::simulate {

// Does what the arguments ask for: tells on `out` what was written or how to call the program, on
// `err` what went wrong. Returns the exit status, 0 or 1.
int Run(int argc, const char* const* argv, std::ostream& out, std::ostream& err);

}  // namespace quarro::simulate
