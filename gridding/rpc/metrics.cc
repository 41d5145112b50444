#include "gridding/rpc/metrics.h"

#include <exception>
#include <mutex>
#include <utility>
#include <vector>

#include <prometheus/collectable.h>
#include <prometheus/exposer.h>
#include <prometheus/metric_family.h>

#include "support/exceptions.h"

namespace quarro::rpc {

namespace {

using prometheus::MetricFamily;
using prometheus::MetricType;

template <typename Number>
MetricFamily Counter(const char* name, const char* help, Number value) {
  MetricFamily family{name, help, MetricType::Counter, {}};
  family.metric.emplace_back().counter.value = static_cast<double>(value);
  return family;
}

template <typename Number>
MetricFamily Gauge(const char* name, const char* help, Number value) {
  MetricFamily family{name, help, MetricType::Gauge, {}};
  family.metric.emplace_back().gauge.value = static_cast<double>(value);
  return family;
}

MetricFamily Up(int value) {
  return Gauge("quarro_up", "1 if the engine gave its figures, 0 if it failed to.", value);
}

std::vector<MetricFamily> FamiliesOf(const MetricsSnapshot& now) {
  return {
      Up(1),
      Counter("quarro_lines_accepted_total", "Survey lines taken into the run queue.",
              now.lines_accepted),
      Counter("quarro_lines_completed_total", "Survey lines whose soundings are on disc.",
              now.lines_completed),
      Counter("quarro_lines_failed_total", "Survey lines that failed or were cancelled.",
              now.lines_failed),
      Counter("quarro_soundings_used_total", "Soundings used by completed lines.",
              now.soundings_used),
      Gauge("quarro_run_queue_requests",
            "Lines and barriers (grid, synch, refine, drop) that are not done.",
            now.run_queue_length),
      Gauge("quarro_priority_queue_requests", "Requests for results and queries that are not done.",
            now.priority_queue_length),
      Gauge("quarro_results_waiting", "Results that no client has fetched.", now.results_waiting),
      Gauge("quarro_result_bytes", "Size of the results that no client has fetched, in bytes.",
            now.result_bytes),
      Gauge("quarro_sessions", "Clients attached, those that are reconnecting among them.",
            now.sessions),
      Gauge("quarro_store_bytes", "Size of the files in the working directory, in bytes.",
            now.store_bytes),
  };
}

class EngineFigures : public prometheus::Collectable {
 public:
  explicit EngineFigures(std::function<MetricsSnapshot()> snapshot)
      : snapshot_(std::move(snapshot)) {}

  std::vector<MetricFamily> Collect() const override {
    try {
      const std::lock_guard lock(mutex_);
      return FamiliesOf(snapshot_());
    } catch (const std::exception&) {
      return {Up(0)};
    }
  }

 private:
  mutable std::mutex mutex_;  // held while snapshot_ runs: one reading at a time
  const std::function<MetricsSnapshot()> snapshot_;
};

}  // namespace

class MetricsEndpoint::Impl {
 public:
  Impl(const std::string& address_port, std::function<MetricsSnapshot()> snapshot)
      : figures_(std::make_shared<EngineFigures>(std::move(snapshot))), exposer_(address_port) {
    exposer_.RegisterCollectable(figures_);
  }

  int Port() const {
    const auto ports = exposer_.GetListeningPorts();
    return ports.empty() ? 0 : ports.front();
  }

 private:
  std::shared_ptr<EngineFigures> figures_;
  prometheus::Exposer exposer_;  // after figures_: no reading runs when they go
};

MetricsEndpoint::MetricsEndpoint(const std::string& address_port,
                                 std::function<MetricsSnapshot()> snapshot) {
  try {
    impl_ = std::make_unique<Impl>(address_port, std::move(snapshot));
  } catch (const std::exception& failure) {
    throw ExSGClientBase("cannot serve metrics on \"" + address_port + "\" (" + failure.what() +
                         "): give parameter MetricsAddress of section Network a free address of "
                         "this machine, like 127.0.0.1:9464");
  }
}

MetricsEndpoint::~MetricsEndpoint() = default;

int MetricsEndpoint::Port() const { return impl_->Port(); }

}  // namespace quarro::rpc
