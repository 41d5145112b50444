// get: asks the engine for a result over a box, to be written to a file when it comes.
#include <initializer_list>
#include <iostream>
#include <string>

#include "cli/command_handlers.h"
#include "cli/command_processor.h"
#include "engine/sg_client_base.h"
#include "results/bounding_box_words.h"
#include "results/log_line.h"

namespace quarro {

namespace {

constexpr std::uint32_t kLowResolution = 0;
constexpr std::uint32_t kFullResolution = 1;

// The words of one get command that are not yet read.
struct Request {
  CommandProcessor& processor;
  CommandState& state;
  WordIterator word;
  WordIterator last;
  std::uint32_t word_count;  // of the whole line
};

[[noreturn]] void ShowHelpAndRefuse(Request& request) {
  request.processor.ShowHelp("get");
  throw CommandProcessor::bad_command();
}

void RequireWordCount(Request& request, std::initializer_list<std::uint32_t> allowed) {
  for (const std::uint32_t count : allowed) {
    if (request.word_count == count) {
      return;
    }
  }
  ShowHelpAndRefuse(request);
}

std::uint32_t ReadLevel(Request& request) {
  const std::string& level = *request.word;
  if (level != "low" && level != "full") {
    LogLine(request.state, kError, "you must specify 'low' or 'full' resolution extraction.");
    ShowHelpAndRefuse(request);
  }
  ++request.word;
  return level == "full" ? kFullResolution : kLowResolution;
}

bool ReadBagFlag(Request& request) {
  if (*request.word != "bag") {
    return false;
  }
  ++request.word;
  return true;
}

// The words left hold a file name after `numbers` numbers.
void RequireWordsLeft(Request& request, std::ptrdiff_t numbers) {
  if (request.last - request.word <= numbers) {
    ShowHelpAndRefuse(request);
  }
}

SGBoundingBox ReadRectangle(Request& request) {
  RequireWordsLeft(request, 4);
  return ParseBoundingBox(request.state, request.word, BoxForm::kRectangle);
}

// The default box. An unset one is told by `tell` and refused.
template <typename Tell>
SGBoundingBox DefaultBox(Request& request, Tell tell) {
  const SGBoundingBox box = request.state.bbox.Get();
  if (box == SGBoundingBox()) {
    tell();
    throw CommandProcessor::bad_command();
  }
  return box;
}

SGBoundingBox DefaultBox(Request& request) {
  return DefaultBox(
      request, [&] { LogLine(request.state, kWarning, "default bounding box is all zeros."); });
}

// What is said of a request.
struct RequestTexts {
  const char* sending;
  const char* refused;  // followed by the engine's reason and ").".
  const char* accepted;
};

constexpr RequestTexts kResolutionTexts = {
    .sending = "commiting result extraction command to the server.",
    .refused = "failed to send command to server (",
    .accepted = "result extraction commited to server for processing."};
constexpr RequestTexts kDepthTexts = {.sending = kResolutionTexts.sending,
                                      .refused = "ailed to send command to server (",
                                      .accepted = kResolutionTexts.accepted};
constexpr RequestTexts kHypothesisTexts = {
    .sending = "commiting result extraction command (hypotheses) to the server.",
    .refused = "failed to send hypothesis extraction command to server (",
    .accepted = "hypothesis result extraction commited to server for processing."};

// Registers the output file under the next result number and has `send` request the result. A
// refused request leaves its number to the next one.
template <typename Send>
void Submit(Request& request, const RequestTexts& texts, Send send) {
  CommandState& state = request.state;
  RequireWordsLeft(request, 0);
  LogLine(state, kInformation, texts.sending);
  const std::uint32_t number = state.next_result_number;
  state.pending_results.Add(number, *request.word);
  try {
    send(number);
  } catch (const ExSGClientBase& failure) {
    std::string ignored;
    state.pending_results.Take(number, ignored);
    LogLine(state, kError, texts.refused + failure.who() + ").");
    return;
  }
  ++state.next_result_number;
  LogLine(state, kInformation, texts.accepted);
}

void RequireEngineAndGrid(const CommandState& state) {
  if (!state.attached || !state.grid_active) {
    throw CommandProcessor::no_grid();
  }
}

void GetResolution(Request& request) {
  RequireWordCount(request, {3, 7});
  const SGBoundingBox box = request.word_count == 3 ? DefaultBox(request) : ReadRectangle(request);
  CommandState& state = request.state;
  RequireEngineAndGrid(state);
  Submit(request, kResolutionTexts, [&](std::uint32_t number) {
    state.client->RequestResolution(box, number, state.CallBack(&CommandState::OnResolutionReady));
  });
}

void GetDepth(Request& request) {
  RequireWordCount(request, {4, 5, 8, 9});
  const std::uint32_t level = ReadLevel(request);
  const bool as_bag = ReadBagFlag(request);
  // Unlike the others, this notice goes to the standard output.
  const SGBoundingBox box =
      request.word_count > 5 ? ReadRectangle(request) : DefaultBox(request, [] {
        std::cout << "warning: default bounding box is all zeros." << std::endl;
      });
  CommandState& state = request.state;
  RequireEngineAndGrid(state);
  Submit(request, kDepthTexts, [&](std::uint32_t number) {
    state.client->RequestDepth(
        box, number, level,
        state.CallBack(as_bag ? &CommandState::OnDepthBagReady : &CommandState::OnDepthReady));
  });
}

SGBoundingBox HypothesisBox(Request& request) {
  switch (request.word_count) {
    case 4:
      return DefaultBox(request);
    case 7:
      return ParseBoundingBox(request.state, request.word, BoxForm::kCircle);
    default:
      return ReadRectangle(request);
  }
}

void GetHypotheses(Request& request) {
  RequireWordCount(request, {4, 7, 8});
  const std::uint32_t level = ReadLevel(request);
  const SGBoundingBox box = HypothesisBox(request);
  CommandState& state = request.state;
  // An engine or a grid is enough here: the engine tells what it lacks.
  if (!state.attached && !state.grid_active) {
    throw CommandProcessor::no_grid();
  }
  Submit(request, kHypothesisTexts, [&](std::uint32_t number) {
    state.client->RequestHypotheses(box, number, level,
                                    state.CallBack(&CommandState::OnHyposReady));
  });
}

}  // namespace

void GetCommand(CommandProcessor& processor, WordIterator first, WordIterator last,
                std::uint32_t word_count) {
  Request request{processor, processor.State(), first, last, word_count};
  if (word_count < 3) {
    ShowHelpAndRefuse(request);
  }
  const std::string& type = *request.word++;
  if (type == "resolution") {
    GetResolution(request);
  } else if (type == "depth") {
    GetDepth(request);
  } else if (type == "hypotheses") {
    GetHypotheses(request);
  } else {
    LogLine(request.state, kError, "result type \"" + type + "\" not known.");
    throw CommandProcessor::bad_command();
  }
}

void GetDetailHelp(CommandProcessor& processor) {
  for (const char* line :
       {"\t\tResults are:", "\t\t\tresolution <west><south><east><north><output>",
        "\t\t\t                               Get subset of current grid to <output>",
        "\t\t\tresolution <output>            Get default bounding box to <output>",
        "\t\t\tdepth [low|full][bag] <west><south><east><north><output>",
        "\t\t\t                               Get subset of low-res or refined depth to <output>, "
        "optionally as a BAG file",
        "\t\t\tdepth [low|full][bag] <output> Get default bounding box of depth to <output>, "
        "optionally as a BAG file",
        "\t\t\thypotheses [low|full] <west><south><east><north><output>",
        "\t\t\t                               Get subset of low-res/high-res hypotheses to "
        "<output>",
        "\t\t\thypotheses [low|full] <east><north><radius><output>",
        "\t\t\t                               Get subset of hypotheses around given location to "
        "<output>",
        "\t\t\thypotheses [low|full] <output>",
        "\t\t\t                               Get hypotheses in default bounding box to "
        "<output>"}) {
    LogLine(processor.State(), kInformation, line);
  }
}

}  // namespace quarro
