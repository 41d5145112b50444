// The program's start-up, from the command line to the console loop.
#pragma once

#include <functional>
#include <memory>

#include "engine/sg_client_base.h"
#include "support/mparams.h"

namespace quarro {

using FrontEndMaker = std::function<std::unique_ptr<SGClientBase>(const MParams&)>;

// Runs the client with the front ends that the makers give: `make_local` with the option --local,
// `make_remote` without it. Gives the program's exit status: 0 after the exit command, 1 for help,
// version, and a command line or parameter file that does not serve. Exceptions that it lets
// through end the program.
int RunClient(int argc, const char* const* argv, const FrontEndMaker& make_local,
              const FrontEndMaker& make_remote);

}  // namespace quarro
