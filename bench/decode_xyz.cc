// The soundings of survey lines as other gridders take them: binary easting, northing, depth.
//
//     decode_xyz OUT.bin LINE...
//
// Writes three doubles a sounding, metres, in the order of the lines, in the UTM zone of the first
// position, and prints how many there are and the bounds: "soundings west east south north".
#include <algorithm>
#include <array>
#include <cstdio>
#include <exception>
#include <fstream>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "gridding/survey/georeference.h"
#include "gridding/survey/line_reader.h"

namespace quarro::bench {

namespace {

struct Bounds {
  double west_m = std::numeric_limits<double>::infinity();
  double east_m = -std::numeric_limits<double>::infinity();
  double south_m = std::numeric_limits<double>::infinity();
  double north_m = -std::numeric_limits<double>::infinity();
};

class XyzFile {
 public:
  explicit XyzFile(const std::string& path) : path_(path), file_(path, std::ios::binary) {}

  void Write(const survey::Soundings& soundings) {
    points_.clear();
    for (std::size_t i = 0; i < soundings.size(); ++i) {
      const double easting_m = soundings.easting_m[i];
      const double northing_m = soundings.northing_m[i];
      points_.push_back({easting_m, northing_m, soundings.depth_m[i]});
      bounds_.west_m = std::min(bounds_.west_m, easting_m);
      bounds_.east_m = std::max(bounds_.east_m, easting_m);
      bounds_.south_m = std::min(bounds_.south_m, northing_m);
      bounds_.north_m = std::max(bounds_.north_m, northing_m);
    }
    file_.write(reinterpret_cast<const char*>(points_.data()),
                static_cast<std::streamsize>(points_.size() * sizeof(points_[0])));
    soundings_ += points_.size();
  }
  void Close() {
    file_.close();
    if (!file_) throw std::runtime_error("cannot write \"" + path_ + "\": is the disc full?");
  }

  const Bounds& bounds() const { return bounds_; }
  std::uint64_t soundings() const { return soundings_; }

 private:
  std::string path_;
  std::ofstream file_;
  std::vector<std::array<double, 3>> points_;
  Bounds bounds_;
  std::uint64_t soundings_ = 0;
};

int ZoneOf(const survey::PingChunk& chunk) {
  if (chunk.projected) throw std::runtime_error("lines of projected soundings have no zone");
  return survey::UtmZoneOf(chunk.pings.front().longitude_deg, chunk.pings.front().latitude_deg);
}

void Decode(const std::vector<std::string>& lines, XyzFile& file) {
  std::unique_ptr<survey::Georeferencer> georeferencer;
  survey::BeamAccount account;
  survey::PingChunk chunk;
  survey::Soundings soundings;
  for (const std::string& line : lines) {
    const auto reader = survey::OpenLine(line);
    while (reader->Next(chunk, account)) {
      if (!georeferencer) {
        georeferencer =
            std::make_unique<survey::Georeferencer>(ZoneOf(chunk), survey::UncertaintyModel());
      }
      soundings.Clear();
      georeferencer->Place(chunk, soundings, account);
      file.Write(soundings);
    }
  }
  file.Close();
}

}  // namespace

}  // namespace quarro::bench

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: decode_xyz OUT.bin LINE...\n");
    return 1;
  }
  try {
    quarro::bench::XyzFile file(argv[1]);
    quarro::bench::Decode({argv + 2, argv + argc}, file);
    const quarro::bench::Bounds& bounds = file.bounds();
    std::printf("%llu %.3f %.3f %.3f %.3f\n", static_cast<unsigned long long>(file.soundings()),
                bounds.west_m, bounds.east_m, bounds.south_m, bounds.north_m);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "decode_xyz: %s\n", error.what());
    return 1;
  }
}
