// For tests: a front end that records what it is asked and answers what it is told.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "engine/sg_client_base.h"

namespace quarro {

class FakeFrontEnd : public SGClientBase {
 public:
  enum class Answer { kAtOnce, kOnAThread, kWhenDelivered };

  ~FakeFrontEnd() override { Join(); }

  // Waits for the call-backs that run on threads.
  void Join() {
    for (std::thread& thread : threads_) {
      thread.join();
    }
    threads_.clear();
  }

  // Runs the oldest call-back that is kept, or the one at `position`.
  void Deliver(std::size_t position = 0) {
    const ResultCallback on_done = kept[position];
    kept.erase(kept.begin() + static_cast<std::ptrdiff_t>(position));
    on_done(SEResultToken());
  }

  bool SetRemoteLogLevel(std::uint32_t level) override {
    calls.push_back("SetRemoteLogLevel " + std::to_string(level));
    return remote_log_level_accepted;
  }
  std::vector<QuarroSpec> FindEngines() override {
    Record("FindEngines");
    return engines;
  }
  void AttachEngine(const QuarroSpec& engine) override {
    std::ostringstream text;
    text << "AttachEngine " << engine;
    Record(text.str());
  }
  void DetachEngine() override { Record("DetachEngine"); }
  void RequestServerStatistics(const ResultCallback& on_done) override {
    Accept("RequestServerStatistics", on_done);
  }
  void DebugCell(std::uint32_t col, std::uint32_t row, bool on,
                 const ResultCallback& on_done) override {
    Accept(Text("DebugCell", col, row, on), on_done);
  }
  void DebugAt(double x, double y, bool on, const ResultCallback& on_done) override {
    Accept(Text("DebugAt", x, y, on), on_done);
  }
  void DebugOffEverywhere(const ResultCallback& on_done) override {
    Accept("DebugOffEverywhere", on_done);
  }
  void RequestQuery(std::uint32_t kind, const ResultCallback& on_done) override {
    Accept(Text("RequestQuery", kind), on_done);
  }
  void PurgeResults(const std::set<std::uint32_t>& result_numbers,
                    const ResultCallback& on_done) override {
    std::string text = "PurgeResults";
    for (const std::uint32_t number : result_numbers) {
      text += " " + std::to_string(number);
    }
    Accept(text, on_done);
  }
  void ConstructGrid(const std::string& name, float resolution, float min_resolution,
                     const ResultCallback& on_done) override {
    Accept(Text("ConstructGrid", name, resolution, min_resolution), on_done);
  }
  void LoadGrid(const std::string& name, const ResultCallback& on_done) override {
    Accept(Text("LoadGrid", name), on_done);
  }
  void AddLine(const std::string& file_name, std::uint32_t line_id, bool rendezvous,
               const ResultCallback& on_done) override {
    Accept(Text("AddLine", file_name, line_id, rendezvous), on_done);
  }
  void RequestResolution(const SGBoundingBox& box, std::uint32_t result_number,
                         const ResultCallback& on_done) override {
    Accept(Text("RequestResolution", box, result_number), on_done);
  }
  void RequestDepth(const SGBoundingBox& box, std::uint32_t result_number,
                    std::uint32_t full_resolution, const ResultCallback& on_done) override {
    Accept(Text("RequestDepth", box, result_number, full_resolution), on_done);
  }
  void RequestHypotheses(const SGBoundingBox& box, std::uint32_t result_number,
                         std::uint32_t full_resolution, const ResultCallback& on_done) override {
    Accept(Text("RequestHypotheses", box, result_number, full_resolution), on_done);
  }
  void DropGrid(bool asap, const ResultCallback& on_done) override {
    Accept(Text("DropGrid", asap), on_done);
  }
  void SynchGrid(const ResultCallback& on_done) override { Accept("SynchGrid", on_done); }
  void RefineGrid(std::uint32_t n_threads, const ResultCallback& on_done) override {
    Accept(Text("RefineGrid", n_threads), on_done);
  }
  SEBaseResult* GetResult(const SEResultToken& /*token*/) override { return result(); }

  // What was asked, in order: the operation and its arguments, blank-separated.
  std::vector<std::string> calls;
  std::vector<QuarroSpec> engines;
  bool remote_log_level_accepted = true;
  // Thrown from the next operations when set.
  std::function<void(const std::string& call)> refusal;
  // What GetResult gives or throws.
  std::function<SEBaseResult*()> result = [] { return new ResultGridLoaded; };
  Answer answer = Answer::kOnAThread;
  std::vector<ResultCallback> kept;  // call-backs to deliver

 protected:
  void PurgeAllResults(const ResultCallback& on_done) override { Accept("Purge", on_done); }

 private:
  template <typename... Arguments>
  static std::string Text(const std::string& operation, const Arguments&... arguments) {
    std::ostringstream text;
    text << operation;
    ((text << ' ' << arguments), ...);
    return text.str();
  }

  void Record(const std::string& call) {
    calls.push_back(call);
    if (refusal) {
      refusal(call);
    }
  }

  void Accept(const std::string& call, const ResultCallback& on_done) {
    Record(call);
    switch (answer) {
      case Answer::kAtOnce:
        on_done(SEResultToken());
        break;
      case Answer::kOnAThread:
        threads_.emplace_back([on_done] { on_done(SEResultToken()); });
        break;
      case Answer::kWhenDelivered:
        kept.push_back(on_done);
        break;
    }
  }

  std::vector<std::thread> threads_;
};

}  // namespace quarro
