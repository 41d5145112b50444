// Lines typed at a terminal.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "app/line_reader.h"

namespace quarro {

// A reader with line editing, history recall and completion. Null when the terminal cannot do it.
// Ctrl-C restores the terminal and ends the program.
std::unique_ptr<LineReader> MakeTerminalReader(const std::vector<std::string>& command_names);

// Does nothing until a signal ends the program.
[[noreturn]] void WaitForSignal();

}  // namespace quarro
