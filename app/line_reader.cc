// Plain reading of the standard input, and the choice between it and the terminal.
#include "app/line_reader.h"

#include <iostream>

#include <unistd.h>

#include "app/terminal_reader.h"

namespace quarro {
namespace {

class PlainReader : public LineReader {
 public:
  std::string ReadLine(const std::string& prompt) override {
    std::cout << prompt << std::flush;
    std::string line;
    if (!std::getline(std::cin, line)) {
      WaitForSignal();
    }
    return line;
  }
};

}  // namespace

void WaitForSignal() {
  for (;;) {
    pause();
  }
}

std::unique_ptr<LineReader> MakeLineReader(const std::vector<std::string>& command_names) {
  if (isatty(STDIN_FILENO) == 1 && isatty(STDOUT_FILENO) == 1) {
    if (auto reader = MakeTerminalReader(command_names)) {
      return reader;
    }
  }
  return std::make_unique<PlainReader>();
}

}  // namespace quarro
