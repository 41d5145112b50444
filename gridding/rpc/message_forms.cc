#include "gridding/rpc/message_forms.h"

#include <algorithm>
#include <utility>

#include "engine/exceptions.h"
#include "gridding/service/failures.h"

namespace quarro::rpc {

namespace {

template <typename Result, typename Member>
std::unique_ptr<Result> Make(Member Result::*member, Member value) {
  auto result = std::make_unique<Result>();
  (*result).*member = std::move(value);
  return result;
}

v1::LineAdded ToMessage(const ResultLineAdded& line) {
  v1::LineAdded message;
  message.set_line_id(line.line_id);
  message.set_failed(line.failed);
  message.set_pings(line.pings);
  message.set_soundings_per_ping(line.soundings_per_ping);
  message.set_rejected_by_flag(line.rejected_by_flag);
  message.set_offered(line.offered);
  message.set_used(line.used);
  return message;
}

std::unique_ptr<SEBaseResult> FromMessage(const v1::LineAdded& message) {
  auto line = std::make_unique<ResultLineAdded>();
  line->line_id = message.line_id();
  line->failed = message.failed();
  line->pings = message.pings();
  line->soundings_per_ping = message.soundings_per_ping();
  line->rejected_by_flag = message.rejected_by_flag();
  line->offered = message.offered();
  line->used = message.used();
  return line;
}

v1::Statistics ToMessage(const ResultServStats& statistics) {
  v1::Statistics message;
  message.set_threads(statistics.threads);
  message.set_priority_queue_length(statistics.priority_queue_length);
  message.set_run_queue_length(statistics.run_queue_length);
  message.set_priority_queue_duration_s(statistics.priority_queue_duration_s);
  message.set_results_waiting(statistics.results_waiting);
  return message;
}

std::unique_ptr<SEBaseResult> FromMessage(const v1::Statistics& message) {
  auto statistics = std::make_unique<ResultServStats>();
  statistics->threads = message.threads();
  statistics->priority_queue_length = message.priority_queue_length();
  statistics->run_queue_length = message.run_queue_length();
  statistics->priority_queue_duration_s = message.priority_queue_duration_s();
  statistics->results_waiting = message.results_waiting();
  return statistics;
}

}  // namespace

std::string Utf8(const std::string& text) {
  std::string valid;
  valid.reserve(text.size());
  std::size_t i = 0;
  const auto continues = [&](std::size_t at) {
    return at < text.size() && (static_cast<unsigned char>(text[at]) & 0xc0U) == 0x80U;
  };
  while (i < text.size()) {
    const auto lead = static_cast<unsigned char>(text[i]);
    std::size_t length = 0;
    if (lead < 0x80U) length = 1;
    if (lead >= 0xc2U && lead < 0xe0U && continues(i + 1)) length = 2;
    if (lead >= 0xe0U && lead < 0xf0U && continues(i + 1) && continues(i + 2)) length = 3;
    if (lead >= 0xf0U && lead < 0xf5U && continues(i + 1) && continues(i + 2) && continues(i + 3)) {
      length = 4;
    }
    // Longer forms than needed, surrogates and values beyond the last character.
    const unsigned second = length >= 3 ? static_cast<unsigned char>(text[i + 1]) : 0U;
    if (length >= 3 && ((lead == 0xe0U && second < 0xa0U) || (lead == 0xedU && second > 0x9fU) ||
                        (lead == 0xf0U && second < 0x90U) || (lead == 0xf4U && second > 0x8fU))) {
      length = 0;
    }
    if (length == 0) {
      valid += '?';
      ++i;
      continue;
    }
    valid.append(text, i, length);
    i += length;
  }
  return valid;
}

v1::BoundingBox ToMessage(const SGBoundingBox& box) {
  v1::BoundingBox message;
  message.set_west(box.west());
  message.set_south(box.south());
  message.set_east(box.east());
  message.set_north(box.north());
  return message;
}

SGBoundingBox FromMessage(const v1::BoundingBox& box) {
  return {box.west(), box.south(), box.east(), box.north()};
}

std::string Printable(std::string text) {
  std::replace_if(
      text.begin(), text.end(),
      [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; }, '?');
  return text;
}

v1::Failure ToMessage(const std::exception_ptr& failure) {
  v1::Failure message;
  message.set_reason(Utf8(service::ReasonOf(failure)));
  try {
    std::rethrow_exception(service::AsEngineFailure(failure));
  } catch (const ExSGCNoGrid&) {
    message.set_kind(v1::Failure::NO_GRID);
  } catch (const ExSGCServerResources&) {
    message.set_kind(v1::Failure::OUT_OF_ROOM);
  } catch (...) {
    message.set_kind(v1::Failure::FAILED);
  }
  return message;
}

std::exception_ptr FromMessage(const v1::Failure& failure) {
  switch (failure.kind()) {
    case v1::Failure::NO_GRID:
      return std::make_exception_ptr(ExSGCNoGrid(failure.reason()));
    case v1::Failure::OUT_OF_ROOM:
      return std::make_exception_ptr(ExSGCServerResources(failure.reason()));
    default:
      return std::make_exception_ptr(ExSGClientBase(failure.reason()));
  }
}

bool PutResult(const SEBaseResult& result, v1::Completion& completion) {
  if (const auto* loaded = dynamic_cast<const ResultGridLoaded*>(&result)) {
    *completion.mutable_grid_loaded() = ToMessage(loaded->bounds);
  } else if (dynamic_cast<const ResultPosAck*>(&result) != nullptr) {
    completion.mutable_done();
  } else if (const auto* box = dynamic_cast<const ResultBBox*>(&result)) {
    *completion.mutable_bounds() = ToMessage(box->bounds);
  } else if (const auto* trace = dynamic_cast<const ResultDebug*>(&result)) {
    completion.mutable_trace()->set_output_file(Utf8(trace->output_file));
  } else if (const auto* line = dynamic_cast<const ResultLineAdded*>(&result)) {
    *completion.mutable_line_added() = ToMessage(*line);
  } else if (const auto* query = dynamic_cast<const ResultQuery*>(&result)) {
    v1::QueryAnswer& answer = *completion.mutable_answer();
    for (const std::string& text : query->lines) answer.add_lines(Utf8(text));
  } else if (const auto* statistics = dynamic_cast<const ResultServStats*>(&result)) {
    *completion.mutable_statistics() = ToMessage(*statistics);
  } else {
    return false;
  }
  return true;
}

std::unique_ptr<SEBaseResult> TakeResult(const v1::Completion& completion) {
  switch (completion.outcome_case()) {
    case v1::Completion::kFailure:
      std::rethrow_exception(FromMessage(completion.failure()));
    case v1::Completion::kDone:
      return std::make_unique<ResultPosAck>();
    case v1::Completion::kGridLoaded:
      return Make<ResultGridLoaded>(&ResultGridLoaded::bounds,
                                    FromMessage(completion.grid_loaded()));
    case v1::Completion::kBounds:
      return Make<ResultBBox>(&ResultBBox::bounds, FromMessage(completion.bounds()));
    case v1::Completion::kTrace:
      return Make<ResultDebug>(&ResultDebug::output_file, completion.trace().output_file());
    case v1::Completion::kLineAdded:
      return FromMessage(completion.line_added());
    case v1::Completion::kStatistics:
      return FromMessage(completion.statistics());
    case v1::Completion::kAnswer: {
      auto answer = std::make_unique<ResultQuery>();
      answer->lines.assign(completion.answer().lines().begin(), completion.answer().lines().end());
      return answer;
    }
    default:
      throw ExSGClientBase("the engine completed a request without a result");
  }
}

}  // namespace quarro::rpc
