// Results that were asked for by get arrive and are written to their files.
#include <string>

#include "cli/command_state.h"
#include "engine/sg_client_base.h"
#include "output/bag_writer.h"
#include "output/text_writers.h"
#include "results/callback_failures.h"
#include "results/log_line.h"

namespace quarro {

namespace {

constexpr char kUnknownNumber[] = "received call-back for a non-existant result number!";
constexpr char kUnknownNumberAsError[] =
    "error: received call-back for a non-existant result number!";

constexpr FailureTexts kResolutionFailures = {
    .no_grid = "error: server reported no grid was available for line.",
    .resources = "error: server reports out of resources getting resolutions.",
    .unexpected = "error: unexpected exception getting result ("};

void PostTransferred(CommandState& state, std::uint32_t number, const std::string& file_name,
                     const char* transferred) {
  state.messages.PostMessage(
      "result " + std::to_string(number) + " (output to \"" + file_name + "\") " + transferred +
      " (" + std::to_string(state.pending_results.Count()) + " results outstanding)");
}

void PostBagFailed(CommandState& state, std::uint32_t number, const std::string& file_name) {
  state.messages.PostMessage("failed to generate result " + std::to_string(number) + " to \"" +
                             file_name + "\" because BAG generation failed.");
}

// Fetches the result, takes its entry out of the table of outstanding results, has `write` write
// the file, and says so. A number that is not in the table is told at `unknown_level`.
template <typename Result, typename Write>
void Deliver(CommandState& state, const SEResultToken& token, int unknown_level,
             const char* unknown_number, const char* transferred, Write write) {
  const auto result = FetchResult<Result>(*state.client, token);
  std::string file_name;
  if (!state.pending_results.Take(result->result_number, file_name)) {
    LogLine(state, unknown_level, unknown_number);
    return;
  }
  try {
    write(*result, file_name);
  } catch (const CommandState::bag_output_failed&) {
    PostBagFailed(state, result->result_number, file_name);
    return;
  }
  PostTransferred(state, result->result_number, file_name, transferred);
}

void WriteBag(CommandState& state, const ResultDepth& result, const std::string& file_name) {
  const SGBoundingBox& bounds = result.bounds;
  WriteVariableResolutionBag(state, result.grid, bounds.north(), bounds.south(), bounds.west(),
                             bounds.east(), file_name);
}

}  // namespace

void CommandState::OnResolutionReady(const SEResultToken& token) {
  RunReporting(*this, kResolutionFailures, [&] {
    Deliver<ResultResolution>(*this, token, kInformation, kUnknownNumberAsError, "transfered",
                              [](const ResultResolution& result, const std::string& file_name) {
                                WriteResolutionText(result.grid, result.bounds, file_name);
                              });
  });
}

void CommandState::OnDepthReady(const SEResultToken& token) {
  RunReporting(*this, kResultFailures, [&] {
    Deliver<ResultDepth>(*this, token, kError, kUnknownNumber, "transfered",
                         [](const ResultDepth& result, const std::string& file_name) {
                           WriteDepthText(result.grid, result.bounds, file_name);
                         });
  });
}

void CommandState::OnDepthBagReady(const SEResultToken& token) {
  RunReporting(*this, kResultFailures, [&] {
    Deliver<ResultDepth>(*this, token, kError, kUnknownNumberAsError, "transfered",
                         [&](const ResultDepth& result, const std::string& file_name) {
                           WriteBag(*this, result, file_name);
                         });
  });
}

void CommandState::OnHyposReady(const SEResultToken& token) {
  Deliver<ResultHypos>(*this, token, kError, kUnknownNumber, "transferred",
                       [](const ResultHypos& result, const std::string& file_name) {
                         WriteHypothesesText(result, result.bounds, file_name);
                       });
}

}  // namespace quarro
