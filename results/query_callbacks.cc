// Answers of the engine to queries and the request for its statistics.
#include <locale>
#include <sstream>
#include <string>

#include "cli/command_state.h"
#include "engine/sg_client_base.h"
#include "results/callback_failures.h"
#include "results/log_line.h"

namespace quarro {

namespace {

constexpr FailureTexts kStatisticsFailures = {.unexpected =
                                                  "error: unexpected exception getting result ("};

std::string Describe(const ResultServStats& statistics) {
  std::ostringstream text;
  text.imbue(std::locale::classic());
  text << "info: Current server statistics:\n"
       << "\tExec Threads: " << statistics.threads << '\n'
       << "\tPriority Queue Length: " << statistics.priority_queue_length << '\n'
       << "\tRun Queue Length: " << statistics.run_queue_length << '\n'
       << "\tExpected Duration of Priority Queue: " << statistics.priority_queue_duration_s << '\n'
       << "\tNumber of Results Waiting: " << statistics.results_waiting;
  return text.str();
}

}  // namespace

void CommandState::OnBoundingBoxReply(const SEResultToken& token) {
  const bool answered = RunReporting(*this, kQueryFailures, [&] {
    const auto result = FetchResult<ResultBBox>(*client, token);
    bbox.Set(result->bounds);
    std::ostringstream text;
    text << "set bounding box to " << result->bounds;
    LogLine(*this, kInformation, text.str());
  });
  rendezvous.Signal(answered);
}

void CommandState::OnQueryReply(const SEResultToken& token) {
  const bool answered = RunReporting(*this, kQueryFailures, [&] {
    const auto result = FetchResult<ResultQuery>(*client, token);
    for (const std::string& line : result->lines) {
      LogLine(*this, kInformation, line);
    }
  });
  rendezvous.Signal(answered);
}

void CommandState::OnServerStatistics(const SEResultToken& token) {
  try {
    const bool answered = RunReporting(*this, kStatisticsFailures, [&] {
      messages.PostMessage(Describe(*FetchResult<ResultServStats>(*client, token)));
    });
    rendezvous.Signal(answered);
  } catch (...) {
    // What is no engine exception is the engine library's to tell, but the console waits here.
    rendezvous.Signal(false);
    throw;
  }
}

}  // namespace quarro
