// Command lines against the in-process engine, which works in a scratch folder with one survey line
// and a list that names it.
#include <fstream>
#include <string>

#include "cli/command_processor.h"
#include "fuzz/command_lines.h"
#include "fuzz/harness.h"
#include "gridding/local/sg_debug_client.h"
#include "support/mparams.h"

namespace {

constexpr std::size_t kMostLines = 32;
constexpr std::uint64_t kLargestFile = 16U << 20U;

void WriteSurvey() {
  std::ofstream line("line.xyz");
  for (int i = 0; i < 400; ++i) {
    line << 5 * (i % 20) / 2 << ' ' << 5 * (i / 20) / 2 << ' ' << 20 + i % 7 << " 0.1 0.2\n";
  }
  std::ofstream("lines.txt") << "line.xyz\nline.xyz\nmissing.gsf\n";
}

quarro::MParams EngineParameters() {
  quarro::MParams params;
  params.Set("Engine", "Threads", "2");
  params.Set("Engine", "MemoryMiB", "16");
  return params;
}

void RunLines(const std::vector<std::string>& lines) {
  const quarro::MParams params = EngineParameters();
  quarro::SGDebugClient engine(params);
  quarro::fuzz::SilenceChannels();
  quarro::CommandProcessor processor(&engine, params);
  for (const std::string& line : lines) {
    if (quarro::fuzz::Run(processor, line) != quarro::fuzz::End::kGoesOn) break;
    processor.State().messages.FlushMessages();
  }
  if (processor.State().Attached()) processor.Dispatch("detach");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  quarro::fuzz::LimitFileSize(kLargestFile);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const quarro::fuzz::ScratchFolder folder;
  folder.Empty();
  WriteSurvey();
  RunLines(quarro::fuzz::CommandLines(quarro::fuzz::TextOf({data, size}), kMostLines));
  return 0;
}
