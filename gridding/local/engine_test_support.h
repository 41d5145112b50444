// What the tests of the engine share: a working directory, survey lines with known soundings, and
// requests that are waited for.
#pragma once

#include <condition_variable>
#include <filesystem>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "engine/sg_client_base.h"
#include "gridding/local/sg_debug_client.h"
#include "support/mparams.h"

namespace quarro::testing {

// A directory of its own, removed at the end.
class FreshDirectory {
 public:
  FreshDirectory();
  ~FreshDirectory();
  FreshDirectory(const FreshDirectory&) = delete;
  FreshDirectory& operator=(const FreshDirectory&) = delete;
  const std::filesystem::path& path() const { return path_; }
  std::string operator/(const std::string& name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

// The parameters of an engine that works in `directory`.
MParams ParametersFor(const std::filesystem::path& directory, int threads = 2);

// A strip of soundings of a rippled, sloping seafloor with noise and some spikes, as projected
// text.
struct Strip {
  double west_m = 0.0;
  double south_m = 0.0;
  double length_m = 120.0;  // eastward
  double width_m = 40.0;
  double spacing_m = 0.5;
  unsigned seed = 1;
};
// Writes it to `path`; gives the number of soundings.
std::size_t WriteStrip(const std::string& path, const Strip& strip);
double SeafloorDepth(double easting_m, double northing_m);

// Asks with a call-back that fetches a `Result`, and waits for it. Throws what fetching threw, and
// what asking threw.
template <typename Result, typename Request>
std::unique_ptr<Result> Await(SGClientBase& client, const Request& request) {
  std::promise<SEResultToken> answer;
  request([&](const SEResultToken& token) { answer.set_value(token); });
  return FetchResult<Result>(client, answer.get_future().get());
}

// Requests that are waited for.
std::unique_ptr<ResultGridLoaded> Construct(SGClientBase& client, const std::string& name,
                                            float resolution_m = 10.0F,
                                            float min_resolution_m = 1.0F);
std::unique_ptr<ResultGridLoaded> Load(SGClientBase& client, const std::string& name);
std::unique_ptr<ResultLineAdded> Add(SGClientBase& client, const std::string& path,
                                     std::uint32_t id = 0, bool rendezvous = false);
void Refine(SGClientBase& client, std::uint32_t threads = 0);
void Synch(SGClientBase& client);
void Drop(SGClientBase& client, bool asap = false);
std::vector<std::string> Query(SGClientBase& client, std::uint32_t kind);
SGBoundingBox GridBounds(SGClientBase& client);
std::unique_ptr<ResultDepth> Depth(SGClientBase& client, const SGBoundingBox& box,
                                   std::uint32_t full = 1, std::uint32_t number = 0);
std::unique_ptr<ResultHypos> Hypotheses(SGClientBase& client, const SGBoundingBox& box,
                                        std::uint32_t full = 1);
std::unique_ptr<ResultResolution> Resolution(SGClientBase& client, const SGBoundingBox& box);

// Every value of a result, floating-point numbers to the bit.
std::string TextOf(const ResultDepth& result);
std::string TextOf(const ResultHypos& result);
std::string TextOf(const ResultResolution& result);
// All three over the bounds of the grid, at full resolution.
std::string AllResults(SGClientBase& client);

// Call-backs that are counted and put in order; what they announce stays in the pool.
class Replies {
 public:
  // Waits for all.
  ~Replies() { Wait(); }
  // A call-back that notes `name` once it runs.
  ResultCallback Expect(const std::string& name = "");
  // Notes `name` without a call-back.
  void Note(const std::string& name);
  void Wait();
  // The names noted so far, in order.
  std::vector<std::string> Names();
  // The tokens announced so far, in order.
  std::vector<SEResultToken> Tokens();

 private:
  std::mutex mutex_;  // guards all below
  std::condition_variable changed_;
  int expected_ = 0;
  std::vector<std::string> names_;
  std::vector<SEResultToken> tokens_;
};

// Attaches to the one engine.
void Attach(SGDebugClient& client);

// The reason of the ExSGClientBase that `action` throws; "no error" when it throws none.
template <typename Action>
std::string ReasonOf(const Action& action) {
  try {
    action();
  } catch (const ExSGClientBase& error) {
    return error.who();
  }
  return "no error";
}

// The messages of the channel "engine" while it lives, one a line with its level.
class EngineLog {
 public:
  EngineLog();
  ~EngineLog();
  EngineLog(const EngineLog&) = delete;
  EngineLog& operator=(const EngineLog&) = delete;
  std::string Text() const;
  // Until the text has `part`; false when it still has not after a minute.
  bool WaitFor(const std::string& part) const;

 private:
  class Drain;
  std::shared_ptr<Drain> drain_;
};

}  // namespace quarro::testing
