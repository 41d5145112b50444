// The console loop.
#pragma once

#include <string>

namespace quarro {

class CommandProcessor;
class LineReader;

// Reads lines and dispatches them until the exit command, then detaches from an attached engine.
// A `first_command` that is not empty runs before anything is read. What the interpreter refuses
// becomes one message on the channel "driver"; any other exception passes through.
void RunConsole(CommandProcessor& processor, LineReader& reader, std::string first_command);

}  // namespace quarro
