// What a monitoring system reads of a running server.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace quarro::rpc {

// Counts since the server came up, and gauges of now.
struct MetricsSnapshot {
  std::uint64_t lines_accepted = 0;
  std::uint64_t lines_completed = 0;  // without those that failed
  std::uint64_t lines_failed = 0;
  std::uint64_t soundings_used = 0;

  std::uint64_t run_queue_length = 0;
  std::uint64_t priority_queue_length = 0;
  std::uint64_t results_waiting = 0;
  std::uint64_t result_bytes = 0;
  std::uint32_t sessions = 0;
  std::uint64_t store_bytes = 0;  // on disc
};

// Serves the metrics in the Prometheus text format at http://<address_port>/metrics, on two threads
// of its own, from construction to destruction.
class MetricsEndpoint {
 public:
  // `address_port` like "127.0.0.1:9464"; port 0 takes any free one. `snapshot` is called for each
  // reading, on a thread of the endpoint and by one at a time; a reading during which it throws
  // holds no metrics of the engine but quarro_up 0. Throws ExSGClientBase naming the address when
  // it cannot be listened on.
  MetricsEndpoint(const std::string& address_port, std::function<MetricsSnapshot()> snapshot);
  MetricsEndpoint(const MetricsEndpoint&) = delete;
  MetricsEndpoint& operator=(const MetricsEndpoint&) = delete;
  // `snapshot` is not called once it returned, which takes up to two seconds.
  ~MetricsEndpoint();

  // The TCP port listened on.
  int Port() const;

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace quarro::rpc
