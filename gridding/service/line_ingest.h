// One survey line into the grid, in one transaction.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "gridding/service/engine_config.h"
#include "gridding/service/job_queue.h"
#include "gridding/service/line_feed.h"
#include "gridding/service/open_grid.h"
#include "gridding/service/traces.h"
#include "gridding/survey/soundings.h"

namespace quarro::service {

// Grids the line that `feed` reads and commits it; `file_name` is the name as it was submitted.
// Gives what became of its beams. The first line of which a geographic sounding is used settles the
// grid's zone; `zone_seen` is told the line's zone after each chunk, 0 as long as it has none. A
// line that was cancelled, is a duplicate or fails leaves the grid as it was and throws
// ExSGClientBase or LineError with the reason. The grid thread.
survey::BeamAccount IngestLine(OpenGrid& grid, const EngineConfig& config, const TraceList& traces,
                               const std::string& file_name, LineFeed& feed,
                               const CancelFlag& cancelled,
                               const std::function<void(int utm_zone)>& zone_seen);

// The zone in which the soundings of a line submitted now are placed, 0 when the line decides.
int ZoneForLines(const OpenGrid& grid, const EngineConfig& config);

// "read 1000 beams of 10 pings: 20 flagged, 5 refused (5 beyond the grid's projection zone), 975
// offered, 975 used".
std::string AccountText(const survey::BeamAccount& account);

}  // namespace quarro::service
