// stress_test: runs the scripted exchange with all of the engine's messages shown.
#include "cli/command_handlers.h"
#include "cli/command_processor.h"
#include "diag/stress_test.h"
#include "engine/sg_client_base.h"

namespace quarro {

void StressTestCommand(CommandProcessor& processor, WordIterator /*first*/, WordIterator /*last*/,
                       std::uint32_t /*word_count*/) {
  constexpr SlogLevel kEverything(0);
  constexpr SlogLevel kErrors(4);
  CommandState& state = processor.State();
  Slog log(&state.log);
  log << SlogLevel(1);
  log() << "OK --- hold on to your hat, setting full debug output." << endmsg;
  state.client->SetLogFilter(kEverything);
  const bool completed = RunStressTest(*state.client);
  state.client->SetLogFilter(kErrors);
  if (!completed) {
    log << SlogLevel(4);
    log() << "stress test failed to complete successfully." << endmsg;
  }
  log << SlogLevel(1);
  log() << "info: done (wasn't that fun?)." << endmsg;
}

}  // namespace quarro
