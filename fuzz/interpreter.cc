// Command lines against an engine that answers at once: the first line of an input chooses the
// answers, the others are typed.
#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "cli/command_processor.h"
#include "cli/fake_front_end.h"
#include "fuzz/command_lines.h"
#include "fuzz/harness.h"
#include "support/mparams.h"

namespace {

constexpr std::size_t kMostLines = 64;
constexpr std::uint64_t kLargestFile = 16U << 20U;

using quarro::SEBaseResult;

template <typename Result>
SEBaseResult* Numbered(std::uint32_t number) {
  auto* result = new Result;
  result->result_number = number;
  result->bounds = {0.0, 0.0, 32.0, 32.0};
  return result;
}

SEBaseResult* Depth(std::uint32_t number) {
  static const quarro::RefinedNode node{{12.5F, 0.04F, 2, 1.5F}, 7};
  static const quarro::RefinementBlock block{1, 1, &node};
  static const std::array<quarro::DepthCell, 4> cells{
      {{16.0F, {12.5F, 0.04F, 1, 0.0F}, &block}, {}, {-1.0F, {0.5F, 1.0F, 3, 5.0F}, nullptr}, {}}};
  auto* result = static_cast<quarro::ResultDepth*>(Numbered<quarro::ResultDepth>(number));
  result->grid = {2, 2, cells.data(), nullptr};
  return result;
}

SEBaseResult* Resolution(std::uint32_t number) {
  static const std::array<quarro::ResolutionRecord, 4> records{};
  auto* result = static_cast<quarro::ResultResolution*>(Numbered<quarro::ResultResolution>(number));
  result->grid = {2, 2, records.data(), nullptr};
  return result;
}

SEBaseResult* Line(std::uint32_t number) {
  auto* result = new quarro::ResultLineAdded;
  result->line_id = number / 2;
  result->failed = number % 2;
  return result;
}

SEBaseResult* Query() {
  auto* result = new quarro::ResultQuery;
  result->lines = {"", "two lines of an answer"};
  return result;
}

// What the engine answers for a letter; `number` counts the answers.
SEBaseResult* Answer(char letter, std::uint32_t number) {
  switch (letter) {
    case 'a':
      return new quarro::ResultPosAck;
    case 'b':
      return new quarro::ResultBBox;
    case 'd':
      return Depth(number);
    case 'g':
      return new quarro::ResultGridLoaded;
    case 'h':
      return Numbered<quarro::ResultHypos>(number);
    case 'l':
      return Line(number);
    case 'q':
      return Query();
    case 'r':
      return Resolution(number);
    case 's':
      return new quarro::ResultServStats;
    case 't':
      return new quarro::ResultDebug;
    case 'R':
      throw quarro::ExSGCServerResources("no room");
    case 'N':
      throw quarro::ExSGCNoGrid("no grid");
    default:
      throw quarro::ExSGClientBase("failed");
  }
}

// The call-back of hypotheses lets what fails pass to the engine, which here is its caller.
quarro::fuzz::End RunAnswered(quarro::CommandProcessor& processor, const std::string& line) {
  try {
    return quarro::fuzz::Run(processor, line);
  } catch (const quarro::ExSGClientBase&) {
    if (line.find("hypotheses") == std::string::npos) throw;
    return quarro::fuzz::End::kGoesOn;
  }
}

void RunLines(const std::string& answers, const std::vector<std::string>& lines) {
  quarro::FakeFrontEnd engine;
  engine.answer = quarro::FakeFrontEnd::Answer::kAtOnce;
  engine.engines = {{1, 0x10001, 8, 4520, 0x7f000001}};
  std::uint32_t number = 0;
  engine.result = [&] {
    const char letter = answers.empty() ? 'a' : answers[number % answers.size()];
    return Answer(letter, number++ / 2);
  };
  quarro::CommandProcessor processor(&engine, quarro::MParams());
  for (const std::string& line : lines) {
    if (RunAnswered(processor, line) != quarro::fuzz::End::kGoesOn) return;
    processor.State().messages.FlushMessages();
    const quarro::CommandState& state = processor.State();
    quarro::fuzz::Require(state.history.size() <= std::max(state.history_length, 1U),
                          "the history keeps its length");
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  quarro::fuzz::LimitFileSize(kLargestFile);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const quarro::fuzz::ScratchFolder folder;
  quarro::fuzz::SilenceChannels();
  std::string_view text = quarro::fuzz::TextOf({data, size});
  const std::size_t end = std::min(text.find('\n'), text.size());
  const std::string answers(text.substr(0, end));
  text.remove_prefix(end);
  RunLines(answers, quarro::fuzz::CommandLines(text, kMostLines));
  folder.Empty();
  return 0;
}
