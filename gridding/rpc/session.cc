// What a session does with requests and results; session_end.cc has its connection and its end.
#include "gridding/rpc/session.h"

#include <algorithm>

#include "engine/exceptions.h"
#include "gridding/rpc/message_forms.h"
#include "gridding/service/engine_log.h"
#include "slog/slog.h"

namespace quarro::rpc {

using service::IsGridResult;
using service::RequestKind;

namespace {

constexpr std::size_t kRepliesKept = 1024;
constexpr std::size_t kLinesRemembered = 4;  // the one in work, the one read ahead, and two before
constexpr std::uint32_t kGreatestLogLevel = 7;
// Longer answers fail: clients take messages of 16 MiB.
constexpr std::size_t kLongestEvent = std::size_t{8} << 20U;
// Of events that the client has not acknowledged; it is asked to every 128 of them.
constexpr std::uint64_t kMostEventBytes = std::uint64_t{1} << 30U;

bool RunsInOrder(RequestKind kind) {
  return kind == RequestKind::kLine || kind == RequestKind::kOpenGrid ||
         kind == RequestKind::kDropGrid || kind == RequestKind::kSynchGrid ||
         kind == RequestKind::kRefineGrid;
}

void ReplaceAll(std::string& text, const std::string& what, const std::string& by) {
  for (std::size_t at = text.find(what); at != std::string::npos;
       at = text.find(what, at + by.size())) {
    text.replace(at, what.size(), by);
  }
}

}  // namespace

Session::Session(std::uint64_t number, std::string peer, std::string identity, SessionHost& host)
    : number_(number), peer_(std::move(peer)), identity_(std::move(identity)), host_(host) {
  // Every thread of this session's engine logs for its client.
  const service::EngineLogScope scope(std::make_shared<const service::EngineLogSink>(
      [this](int level, const std::string& message) { Log(level, message); }));
  delivery_ = std::make_unique<service::Delivery>();
  grid_session_ = std::make_unique<service::GridSession>(OwnConfig(host.engine), *delivery_);
}

service::EngineConfig Session::OwnConfig(const service::EngineConfig& config) {
  service::EngineConfig own = config;
  own.find_line = [this](const std::string& name) { return FindLine(name); };
  own.holder_of = [this](const std::string& grid) { return host_.holder_of(grid, number_); };
  return own;
}

std::string Session::FindLine(const std::string& file_name) {
  std::string path = host_.survey_directories.Resolve(file_name);
  const std::lock_guard lock(mutex_);
  opened_as_.emplace_back(path, file_name);
  if (opened_as_.size() > kLinesRemembered) opened_as_.pop_front();
  return path;
}

// A text of the engine as the client is told it: files by the names that it gave them.
std::string Session::AsTold(std::string text) const {
  const std::lock_guard lock(mutex_);
  for (const auto& [path, name] : opened_as_) {
    if (path != name) ReplaceAll(text, path, name);
  }
  return text;
}

void Session::Log(int level, const std::string& message) {
  const std::string text = AsTold(message);
  Slog log("server");
  log << SlogLevel(level);
  log() << "session " << number_ << ": " << Printable(text) << endmsg;
  if (level < static_cast<int>(log_level_.load())) return;
  v1::Event event;
  event.mutable_log()->set_level(level);
  event.mutable_log()->set_text(Utf8(text));
  log_.Append(std::move(event));
}

bool Session::SetLogLevel(std::uint32_t level) {
  if (level > kGreatestLogLevel) return false;
  log_level_ = level;
  return true;
}

v1::RequestReply Session::Carry(std::uint64_t request_id, const Operation& operation,
                                const Ask& ask) {
  const std::lock_guard lock(request_mutex_);
  if (request_id <= last_request_) {
    const auto sent = std::find_if(replies_.begin(), replies_.end(),
                                   [&](const auto& reply) { return reply.first == request_id; });
    if (sent != replies_.end()) return sent->second;
    v1::RequestReply reply;
    reply.mutable_refused()->set_reason("request " + std::to_string(request_id) +
                                        " comes after later ones and was not carried out");
    return reply;
  }
  last_request_ = request_id;
  replies_.emplace_back(request_id, CarryNew(request_id, operation, ask));
  if (replies_.size() > kRepliesKept) replies_.pop_front();
  return replies_.back().second;
}

v1::RequestReply Session::CarryNew(std::uint64_t request_id, const Operation& operation,
                                   const Ask& ask) {
  v1::RequestReply reply;
  {
    const std::lock_guard lock(mutex_);
    if (ending_) {
      reply.mutable_refused()->set_reason(end_reason_.empty() ? "the session is closed"
                                                              : end_reason_);
      return reply;
    }
  }
  try {
    CheckLimits(operation.kind);
    {
      // Before asking, since the request may be completed before that returns.
      const std::lock_guard lock(mutex_);
      ++(RunsInOrder(operation.kind) ? lines_and_barriers_ : other_requests_);
      if (operation.kind == RequestKind::kOpenGrid) grids_to_open_.insert(operation.grid);
    }
    try {
      ask(*grid_session_, [this, request_id, operation](const SEResultToken& token) {
        Complete(request_id, operation, token);
      });
    } catch (...) {
      CountDown(operation);
      throw;
    }
    if (operation.kind == RequestKind::kLine) ++host_.lines.accepted;
    reply.mutable_accepted();
  } catch (...) {
    *reply.mutable_refused() = ToMessage(std::current_exception());
  }
  return reply;
}

void Session::CheckLimits(RequestKind kind) const {
  const Load load = GetLoad();
  if (load.run_queue_length + load.priority_queue_length >= host_.max_queue_length) {
    throw ExSGCServerResources("the session has " + std::to_string(host_.max_queue_length) +
                               " requests waiting, as many as MaxQueueLength of section Network "
                               "allows: go on when some are done");
  }
  if (log_.bytes() > kMostEventBytes) {
    throw ExSGCServerResources(
        "the client has not acknowledged " + std::to_string(log_.bytes() >> 20U) +
        " MiB of events, more than the engine keeps: read the stream of completions");
  }
  if (!IsGridResult(kind)) return;
  if (load.results_waiting >= host_.max_waiting_results) {
    throw ExSGCServerResources("the session has " + std::to_string(load.results_waiting) +
                               " results waiting, as many as MaxWaitingResults of section Network "
                               "allows: fetch or purge some");
  }
  if (load.result_bytes >= host_.max_result_bytes) {
    throw ExSGCServerResources("the results that wait in the session take " +
                               std::to_string(load.result_bytes >> 20U) +
                               " MiB, as much as MaxResultPoolMiB of section Network allows: fetch "
                               "or purge some");
  }
}

// On a thread of call-backs.
void Session::Complete(std::uint64_t request_id, const Operation& operation,
                       const SEResultToken& token) {
  v1::Event event;
  v1::Completion& completion = *event.mutable_completion();
  completion.set_request_id(request_id);
  completion.set_object_size(token.object_size);
  completion.set_execution_lag_s(token.execution_lag_s);
  completion.set_execution_duration_s(token.execution_duration_s);
  if (IsGridResult(operation.kind)) {
    CountDown(operation);
    CompleteHeld(request_id, token, std::move(event));
    return;
  }
  std::unique_ptr<SEBaseResult> result;
  try {
    result = delivery_->pool().Take(token.uid);
    if (!PutResult(*result, completion)) {
      throw ExSGClientBase("a result of this class cannot be sent");
    }
    if (completion.ByteSizeLong() > kLongestEvent) {
      throw ExSGCServerResources("the answer is longer than a message may be");
    }
  } catch (...) {
    *completion.mutable_failure() = ToMessage(std::current_exception());
    completion.mutable_failure()->set_reason(AsTold(completion.failure().reason()));
  }
  NoteGrid(operation, result.get());
  if (operation.kind == RequestKind::kLine) CountLine(result.get());
  CountDown(operation);
  log_.Append(std::move(event));
}

void Session::CompleteHeld(std::uint64_t request_id, const SEResultToken& token, v1::Event event) {
  event.mutable_completion()->mutable_held()->set_result(token.uid);
  if (GetLoad().result_bytes > host_.max_result_bytes) {
    const ExSGCServerResources failure("the result found no room: those that wait may take " +
                                       std::to_string(host_.max_result_bytes >> 20U) +
                                       " MiB together (MaxResultPoolMiB of section Network)");
    delivery_->pool().Replace(token.uid, service::Failure(std::make_exception_ptr(failure)));
  }
  {
    const std::lock_guard lock(mutex_);
    announced_.insert(request_id);
  }
  log_.Append(std::move(event));
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return announced_.count(request_id) == 0 || ending_; });
  announced_.erase(request_id);
}

void Session::AnnouncementDone(std::uint64_t request_id) {
  {
    const std::lock_guard lock(mutex_);
    announced_.erase(request_id);
  }
  changed_.notify_all();
}

void Session::NoteGrid(const Operation& operation, const SEBaseResult* result) {
  const std::lock_guard lock(mutex_);
  if (operation.kind == RequestKind::kDropGrid && result != nullptr) grid_.clear();
  if (operation.kind == RequestKind::kOpenGrid && result != nullptr) grid_ = operation.grid;
}

// The request is completed, or was refused after all.
void Session::CountDown(const Operation& operation) {
  const std::lock_guard lock(mutex_);
  --(RunsInOrder(operation.kind) ? lines_and_barriers_ : other_requests_);
  if (operation.kind != RequestKind::kOpenGrid) return;
  grids_to_open_.erase(grids_to_open_.find(operation.grid));
}

void Session::CountLine(const SEBaseResult* result) {
  const auto* line = dynamic_cast<const ResultLineAdded*>(result);
  if (line == nullptr || line->failed != 0) {
    ++host_.lines.failed;
    return;
  }
  ++host_.lines.completed;
  host_.lines.soundings_used += line->used;
}

Session::Held Session::Fetch(std::uint32_t result) {
  const std::lock_guard lock(mutex_);
  const auto found = held_.find(result);
  if (found != held_.end()) return found->second.first;
  const auto bytes = delivery_->pool().BytesOf(result);
  if (!bytes) {
    throw ExSGClientBase("no result waits under the token " + std::to_string(result));
  }
  Held held;
  try {
    held.result = delivery_->pool().Take(result);
  } catch (...) {
    held.failure.emplace(std::current_exception());
  }
  held_[result] = {held, held.result ? *bytes : 0};
  return held;
}

void Session::Release(std::uint32_t result) {
  Held released;  // destroyed without the lock
  const std::lock_guard lock(mutex_);
  const auto found = held_.find(result);
  if (found == held_.end()) return;
  released = std::move(found->second.first);
  held_.erase(found);
}

bool Session::HasGrid(const std::string& name) const {
  const std::lock_guard lock(mutex_);
  return !ended_ && (grid_ == name || grids_to_open_.count(name) != 0);
}

Session::Load Session::GetLoad() const {
  Load load;
  load.results_waiting = delivery_->pool().size();
  load.result_bytes = delivery_->pool().bytes();
  const std::lock_guard lock(mutex_);
  load.run_queue_length = lines_and_barriers_;
  load.priority_queue_length = other_requests_;
  load.results_waiting += held_.size();
  for (const auto& [result, held] : held_) load.result_bytes += held.second;
  return load;
}

}  // namespace quarro::rpc
