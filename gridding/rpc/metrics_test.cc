#include "gridding/rpc/metrics.h"

#include <chrono>
#include <iterator>
#include <stdexcept>
#include <string>

#include <boost/asio/ip/tcp.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/exceptions.h"

namespace quarro::rpc {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

// What an HTTP client reads.
std::string Read(int port, const std::string& path = "/metrics") {
  boost::asio::ip::tcp::iostream stream;
  stream.expires_after(std::chrono::seconds(20));
  stream.connect("127.0.0.1", std::to_string(port));
  stream << "GET " << path << " HTTP/1.0\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n"
         << std::flush;
  return {std::istreambuf_iterator<char>(stream), {}};
}

MetricsSnapshot Figures() {
  return {.lines_accepted = 12,
          .lines_completed = 9,
          .lines_failed = 1,
          .soundings_used = 7'000'000'123,
          .run_queue_length = 2,
          .priority_queue_length = 3,
          .results_waiting = 4,
          .result_bytes = 5'000'000'001,
          .sessions = 6,
          .store_bytes = 8'000'000'000};
}

TEST(Metrics, EveryFigureIsServedUnderItsName) {
  const MetricsEndpoint endpoint("127.0.0.1:0", Figures);
  const std::string text = Read(endpoint.Port());
  EXPECT_THAT(text, HasSubstr("200 OK"));
  for (const char* line :
       {"# HELP quarro_up ", "# TYPE quarro_up gauge\nquarro_up 1\n",
        "# TYPE quarro_lines_accepted_total counter\nquarro_lines_accepted_total 12\n",
        "# TYPE quarro_lines_completed_total counter\nquarro_lines_completed_total 9\n",
        "# TYPE quarro_lines_failed_total counter\nquarro_lines_failed_total 1\n",
        "# TYPE quarro_soundings_used_total counter\nquarro_soundings_used_total 7000000123\n",
        "# TYPE quarro_run_queue_requests gauge\nquarro_run_queue_requests 2\n",
        "# TYPE quarro_priority_queue_requests gauge\nquarro_priority_queue_requests 3\n",
        "# TYPE quarro_results_waiting gauge\nquarro_results_waiting 4\n",
        "# TYPE quarro_result_bytes gauge\nquarro_result_bytes 5000000001\n",
        "# TYPE quarro_sessions gauge\nquarro_sessions 6\n",
        "# TYPE quarro_store_bytes gauge\nquarro_store_bytes 8000000000\n"}) {
    EXPECT_THAT(text, HasSubstr(line));
  }
}

TEST(Metrics, EachReadingAsksAnew) {
  std::uint64_t lines = 0;
  const MetricsEndpoint endpoint("127.0.0.1:0", [&] {
    MetricsSnapshot snapshot;
    snapshot.lines_accepted = ++lines;
    return snapshot;
  });
  EXPECT_THAT(Read(endpoint.Port()), HasSubstr("quarro_lines_accepted_total 1\n"));
  EXPECT_THAT(Read(endpoint.Port()), HasSubstr("quarro_lines_accepted_total 2\n"));
}

TEST(Metrics, AnEngineThatCannotTellIsDown) {
  const MetricsEndpoint endpoint("127.0.0.1:0",
                                 []() -> MetricsSnapshot { throw std::runtime_error("no"); });
  const std::string text = Read(endpoint.Port());
  EXPECT_THAT(text, HasSubstr("quarro_up 0\n"));
  EXPECT_THAT(text, Not(HasSubstr("quarro_sessions")));
}

TEST(Metrics, NoFileOfTheMachineIsServed) {
  const MetricsEndpoint endpoint("127.0.0.1:0", Figures);
  for (const char* path : {"/", "/etc/passwd", "/../etc/passwd", "/metrics/../../etc/passwd"}) {
    EXPECT_THAT(Read(endpoint.Port(), path), Not(HasSubstr("root:"))) << path;
    EXPECT_THAT(Read(endpoint.Port(), path), Not(HasSubstr("200 OK"))) << path;
  }
}

TEST(Metrics, AnAddressInUseOrUnknownIsNamedWithTheRemedy) {
  const MetricsEndpoint first("127.0.0.1:0", Figures);
  for (const std::string& address :
       {"127.0.0.1:" + std::to_string(first.Port()), std::string("nonsense"),
        std::string("203.0.113.1:9464"), std::string()}) {
    try {
      const MetricsEndpoint second(address, Figures);
      FAIL() << address;
    } catch (const ExSGClientBase& failure) {
      EXPECT_THAT(failure.what(), HasSubstr("cannot serve metrics on \"" + address + "\""));
      EXPECT_THAT(failure.what(), HasSubstr("parameter MetricsAddress"));
    }
  }
}

TEST(Metrics, NobodyIsAskedOnceTheEndpointIsGone) {
  int asked = 0;
  int port = 0;
  {
    const MetricsEndpoint endpoint("127.0.0.1:0", [&] {
      ++asked;
      return MetricsSnapshot();
    });
    port = endpoint.Port();
    Read(port);
  }
  EXPECT_EQ(asked, 1);
  EXPECT_THAT(Read(port), Not(HasSubstr("200 OK")));
}

}  // namespace
}  // namespace quarro::rpc
