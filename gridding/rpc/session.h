// One client's session at the server: its grid, its requests, and the events that tell of them.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <utility>

#include "gridding/rpc/completion_log.h"
#include "gridding/rpc/quarro_v1.pb.h"
#include "gridding/rpc/survey_directories.h"
#include "gridding/service/delivery.h"
#include "gridding/service/engine_config.h"
#include "gridding/service/failures.h"
#include "gridding/service/grid_session.h"

namespace quarro::rpc {

// Counted over all sessions since the server came up.
struct LineCounters {
  std::atomic<std::uint64_t> accepted = 0;
  std::atomic<std::uint64_t> completed = 0;
  std::atomic<std::uint64_t> failed = 0;
  std::atomic<std::uint64_t> soundings_used = 0;
};

// What all sessions of a server have in common; constant while there are sessions.
struct SessionHost {
  service::EngineConfig engine;
  SurveyDirectories survey_directories{""};
  std::uint32_t max_queue_length = 0;
  std::uint32_t max_waiting_results = 0;
  std::uint64_t max_result_bytes = 0;
  // Who has a grid open: "the client at 10.0.0.7:5010", empty when none of the sessions but the one
  // numbered `asking` has.
  std::function<std::string(const std::string& grid, std::uint64_t asking)> holder_of;
  LineCounters lines;
};

// Thread-safe. A request is carried out once however often it is sent. The call-back of a result
// that is to be fetched waits, as one in the client's process would, until the client has done with
// the announcement; so results do not pile up faster than the client takes them.
class Session {
 public:
  using Clock = std::chrono::steady_clock;

  // `number` and `peer` name it in the log; `identity` is what its client's certificate tells.
  // Throws ExSGClientBase when the engine cannot work.
  Session(std::uint64_t number, std::string peer, std::string identity, SessionHost& host);
  // Ends.
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  struct Operation {
    service::RequestKind kind;
    std::string grid;  // the name of the one to open
  };
  // Asks the grid session for it, which may refuse by throwing.
  using Ask =
      std::function<void(service::GridSession& grid_session, const ResultCallback& on_done)>;
  v1::RequestReply Carry(std::uint64_t request_id, const Operation& operation, const Ask& ask);

  // What a result number stands for, kept until it is released.
  struct Held {
    std::shared_ptr<const SEBaseResult> result;
    std::optional<service::Failure> failure;  // when there is no result
  };
  Held Fetch(std::uint32_t result);
  void Release(std::uint32_t result);
  void AnnouncementDone(std::uint64_t request_id);
  bool SetLogLevel(std::uint32_t level);

  CompletionLog& log() { return log_; }
  // Claims the stream of events for one caller; the caller before sees that it lost its claim.
  std::uint64_t BeginStream();
  bool HasStream(std::uint64_t claim) const;
  void EndStream(std::uint64_t claim);

  // Takes no more requests, carries out what was accepted, and closes the grid. With `at_once` what
  // has not begun fails and what has ends early. Returns at once; `reason`, a literal, is told to
  // the client, and to one who asks from now on. Only the first call counts, but a later one may
  // hurry it.
  void BeginEnd(const char* reason, bool at_once);
  bool Ended() const;
  // False when it is still not ended then.
  bool WaitUntilEnded(Clock::time_point until) const;
  // True when its client has been away for longer than this; an ended session has no need of it.
  bool Abandoned(Clock::duration allowance) const;
  // How long a client that was there and is away may still come back; none for one that is there.
  std::optional<Clock::duration> TimeToComeBack(Clock::duration allowance) const;

  std::uint64_t number() const { return number_; }
  const std::string& peer() const { return peer_; }
  const std::string& identity() const { return identity_; }
  bool HasGrid(const std::string& name) const;
  bool Ending() const;

  struct Load {
    std::uint64_t run_queue_length = 0;
    std::uint64_t priority_queue_length = 0;
    std::uint64_t results_waiting = 0;
    std::uint64_t result_bytes = 0;
  };
  Load GetLoad() const;

 private:
  service::EngineConfig OwnConfig(const service::EngineConfig& config);
  v1::RequestReply CarryNew(std::uint64_t request_id, const Operation& operation, const Ask& ask);
  void CountDown(const Operation& operation);
  void CheckLimits(service::RequestKind kind) const;
  void Complete(std::uint64_t request_id, const Operation& operation, const SEResultToken& token);
  void CompleteHeld(std::uint64_t request_id, const SEResultToken& token, v1::Event event);
  void NoteGrid(const Operation& operation, const SEBaseResult* result);
  void CountLine(const SEBaseResult* result);
  void Log(int level, const std::string& message);
  std::string FindLine(const std::string& file_name);
  std::string AsTold(std::string text) const;

  const std::uint64_t number_;
  const std::string peer_;
  const std::string identity_;
  SessionHost& host_;
  CompletionLog log_;
  std::atomic<std::uint32_t> log_level_ = 0;

  std::mutex request_mutex_;  // one request at a time; guards the next two
  std::uint64_t last_request_ = 0;
  std::deque<std::pair<std::uint64_t, v1::RequestReply>> replies_;  // to late requests

  mutable std::mutex mutex_;  // guards all below but the last three
  mutable std::condition_variable changed_;
  std::set<std::uint64_t> announced_;  // to the client, which has not done with it
  std::map<std::uint32_t, std::pair<Held, std::uint64_t>> held_;  // with its bytes
  std::uint64_t lines_and_barriers_ = 0;                          // not yet completed
  std::uint64_t other_requests_ = 0;                              // not yet completed
  std::string grid_;
  std::multiset<std::string> grids_to_open_;
  std::deque<std::pair<std::string, std::string>> opened_as_;  // path and name of late lines
  std::uint64_t stream_claim_ = 0;
  bool connected_ = false;
  Clock::time_point away_since_ = Clock::now();
  bool ending_ = false;
  bool ended_ = false;
  std::string end_reason_;

  std::unique_ptr<service::Delivery> delivery_;  // constant after construction, as the next
  std::unique_ptr<service::GridSession> grid_session_;
  std::thread finisher_;  // guarded by request_mutex_
};

}  // namespace quarro::rpc
