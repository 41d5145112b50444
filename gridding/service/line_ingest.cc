#include "gridding/service/line_ingest.h"

#include <sstream>

#include "gridding/service/engine_log.h"
#include "gridding/service/touched_cells.h"
#include "support/exceptions.h"

namespace quarro::service {

namespace {

// Of the engine's memory, what soundings that wait for the store may take.
constexpr std::uint64_t kMemoryShare = 4;

void RefuseDuplicate(OpenGrid& grid, const LineFeed::FileIdentity& identity) {
  const auto first = grid.store->FindLine(identity.digest);
  if (!first) return;
  throw ExSGClientBase("its bytes are those of line " + std::to_string(first->sequence) + " (\"" +
                       first->name +
                       "\"), which the grid holds already; to take it again, set "
                       "AllowDuplicateLines of section Engine to true");
}

}  // namespace

int ZoneForLines(const OpenGrid& grid, const EngineConfig& config) {
  return grid.utm_zone != 0 ? grid.utm_zone : config.utm_zone;
}

survey::BeamAccount IngestLine(OpenGrid& grid, const EngineConfig& config, const TraceList& traces,
                               const std::string& file_name, LineFeed& feed,
                               const CancelFlag& cancelled,
                               const std::function<void(int utm_zone)>& zone_seen) {
  ThrowIfCancelled(cancelled);
  const LineFeed::FileIdentity identity = feed.Identity(cancelled);
  if (!config.allow_duplicate_lines) RefuseDuplicate(grid, identity);

  const auto writer = grid.store->BeginLine();
  TouchedCells cells(
      *writer, grid.settings, traces, {.sequence = grid.next_line, .name = file_name},
      {.threads = config.threads, .memory_bytes = config.memory_bytes / kMemoryShare});
  core::BinnedChunk chunk;
  while (feed.Next(chunk)) {
    ThrowIfCancelled(cancelled);
    zone_seen(feed.ZoneSoFar());
    cells.Add(chunk);
  }
  cells.Finish();

  const LineFeed::Summary& summary = feed.summary();
  survey::BeamAccount account = summary.account;
  account.used = cells.soundings();
  // A zone in which the grid has no sounding would only keep later lines out.
  const bool settles_zone = grid.utm_zone == 0 && summary.utm_zone != 0 && account.used > 0;
  if (settles_zone) writer->PutSetting(kZoneSetting, std::to_string(summary.utm_zone));
  ThrowIfCancelled(cancelled);
  const std::uint32_t sequence = writer->Commit({.name = file_name,
                                                 .digest = identity.digest,
                                                 .file_bytes = identity.bytes,
                                                 .soundings = account.used,
                                                 .account = AccountText(account)});
  grid.next_line = sequence + 1;
  if (settles_zone) {
    grid.utm_zone = summary.utm_zone;
    LogEngine(kLogStep, "grid \"" + grid.store->Name() + "\" is in UTM zone " +
                            std::to_string(grid.utm_zone) + " from its line \"" + file_name + "\"");
  }
  return account;
}

std::string AccountText(const survey::BeamAccount& account) {
  std::ostringstream text;
  text.imbue(std::locale::classic());
  text << "read " << account.read << " beams of " << account.pings << " pings: " << account.flagged
       << " flagged, " << account.Refused() << " refused";
  const char* separator = " (";
  for (std::size_t reason = 0; reason < survey::kRefusals; ++reason) {
    if (account.refused[reason] == 0) continue;
    text << separator << account.refused[reason] << ' '
         << survey::RefusalText(static_cast<survey::Refusal>(reason));
    separator = ", ";
  }
  if (account.Refused() != 0) text << ')';
  text << ", " << account.offered << " offered, " << account.used << " used";
  return text.str();
}

}  // namespace quarro::service
