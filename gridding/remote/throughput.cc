// What the network costs: one survey through the in-process front end and through one on the
// network, line by line and result by result.
//
//   network_throughput DIRECTORY LINE...
//
// Works in DIRECTORY. The server runs in this process, on loopback.
#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <future>
#include <iomanip>
#include <iostream>
#include <string>
#include <vector>

#include <sys/resource.h>
#include <unistd.h>

#include "gridding/local/sg_debug_client.h"
#include "gridding/remote/super_grid_client.h"
#include "gridding/rpc/network_server.h"
#include "gridding/rpc/protocol.h"
#include "slog/slog.h"

namespace quarro {
namespace {

constexpr int kRounds = 4;
constexpr float kResolution_m = 10.0F;
constexpr double kMiB = 1024.0 * 1024.0;
// Cells of the large result on a side; each takes 120 bytes on its way.
constexpr double kCells = 2100.0;
constexpr double kBytesOnTheWay = 120.0;

using Request = std::function<void(const ResultCallback& on_done)>;

// Waits for the answer, fetches it, and gives the seconds that both took.
double SecondsFor(SGClientBase& client, const Request& request) {
  std::promise<void> done;
  const auto begun = std::chrono::steady_clock::now();
  request([&](const SEResultToken& token) {
    try {
      const std::unique_ptr<SEBaseResult> result(client.GetResult(token));
      done.set_value();
    } catch (...) {
      done.set_exception(std::current_exception());
    }
  });
  done.get_future().get();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count();
}

struct Seconds {
  double lines = 0.0;
  double lines_processor = 0.0;
  double fetch = 0.0;  // of the large result
  double fetch_processor = 0.0;
};

// Of all threads of the process.
double ProcessorSeconds() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

Seconds Measure(SGClientBase& client, const std::string& grid,
                const std::vector<std::string>& lines) {
  Seconds seconds;
  SecondsFor(client,
             [&](const auto& done) { client.ConstructGrid(grid, kResolution_m, 1.0F, done); });
  const auto begun = std::chrono::steady_clock::now();
  const double processor_begun = ProcessorSeconds();
  for (std::uint32_t i = 0; i < lines.size(); ++i) {
    client.AddLine(lines[i], i, false, [&](const SEResultToken& token) {
      const std::unique_ptr<SEBaseResult> result(client.GetResult(token));
    });
  }
  SecondsFor(client, [&](const auto& done) { client.SynchGrid(done); });
  seconds.lines = std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count();
  seconds.lines_processor = ProcessorSeconds() - processor_begun;

  const SGBoundingBox box(0, 0, kCells * kResolution_m, kCells * kResolution_m);
  std::promise<SEResultToken> token;
  client.RequestResolution(box, 1, [&](const SEResultToken& told) { token.set_value(told); });
  const SEResultToken large = token.get_future().get();
  ::sync();
  const auto asked = std::chrono::steady_clock::now();
  const double processor_asked = ProcessorSeconds();
  const std::unique_ptr<SEBaseResult> result(client.GetResult(large));
  seconds.fetch = std::chrono::duration<double>(std::chrono::steady_clock::now() - asked).count();
  seconds.fetch_processor = ProcessorSeconds() - processor_asked;
  return seconds;
}

// Nothing left to be written to disc by what was before.
void CleanUp(const MParams& params, const char* grid) {
  std::filesystem::remove_all(std::filesystem::path(params.Lookup("Engine", "WorkingDirectory")) /
                              grid);
  ::sync();
}

Seconds MeasureLocal(const MParams& params, const std::vector<std::string>& lines) {
  CleanUp(params, "local");
  SGDebugClient client(params);
  client.AttachEngine(client.FindEngines().front());
  return Measure(client, "local", lines);
}

Seconds MeasureRemote(const MParams& params, const std::vector<std::string>& lines) {
  CleanUp(params, "remote");
  const rpc::NetworkServer server(params);
  SuperGridClient client(params);
  client.AttachEngine({.protocol_version = rpc::kProtocolVersion,
                       .engine_version = rpc::kEngineVersion,
                       .threads = 1,
                       .port = server.Port(),
                       .ipv4_address = 0x7f000001});
  return Measure(client, "remote", lines);
}

Seconds MediansOf(const std::vector<Seconds>& rounds) {
  const auto median = [&](double Seconds::*figure) {
    std::vector<double> values;
    values.reserve(rounds.size());
    for (const Seconds& round : rounds) values.push_back(round.*figure);
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
  };
  return {.lines = median(&Seconds::lines),
          .lines_processor = median(&Seconds::lines_processor),
          .fetch = median(&Seconds::fetch),
          .fetch_processor = median(&Seconds::fetch_processor)};
}

void Report(const char* name, const Seconds& seconds, std::uint64_t bytes) {
  std::cout << std::fixed << std::setprecision(2) << name << ": lines " << seconds.lines << " s, "
            << static_cast<double>(bytes) / kMiB / seconds.lines << " MiB/s, "
            << seconds.lines_processor << " s of processor time" << std::endl;
}

int Run(int argc, const char* const* argv) {
  if (argc < 3) {
    std::cerr << "usage: network_throughput DIRECTORY LINE..." << std::endl;
    return 2;
  }
  std::vector<std::string> lines;
  std::uint64_t bytes = 0;
  for (int i = 2; i < argc; ++i) {
    lines.push_back(std::filesystem::canonical(argv[i]).string());
    bytes += std::filesystem::file_size(lines.back());
  }
  MParams params;
  params.Set("Engine", "WorkingDirectory", argv[1]);
  params.Set("Network", "Port", "0");
  params.Set("Network", "SurveyDirectories", "/");
  for (const char* channel : {"engine", "server"}) Slog(channel).SetFilter(SlogLevel(3));

  // Once unmeasured: files are in the system's memory afterwards. Then by turns, each first in half
  // of the rounds, since the machine writes to disc what the one before has left.
  std::vector<Seconds> local;
  std::vector<Seconds> remote;
  MeasureLocal(params, lines);
  for (int round = 0; round < kRounds; ++round) {
    if (round % 2 == 0) local.push_back(MeasureLocal(params, lines));
    remote.push_back(MeasureRemote(params, lines));
    if (round % 2 == 1) local.push_back(MeasureLocal(params, lines));
  }
  const Seconds locally = MediansOf(local);
  const Seconds remotely = MediansOf(remote);
  Report("in process", locally, bytes);
  Report("network   ", remotely, bytes);
  const double megabytes = (kCells + 1) * (kCells + 1) * kBytesOnTheWay / 1e6;
  std::cout << "network commits lines at " << 100.0 * locally.lines / remotely.lines
            << " % of the speed in process" << std::endl
            << "a result of " << megabytes << " MB is fetched in " << remotely.fetch << " s, "
            << megabytes / remotely.fetch << " MB/s, " << remotely.fetch_processor
            << " s of processor time on both sides together" << std::endl;
  return 0;
}

}  // namespace
}  // namespace quarro

int main(int argc, char** argv) {
  try {
    return quarro::Run(argc, argv);
  } catch (const std::exception& failure) {
    std::cerr << "network_throughput: " << failure.what() << std::endl;
    return 1;
  }
}
