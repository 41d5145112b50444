// One survey line on its way from its file to sorted soundings, on a thread of its own.
#pragma once

#include <array>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "gridding/core/binning.h"
#include "gridding/core/lattice.h"
#include "gridding/service/failures.h"
#include "gridding/service/job_queue.h"
#include "gridding/survey/file_bytes.h"
#include "gridding/survey/georeference.h"
#include "gridding/survey/line_reader.h"
#include "gridding/survey/soundings.h"

namespace quarro::service {

// Digests, reads, places and sorts a line into cells, some chunks ahead of what is asked for. Its
// thread begins at once and ends with the file or the object. One thread at a time calls.
class LineFeed {
 public:
  // `utm_zone` 0: the zone of the line's first ping that can give a sounding.
  LineFeed(std::string path, const core::Lattice& lattice, int utm_zone,
           const survey::UncertaintyModel& model);
  // Stops reading.
  ~LineFeed();
  LineFeed(const LineFeed&) = delete;
  LineFeed& operator=(const LineFeed&) = delete;

  struct FileIdentity {
    std::array<std::byte, 16> digest{};
    std::uint64_t bytes = 0;
  };
  // Waits until the file has been read once. Throws what stopped that, and ExSGClientBase soon
  // after the flag is set.
  FileIdentity Identity(const CancelFlag& cancelled);

  // The next chunk, or false at the end. Throws what stopped the reading, and a LineError in place
  // of the end when the file has changed since its digest was begun.
  bool Next(core::BinnedChunk& chunk);

  // The zone that the constructor was given.
  int asked_zone() const { return asked_zone_; }
  // In which what was read so far is placed, which may be ahead of Next; 0 as long as none has a
  // zone.
  int ZoneSoFar();

  // Valid after Next gave false. `used` is left to the caller; soundings too uncertain for their
  // cell are among the refused, so that read = flagged + refused + offered.
  struct Summary {
    survey::BeamAccount account;
    std::string remark;
    // In which the soundings were placed; 0 for a line of projected soundings, and for one that
    // gives none and was to decide.
    int utm_zone = 0;
  };
  const Summary& summary() const { return summary_; }

 private:
  struct Stopped {};
  void Run();
  void ReadAll();
  void ReadIdentity(const survey::FileBytes& file);
  void ReadSoundings(survey::LineReader& reader);
  core::BinnedChunk TakeSpare();
  void Hand(core::BinnedChunk chunk);

  const std::string path_;
  const core::Lattice lattice_;
  const int asked_zone_;
  const survey::UncertaintyModel model_;
  Summary summary_;  // of the feed's thread until Next gave false

  std::mutex mutex_;  // guards all below but the thread
  std::condition_variable changed_;
  bool identified_ = false;
  FileIdentity identity_;
  std::deque<core::BinnedChunk> ready_;
  std::vector<core::BinnedChunk> spare_;  // their memory is used again
  int zone_so_far_ = 0;
  bool ended_ = false;
  std::optional<Failure> failure_;
  bool stop_ = false;
  std::thread thread_;
};

}  // namespace quarro::service
