// The grid thread's jobs, for the two files that implement GridSession.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "gridding/service/grid_session.h"
#include "gridding/service/line_feed.h"

namespace quarro::service {

struct GridSession::LineJob {
  RequestPtr request;
  std::string file_name;
  std::uint32_t line_id = 0;
  bool rendezvous = false;
  // Of the grid thread; reads ahead while the line before is in work.
  std::unique_ptr<LineFeed> feed;
  std::shared_ptr<LineJob> next;  // the line submitted directly after this one
};

struct GridSession::OpenGridJob {
  RequestPtr request;
  std::string name;
  std::optional<store::GridParameters> parameters;  // none: the grid exists
};

}  // namespace quarro::service
