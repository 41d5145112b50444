// One swath-bathymetry ping record of a GSF file, and what pings inherit from earlier ones.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "gridding/survey/gsf_decode.h"
#include "gridding/survey/soundings.h"

namespace quarro::survey::gsf {

// Decodes ping records in the order of the file. One thread at a time.
class PingDecoder {
 public:
  // Appends the ping of a record's data to `chunk`; `header_bytes` is that of the file's version.
  // False, and an unchanged chunk, when the data cannot be a ping. `problem` tells in either case
  // what is wrong with it, empty when nothing is: a ping with bad error arrays is taken without
  // them, and told.
  bool Decode(std::span<const std::byte> data, std::size_t header_bytes, PingChunk& chunk,
              std::string& problem);

  // Called after a ping that was lost: what the next ones would inherit from it is unknown, and
  // older scale factors would give them wrong depths. They are incomplete until a ping brings its
  // own.
  void ForgetInherited();

 private:
  // Identifiers are bytes; the arrays of interest have low ones.
  static constexpr std::size_t kKnownIds = 32;
  using Subrecords = std::array<std::span<const std::byte>, kKnownIds>;

  // The errors of the last ping that had them, 1 sigma, inherited by pings of as many beams. Empty
  // after a ping whose own were bad: those before it are no longer what the file tells.
  struct Errors {
    std::vector<float> vertical_m;
    std::vector<float> horizontal_m;
  };

  // Fills `found` and takes the ping's scale factors. Gives what is wrong, empty when nothing is.
  std::string Walk(std::span<const std::byte> rest, Subrecords& found);
  std::string TakeScaleFactors(std::span<const std::byte> bytes);
  std::string DecodePlaces(const Subrecords& found, const Ping& ping, PingChunk& chunk) const;
  static std::string DecodeFlags(const Subrecords& found, const Ping& ping, bool whole_ping,
                                 PingChunk& chunk);
  // What is wrong with an array that the ping has, empty when nothing is.
  std::string ArrayProblem(const Subrecords& found, std::size_t id, std::size_t beams) const;
  // What a ping tells of an error, the better the greater.
  enum class Told : std::uint8_t { kNothing, kBad, kGood };
  // Gives the first thing that is wrong with the arrays, empty when nothing is.
  std::string DecodeErrors(const Subrecords& found, const Ping& ping, PingChunk& chunk);
  // Fill the vector with errors as 1 sigma where they are good; put what is wrong in `problem` when
  // it is still empty.
  Told DecodeError(const Subrecords& found, std::size_t id, std::size_t beams, double sigmas,
                   std::vector<float>& out, std::string& problem) const;
  Told DecodeOldHorizontalError(const Subrecords& found, std::size_t beams, std::vector<float>& out,
                                std::string& problem);

  std::array<Scale, kKnownIds> scales_{};
  Errors inherited_;
  std::vector<float> across_error_m_;  // work space
  std::vector<float> along_error_m_;   // work space
};

}  // namespace quarro::survey::gsf
