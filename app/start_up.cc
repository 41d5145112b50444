// The program's start-up, from the command line to the console loop.
#include "app/start_up.h"

#include <exception>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "app/console.h"
#include "app/line_reader.h"
#include "app/options.h"
#include "cli/command_processor.h"
#include "slog/slog.h"

namespace quarro {
namespace {

constexpr char kBuildDate[] = "May 17 2017";
constexpr char kBuildTime[] = "08:28:24";
constexpr int kProtocolVersion = 1;
constexpr char kSupportLibraryVersion[] = "1.4";
constexpr char kEngineLibraryVersion[] = "1.1";

constexpr int kSuccess = 0;
constexpr int kNothingRun = 1;  // also after help and version

void PrintUsage() {
  std::cout << "Quarro_Client [" << kBuildDate << ", " << kBuildTime
            << "] - Run client-side of distributed SuperGrid computation engine." << std::endl
            << "syntax: Quarro_Client [opt] <config-file>" << std::endl
            << DescribeOptions() << std::endl;
}

void PrintVersion() {
  std::cout << "MERA Library: " << kSupportLibraryVersion << std::endl
            << "Quarro Library: " << kEngineLibraryVersion << std::endl
            << "Quarro_Client Application: " << kBuildDate << "/" << kBuildTime << std::endl
            << "Quarro_Client CommandProcessor: " << CommandProcessor::Version() << std::endl;
}

// Null, after a message, when the file does not serve.
std::unique_ptr<MParams> ReadParameters(const std::string& path, Slog& log) {
  try {
    return std::make_unique<MParams>(path, true);
  } catch (const ExMPEXmlFileNotParsable& failure) {
    log << SlogLevel(4);
    log() << "failed to parse configuration file (" << failure.what() << ")" << endmsg;
  } catch (const std::exception& failure) {
    log << SlogLevel(4);
    log() << "unknown exception while parsing configuration file (" << failure.what() << ")"
          << endmsg;
  }
  return nullptr;
}

// Negative levels count as large ones.
bool IsDebugLevel(int level) {
  return static_cast<unsigned>(level) <= static_cast<unsigned>(kHighestDebugLevel);
}

// The bounds select levels instead of being written; operators know the message in this form.
void RefuseDebugLevel(Slog& log) {
  log << SlogLevel(kLowestDebugLevel);
  log() << "debug level was not recognised (range: [";
  log << SlogLevel(kLowestDebugLevel);
  log() << ", ";
  log << SlogLevel(kHighestDebugLevel);
  log() << "])." << endmsg;
}

void ShowBanner(Slog& log) {
  log << SlogLevel(1);
  log() << "Quarro_Client [" << kBuildDate << ", " << kBuildTime << "], Protocol Version "
        << kProtocolVersion << ", Command Processor [" << CommandProcessor::Version() << "]."
        << endmsg;
  log << SlogLevel(1);
  log() << "command processor ready (type 'help' for command list and syntax)." << endmsg;
}

std::vector<std::string> CommandNames(const CommandProcessor& processor) {
  std::vector<std::string> names;
  for (const auto& [name, entry] : processor.Commands()) {
    names.push_back(name);
  }
  return names;
}

void RunInterpreter(SGClientBase* client, const MParams& params, const Options& options,
                    Slog& log) {
  CommandProcessor processor(client, params);
  if (options.message_file) {
    processor.State().messages.RedirectToFile(*options.message_file, true);
  }
  ShowBanner(log);
  const auto reader = MakeLineReader(CommandNames(processor));
  RunConsole(processor, *reader, options.source_file ? "source " + *options.source_file : "");
}

}  // namespace

int RunClient(int argc, const char* const* argv, const FrontEndMaker& make_local,
              const FrontEndMaker& make_remote) {
  const Options options = ParseOptions(argc, argv);
  Slog log("driver");
  if (options.help) {
    PrintUsage();
    return kNothingRun;
  }
  if (options.version) {
    PrintVersion();
    return kNothingRun;
  }
  if (!options.config_file) {
    log << SlogLevel(4);
    log() << "no configuration file specified on input." << endmsg;
    PrintUsage();
    return kNothingRun;
  }
  const auto params = ReadParameters(*options.config_file, log);
  if (!params) {
    return kNothingRun;
  }
  log << SlogLevel(1);
  log() << "bringing up server interface." << endmsg;
  auto client = (options.local ? make_local : make_remote)(*params);
  if (!IsDebugLevel(options.debug_level)) {
    RefuseDebugLevel(log);
    // The process ends here, and the front end with it. Volatile: nobody reads it, and yet it is to
    // be kept.
    [[maybe_unused]] static SGClientBase* volatile left_standing = nullptr;
    left_standing = client.release();
    return kNothingRun;
  }
  client->SetLogFilter(SlogLevel(options.debug_level));
  if (options.log_file) {
    client->AddLogFile(*options.log_file);
  }
  RunInterpreter(client.get(), *params, options, log);
  return kSuccess;
}

}  // namespace quarro
