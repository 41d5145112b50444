#include "gridding/local/engine_test_support.h"

#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <random>
#include <sstream>
#include <stdexcept>

#include "slog/slog.h"

namespace quarro::testing {

FreshDirectory::FreshDirectory() {
  std::string path = (std::filesystem::temp_directory_path() / "quarro_test.XXXXXX").string();
  if (::mkdtemp(path.data()) == nullptr) throw std::runtime_error("no directory for the test");
  path_ = path;
}

FreshDirectory::~FreshDirectory() {
  std::error_code error;
  std::filesystem::remove_all(path_, error);
}

MParams ParametersFor(const std::filesystem::path& directory, int threads) {
  MParams params;
  params.Set("Engine", "WorkingDirectory", directory.string());
  params.Set("Engine", "Threads", std::to_string(threads));
  return params;
}

double SeafloorDepth(double easting_m, double northing_m) {
  return 20.0 + 0.02 * easting_m - 0.01 * northing_m + 0.3 * std::sin(easting_m / 7.0);
}

std::size_t WriteStrip(const std::string& path, const Strip& strip) {
  std::mt19937 random(strip.seed);
  std::normal_distribution<double> noise(0.0, 0.05);
  std::uniform_real_distribution<double> chance(0.0, 1.0);
  std::ofstream out(path);
  out.precision(12);
  std::size_t count = 0;
  for (double east = 0.0; east < strip.length_m; east += strip.spacing_m) {
    for (double north = 0.0; north < strip.width_m; north += strip.spacing_m) {
      const double x = strip.west_m + east + 0.2 * chance(random);
      const double y = strip.south_m + north + 0.2 * chance(random);
      const double spike = chance(random) < 0.02 ? -3.0 : 0.0;
      out << x << ' ' << y << ' ' << SeafloorDepth(x, y) + noise(random) + spike << " 0.05 0.1\n";
      ++count;
    }
  }
  return count;
}

std::unique_ptr<ResultGridLoaded> Construct(SGClientBase& client, const std::string& name,
                                            float resolution_m, float min_resolution_m) {
  return Await<ResultGridLoaded>(client, [&](const ResultCallback& done) {
    client.ConstructGrid(name, resolution_m, min_resolution_m, done);
  });
}

std::unique_ptr<ResultGridLoaded> Load(SGClientBase& client, const std::string& name) {
  return Await<ResultGridLoaded>(client,
                                 [&](const ResultCallback& done) { client.LoadGrid(name, done); });
}

std::unique_ptr<ResultLineAdded> Add(SGClientBase& client, const std::string& path,
                                     std::uint32_t id, bool rendezvous) {
  return Await<ResultLineAdded>(
      client, [&](const ResultCallback& done) { client.AddLine(path, id, rendezvous, done); });
}

void Refine(SGClientBase& client, std::uint32_t threads) {
  Await<ResultPosAck>(client,
                      [&](const ResultCallback& done) { client.RefineGrid(threads, done); });
}

void Synch(SGClientBase& client) {
  Await<ResultPosAck>(client, [&](const ResultCallback& done) { client.SynchGrid(done); });
}

void Drop(SGClientBase& client, bool asap) {
  Await<ResultPosAck>(client, [&](const ResultCallback& done) { client.DropGrid(asap, done); });
}

std::vector<std::string> Query(SGClientBase& client, std::uint32_t kind) {
  return Await<ResultQuery>(client,
                            [&](const ResultCallback& done) { client.RequestQuery(kind, done); })
      ->lines;
}

SGBoundingBox GridBounds(SGClientBase& client) {
  return Await<ResultBBox>(client,
                           [&](const ResultCallback& done) { client.RequestQuery(4, done); })
      ->bounds;
}

std::unique_ptr<ResultDepth> Depth(SGClientBase& client, const SGBoundingBox& box,
                                   std::uint32_t full, std::uint32_t number) {
  return Await<ResultDepth>(
      client, [&](const ResultCallback& done) { client.RequestDepth(box, number, full, done); });
}

std::unique_ptr<ResultHypos> Hypotheses(SGClientBase& client, const SGBoundingBox& box,
                                        std::uint32_t full) {
  return Await<ResultHypos>(
      client, [&](const ResultCallback& done) { client.RequestHypotheses(box, 0, full, done); });
}

std::unique_ptr<ResultResolution> Resolution(SGClientBase& client, const SGBoundingBox& box) {
  return Await<ResultResolution>(
      client, [&](const ResultCallback& done) { client.RequestResolution(box, 0, done); });
}

namespace {

class BitText {
 public:
  BitText() { text_ << std::hexfloat; }
  template <typename... Values>
  void Line(const Values&... values) {
    ((text_ << values << ' '), ...);
    text_ << '\n';
  }
  void Add(const NodalDepth& depth) {
    Line(depth.depth_m, depth.variance_m2, depth.hypothesis_count, depth.hypothesis_strength);
  }
  std::string Take() const { return text_.str(); }

 private:
  std::ostringstream text_;
};

}  // namespace

std::string TextOf(const ResultDepth& result) {
  BitText text;
  text.Line("depth", result.bounds, result.grid.rows, result.grid.columns);
  for (std::uint32_t row = 0; row < result.grid.rows; ++row) {
    for (std::uint32_t column = 0; column < result.grid.columns; ++column) {
      const DepthCell& cell = result.grid.At(row, column);
      text.Line(row, column, cell.resolution_m);
      text.Add(cell.estimate);
      if (cell.refinement == nullptr) continue;
      const RefinementBlock& block = *cell.refinement;
      for (std::uint32_t i = 0; i < block.nodes_a * block.nodes_b; ++i) {
        text.Add(block.nodes[i].estimate);
        text.Line(block.nodes[i].sample_count);
      }
    }
  }
  return text.Take();
}

std::string TextOf(const ResultHypos& result) {
  BitText text;
  text.Line("hypotheses", result.bounds, result.count);
  for (std::uint64_t i = 0; i < result.count; ++i) {
    const NodalHypos& node = result.nodes[i];
    text.Line(node.easting_m, node.northing_m, node.resolution_m, node.hypothesis_strength);
    for (std::uint32_t k = 0; k < node.count; ++k) {
      const Hypothesis& hypothesis = node.hypotheses[k];
      text.Line(hypothesis.depth_m, hypothesis.variance_m2, hypothesis.sample_count);
    }
  }
  return text.Take();
}

std::string TextOf(const ResultResolution& result) {
  BitText text;
  text.Line("resolution", result.bounds, result.grid.rows, result.grid.columns);
  for (std::uint32_t row = 0; row < result.grid.rows; ++row) {
    for (std::uint32_t column = 0; column < result.grid.columns; ++column) {
      const ResolutionRecord& r = result.grid.At(row, column);
      text.Line(r.soundings, r.node_spacing_m, r.mean_depth_m, r.depth_deviation_m, r.shallowest_m,
                r.deepest_m, r.mean_vertical_sigma_m, r.mean_horizontal_sigma_m, r.density_per_m2,
                r.covered_fraction, r.occupancy, r.covered_area_m2, r.depth_m, r.uncertainty_m,
                r.hypothesis_strength, r.easting_m, r.northing_m);
    }
  }
  return text.Take();
}

std::string AllResults(SGClientBase& client) {
  const SGBoundingBox bounds = GridBounds(client);
  return TextOf(*Depth(client, bounds)) + TextOf(*Hypotheses(client, bounds)) +
         TextOf(*Resolution(client, bounds));
}

ResultCallback Replies::Expect(const std::string& name) {
  const std::lock_guard lock(mutex_);
  ++expected_;
  return [this, name](const SEResultToken& token) {
    const std::lock_guard lock_reply(mutex_);
    names_.push_back(name);
    tokens_.push_back(token);
    --expected_;
    changed_.notify_all();
  };
}

void Replies::Note(const std::string& name) {
  const std::lock_guard lock(mutex_);
  names_.push_back(name);
}

void Replies::Wait() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return expected_ == 0; });
}

std::vector<std::string> Replies::Names() {
  const std::lock_guard lock(mutex_);
  return names_;
}

std::vector<SEResultToken> Replies::Tokens() {
  const std::lock_guard lock(mutex_);
  return tokens_;
}

void Attach(SGDebugClient& client) { client.AttachEngine(client.FindEngines().front()); }

class EngineLog::Drain : public SlogDrain {
 public:
  void Write(const std::string&, int level, const std::string& text) override {
    {
      const std::lock_guard lock(mutex_);
      text_ += std::to_string(level) + ' ' + text + '\n';
    }
    changed_.notify_all();
  }
  std::string Text() {
    const std::lock_guard lock(mutex_);
    return text_;
  }
  bool WaitFor(const std::string& part) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, std::chrono::seconds(60),
                             [&] { return text_.find(part) != std::string::npos; });
  }

 private:
  std::mutex mutex_;  // guards text_
  std::condition_variable changed_;
  std::string text_;
};

EngineLog::EngineLog() : drain_(std::make_shared<Drain>()) {
  Slog log("engine");
  log.RemoveDrains();
  log.SetFilter(SlogLevel(0));
  log.AddDrain(drain_);
}

EngineLog::~EngineLog() { Slog("engine").RemoveDrains(); }

std::string EngineLog::Text() const { return drain_->Text(); }

bool EngineLog::WaitFor(const std::string& part) const { return drain_->WaitFor(part); }

}  // namespace quarro::testing
