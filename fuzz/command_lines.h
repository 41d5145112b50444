// Command lines out of an input, and which of them the interpreter may end the program on.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "cli/command_processor.h"

namespace quarro::fuzz {

// The lines of a text, at most `most`. Slashes become underscores, so that every file named lies in
// the scratch folder; lines that source a file or start the stress test are left out.
std::vector<std::string> CommandLines(std::string_view text, std::size_t most);

// What became of a line.
enum class End {
  kGoesOn,      // done, or refused with a message
  kExit,        // the exit command
  kEndsByRule,  // a word of debug or set history is no number: the program would have ended
};

// Runs a line as the console does. An exception that ends the program and is not known to passes
// through, and so is a finding.
End Run(CommandProcessor& processor, const std::string& line);

}  // namespace quarro::fuzz
