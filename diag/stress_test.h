// A scripted exchange with the engine that tries every asynchronous road once.
#pragma once

#include <string>

#include "engine/sg_client_base.h"

namespace quarro {

// Where the survey lines of the stress test lie: in the directory asked for, if one is (not null),
// else in the installed one, else, where nothing is installed, in the one of the build.
std::string StressTestDataDirectory(const char* asked_for, const std::string& installed,
                                    const std::string& built);

// Discovers engines, attaches the first, asks for its statistics, constructs the grid "test_grid1",
// grids one line and then ten at once, polls until all ten are done, and detaches. Every step goes
// to the standard output. True when every step completed; after a failure the engine stays attached
// and the grid in place.
//
// The lines are example.gsf and example_0.gsf to example_9.gsf in the directory that the
// environment variable QUARRO_STRESS_TEST_DATA names, else in the installed one, else in the
// build's. The count of the ten is kept for the life of the process, so a later run does not wait
// for its own.
//
// For the thread that calls the front end's operations; waits without time limit.
bool RunStressTest(SGClientBase& engine);

}  // namespace quarro
