// Quarro_Server: an engine that clients on the network find and attach to.
#include <csignal>
#include <exception>
#include <iostream>
#include <memory>
#include <string>

#include <boost/program_options.hpp>

#include "gridding/rpc/network_server.h"
#include "gridding/rpc/protocol.h"
#include "gridding/rpc/transport_log.h"
#include "slog/slog.h"
#include "support/mparams.h"
#include "support/open_files.h"

namespace quarro {
namespace {

namespace options = boost::program_options;

constexpr int kSuccess = 0;
constexpr int kUsageError = 2;
constexpr int kGreatestLogLevel = 7;

options::options_description DescribeOptions() {
  options::options_description description("options");
  description.add_options()("help,h", "show this text");
  description.add_options()("version,v", "show versions");
  description.add_options()("parameters,p", options::value<std::string>(), "the parameter file");
  description.add_options()("debug,d", options::value<int>()->default_value(1),
                            "messages below this level, 0 to 7, are not shown");
  description.add_options()("log,l", options::value<std::string>(),
                            "a file to which the messages are appended too");
  return description;
}

void PrintVersion() {
  std::cout << "Quarro_Server: engine " << (rpc::kEngineVersion >> 16U) << '.'
            << (rpc::kEngineVersion & 0xffffU) << ", protocol " << rpc::kProtocolVersion
            << std::endl;
}

// Kept from all threads but the one that waits for them.
sigset_t BlockEndSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  return signals;
}

void Log(int level, const std::string& text) {
  Slog log("server");
  log << SlogLevel(level);
  log() << text << endmsg;
}

// The engine's own messages belong to sessions, which log them on the channel "server".
void SetUpLog(const options::variables_map& given) {
  std::shared_ptr<SlogDrain> file;
  if (given.count("log") != 0) {
    file = std::make_shared<SlogFileDrain>(given["log"].as<std::string>(), true, true, ' ');
  }
  for (const char* channel : {"server", "network", "engine"}) {
    Slog log(channel);
    log.SetFilter(SlogLevel(given["debug"].as<int>()));
    log.AddDrain(SlogCerrDrain::Instance(' '));
    log.AddDrain(file);
  }
  rpc::RouteTransportLog(false);
}

int Serve(const std::string& parameter_file) {
  const sigset_t signals = BlockEndSignals();
  const MParams params(parameter_file, true);
  rpc::NetworkServer server(params);
  std::cout << "listening on " << server.Address() << " port " << server.Port() << std::endl;
  int signal = 0;
  sigwait(&signals, &signal);
  Log(2, signal == SIGTERM ? "ending, on SIGTERM" : "ending, on SIGINT");
  server.Stop();
  Log(2, "ended");
  return kSuccess;
}

int Run(int argc, const char* const* argv) {
  const options::options_description description = DescribeOptions();
  options::positional_options_description positional;
  positional.add("parameters", 1);
  options::variables_map given;
  try {
    options::store(
        options::command_line_parser(argc, argv).options(description).positional(positional).run(),
        given);
    options::notify(given);
  } catch (const options::error& error) {
    std::cerr << "Quarro_Server: " << error.what() << "; see --help" << std::endl;
    return kUsageError;
  }
  if (given.count("help") != 0) {
    std::cout << "Quarro_Server - serves a gridding engine to clients on the network." << std::endl
              << "syntax: Quarro_Server [options] <parameter-file>" << std::endl
              << description;
    return kSuccess;
  }
  if (given.count("version") != 0) {
    PrintVersion();
    return kSuccess;
  }
  if (given.count("parameters") == 0) {
    std::cerr << "Quarro_Server: no parameter file given; see --help" << std::endl;
    return kUsageError;
  }
  const int level = given["debug"].as<int>();
  if (level < 0 || level > kGreatestLogLevel) {
    std::cerr << "Quarro_Server: --debug takes a level from 0 to 7; see --help" << std::endl;
    return kUsageError;
  }
  SetUpLog(given);
  return Serve(given["parameters"].as<std::string>());
}

}  // namespace
}  // namespace quarro

int main(int argc, char** argv) {
  // A file that grows too large is an error of its write, which fails one line or result, not the
  // end.
  (void)std::signal(SIGXFSZ, SIG_IGN);
  // Nor is a reader of the log who has gone away the end of everybody's sessions.
  (void)std::signal(SIGPIPE, SIG_IGN);
  quarro::RaiseOpenFileLimit();
  try {
    return quarro::Run(argc, argv);
  } catch (const std::exception& failure) {
    std::cerr << "Quarro_Server: " << failure.what() << std::endl;
    return 1;
  }
}
