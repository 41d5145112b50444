// Completion of command and file names while a line is typed.
#pragma once

#include <string>
#include <vector>

namespace quarro {

// The ways in which the last word before the cursor can go on.
struct Completion {
  std::string insertion;                // what all candidates have in common after the word
  std::vector<std::string> candidates;  // whole words, in byte order
};

// `typed` is the line up to the cursor. Its first word, and the second one after "help", is
// completed from `command_names`, which are in byte order; every other word from the file system,
// where a directory ends in a slash.
Completion Complete(const std::string& typed, const std::vector<std::string>& command_names);

}  // namespace quarro
