// Where the console's lines come from.
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace quarro {

class LineReader {
 public:
  virtual ~LineReader() = default;
  // Shows `prompt` and reads one line, without its newline. Blocks; at the end of the input it
  // waits, without using the processor, until a signal ends the program.
  virtual std::string ReadLine(const std::string& prompt) = 0;
};

// Reads the standard input: with line editing, history recall and completion of `command_names`
// and file names when a person types at a terminal, plainly otherwise.
std::unique_ptr<LineReader> MakeLineReader(const std::vector<std::string>& command_names);

}  // namespace quarro
