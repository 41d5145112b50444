// The call-back of survey lines: takes the line off the table and posts its account.
#include <iomanip>
#include <sstream>
#include <string>

#include "cli/command_state.h"
#include "engine/sg_client_base.h"
#include "slog/slog.h"

namespace quarro {
namespace {

// The soundings of a line; the product wraps at 32 bits.
float SoundingCount(const ResultLineAdded& line) {
  const std::uint32_t product = line.pings * line.soundings_per_ping;
  return static_cast<float>(product);
}

float PercentOf(std::uint32_t count, float total) {
  if (!(total > 0.0F)) {
    return 0.0F;
  }
  const double part = static_cast<float>(count);
  return static_cast<float>(part * 100.0 / static_cast<double>(total));
}

bool HasStatistics(const ResultLineAdded& line) {
  return line.pings != 0 || line.soundings_per_ping != 0 || line.rejected_by_flag != 0 ||
         line.offered != 0 || line.used != 0;
}

std::string AccountOf(const ResultLineAdded& line, const std::string& name,
                      const PendingTable& pending_lines) {
  std::ostringstream text;
  text << "line " << line.line_id << " (" << name << ") ";
  if (line.failed != 0) {
    text << "failed to complete.";
  } else if (!HasStatistics(line)) {
    text << "completed in background (no statistics available).";
  } else {
    const float total = SoundingCount(line);
    text << std::fixed << std::setprecision(2) << "completed [" << line.pings << " pings of "
         << line.soundings_per_ping << " soundings, " << PercentOf(line.rejected_by_flag, total)
         << "% flagged at input, " << PercentOf(line.offered, total) << "% to grid, "
         << PercentOf(line.used, total) << "% accepted] (" << pending_lines.Count()
         << " lines outstanding)";
  }
  return text.str();
}

}  // namespace

void CommandState::OnLineCompleted(const SEResultToken& token) {
  Slog child(&log);
  try {
    const auto line = FetchResult<ResultLineAdded>(*client, token);
    std::string name;
    if (!pending_lines.Take(line->line_id, name)) {
      child() << "error: received call-back for a non-existant line number!" << endmsg;
    }
    messages.PostMessage(AccountOf(*line, name, pending_lines));
  } catch (const ExSGCNoGrid&) {
    child() << "error: server reported no grid was available for line." << endmsg;
  } catch (const ExSGClientBase& failure) {
    child() << "error: unexpected exception getting result (" << failure.who() << ")." << endmsg;
  }
}

}  // namespace quarro
