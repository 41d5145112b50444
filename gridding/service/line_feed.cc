#include "gridding/service/line_feed.h"

#include <memory>
#include <optional>
#include <utility>

#include "gridding/survey/file_digest.h"

namespace quarro::service {

namespace {

constexpr std::size_t kChunksAhead = 4;
constexpr auto kTooUncertain = static_cast<std::size_t>(survey::Refusal::kUncertain);

// Bytes that changed may be of another digest than the one that was taken.
void RefuseChanged(const survey::FileBytes& file, const survey::FileStamp& now) {
  if (now == file.stamp()) return;
  throw survey::LineError("\"" + file.path() +
                          "\" was changed while it was read: submit it again when it is complete");
}

}  // namespace

LineFeed::LineFeed(std::string path, const core::Lattice& lattice, int utm_zone,
                   const survey::UncertaintyModel& model)
    : path_(std::move(path)), lattice_(lattice), asked_zone_(utm_zone), model_(model) {
  summary_.utm_zone = utm_zone;
  thread_ = std::thread([this] { Run(); });
}

LineFeed::~LineFeed() {
  {
    const std::lock_guard lock(mutex_);
    stop_ = true;
  }
  changed_.notify_all();
  thread_.join();
}

LineFeed::FileIdentity LineFeed::Identity(const CancelFlag& cancelled) {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return identified_ || ended_ || cancelled.IsSet(); });
  ThrowIfCancelled(cancelled);
  if (!identified_) failure_->Throw();
  return identity_;
}

bool LineFeed::Next(core::BinnedChunk& chunk) {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return !ready_.empty() || ended_; });
  if (ready_.empty()) {
    if (failure_) failure_->Throw();
    return false;
  }
  std::swap(chunk, ready_.front());
  spare_.push_back(std::move(ready_.front()));
  ready_.pop_front();
  lock.unlock();
  changed_.notify_all();
  return true;
}

int LineFeed::ZoneSoFar() {
  const std::lock_guard lock(mutex_);
  return zone_so_far_;
}

void LineFeed::Run() {
  std::optional<Failure> failure;
  try {
    ReadAll();
  } catch (const Stopped&) {
    failure.reset();
  } catch (...) {
    failure.emplace(std::current_exception());
  }
  {
    const std::lock_guard lock(mutex_);
    failure_ = std::move(failure);
    ended_ = true;
  }
  changed_.notify_all();
}

void LineFeed::ReadIdentity(const survey::FileBytes& file) {
  FileIdentity identity;
  identity.digest = survey::DigestOfFile(file, identity.bytes, [this] {
    {
      const std::lock_guard lock(mutex_);
      if (stop_) throw Stopped();
    }
    changed_.notify_all();  // who waits for the identity looks whether it is still wanted
  });
  {
    const std::lock_guard lock(mutex_);
    identity_ = identity;
    identified_ = true;
  }
  changed_.notify_all();
}

void LineFeed::ReadAll() {
  const survey::FileBytes file(path_);
  ReadIdentity(file);
  const std::unique_ptr<survey::LineReader> reader = survey::OpenLine(path_);
  ReadSoundings(*reader);
  RefuseChanged(file, reader->StampNow());
}

void LineFeed::ReadSoundings(survey::LineReader& reader) {
  std::optional<survey::Georeferencer> georeferencer;
  survey::BeamAccount& account = summary_.account;
  survey::PingChunk pings;
  survey::Soundings soundings;
  core::Binner binner(lattice_);
  bool geographic = false;
  int placed_zone = 0;
  while (reader.Next(pings, account)) {
    geographic = geographic || !pings.projected;
    if (summary_.utm_zone == 0) summary_.utm_zone = survey::ZoneOfFirstSounding(pings);
    if (!georeferencer || summary_.utm_zone != placed_zone) {
      // Projected soundings are the same in every zone; pings without a zone give none in any.
      placed_zone = summary_.utm_zone;
      georeferencer.emplace(placed_zone == 0 ? 1 : placed_zone, model_);
    }
    soundings.Clear();
    georeferencer->Place(pings, soundings, account);
    std::uint64_t too_uncertain = 0;
    core::BinnedChunk chunk = TakeSpare();
    chunk = binner.Bin(soundings, too_uncertain);
    account.refused[kTooUncertain] += too_uncertain;
    account.offered -= too_uncertain;
    Hand(std::move(chunk));
  }
  if (!geographic) summary_.utm_zone = 0;
  summary_.remark = reader.Remark();
}

core::BinnedChunk LineFeed::TakeSpare() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return ready_.size() < kChunksAhead || stop_; });
  if (stop_) throw Stopped();
  if (spare_.empty()) return {};
  core::BinnedChunk spare = std::move(spare_.back());
  spare_.pop_back();
  return spare;
}

void LineFeed::Hand(core::BinnedChunk chunk) {
  {
    const std::lock_guard lock(mutex_);
    ready_.push_back(std::move(chunk));
    zone_so_far_ = summary_.utm_zone;
  }
  changed_.notify_all();
}

}  // namespace quarro::service
