// The record that all commands and call-backs share.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include "app/message_router.h"
#include "cli/guarded.h"
#include "cli/host_names.h"
#include "cli/pending_table.h"
#include "cli/rendezvous.h"
#include "engine/quarro_spec.h"
#include "engine/result_token.h"
#include "slog/slog.h"
#include "support/sg_bounding_box.h"

namespace quarro {

class MParams;
class Projection;
class SGClientBase;

// Members belong to the console thread, except those that say otherwise. Call-backs (the On...
// operations) run on threads of the engine library, several at once and in any order; they touch
// only members marked so, and make child channels of `log`. The state outlives every request.
class CommandState {
 public:
  // A BAG file could not be written; the reason has been logged.
  class bag_output_failed {};

  // The front end is not owned and outlives the state.
  CommandState(SGClientBase* front_end, const MParams& params);
  CommandState(const CommandState&) = delete;
  CommandState& operator=(const CommandState&) = delete;
  ~CommandState();

  bool Attached() const { return attached; }
  bool Debug() const { return debug_mode; }
  bool GridActive() const { return grid_active; }
  // Throws CommandProcessor::bad_command without a current grid.
  std::string GridName() const;
  // The record of the attached engine: that at `engine_index`, or the one last attached when a new
  // discovery left no engine there. Throws CommandProcessor::not_attached.
  const QuarroSpec& AttachedEngine() const;
  // The host name of the attached engine, its dotted address until or unless a name is found. The
  // first call for an address waits a moment for the lookup. Throws CommandProcessor::not_attached.
  std::string EngineHostName();

  // A file of `filelist` below the base directory.
  std::string PathOf(const std::string& file_name) const;

  // Appends a line to the history, of which the oldest line goes when it is full.
  void Remember(const std::string& line);

  // A call-back of this state in the form that the front end takes:
  // client->SynchGrid(state.CallBack(&CommandState::OnAcknowledged)).
  ResultCallback CallBack(void (CommandState::*member)(const SEResultToken&));

  // engine/
  void OnGridConstructed(const SEResultToken& token);
  void OnGridLoaded(const SEResultToken& token);
  void OnAcknowledged(const SEResultToken& token);
  void OnRefined(const SEResultToken& token);
  void OnLineCompleted(const SEResultToken& token);

  // results/
  void OnResolutionReady(const SEResultToken& token);
  void OnDepthReady(const SEResultToken& token);
  void OnDepthBagReady(const SEResultToken& token);
  void OnHyposReady(const SEResultToken& token);
  void OnBoundingBoxReply(const SEResultToken& token);
  void OnDebugSet(const SEResultToken& token);
  void OnPurged(const SEResultToken& token);
  void OnQueryReply(const SEResultToken& token);
  void OnServerStatistics(const SEResultToken& token);

  Rendezvous rendezvous;  // any thread
  SGClientBase* const client;
  std::vector<QuarroSpec> engines;  // found by the last discovery
  bool attached = false;
  bool debug_mode = false;
  bool grid_active = false;
  Guarded<std::string> grid_name;  // any thread; empty without a current grid
  std::int32_t engine_index = -1;  // of the attached engine in `engines`; -1 when none
  QuarroSpec last_attached;        // as `engines` held it when it was attached
  std::uint32_t next_line_id = 0;
  std::uint32_t next_result_number = 0;
  std::deque<std::string> filelist;  // survey-line files to commit
  std::string basedir;               // empty: not set
  Guarded<SGBoundingBox> bbox;       // any thread; all zeros: not set
  std::atomic<bool> reset_bbox_on_load = false;
  std::uint32_t history_length = 50;
  Guarded<std::shared_ptr<const Projection>> projection;  // any thread; null: not set
  std::deque<std::string> history;                        // oldest first
  bool sourcing = false;                                  // a command file is being read
  PendingTable pending_lines;                             // any thread; line id to file name
  PendingTable pending_results;                           // any thread; result number to file name
  MessageRouter messages;                                 // any thread may post
  Slog log{"comproc"};                                    // any thread makes child channels of it
  boost::posix_time::ptime interval_start{boost::posix_time::not_a_date_time};
  boost::posix_time::ptime interval_end{boost::posix_time::not_a_date_time};
  bool interval_active = false;
  const std::string bag_template;  // any thread; path of the BAG metadata template

 private:
  HostNames host_names_;
};

}  // namespace quarro
