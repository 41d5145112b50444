// Survey lines as text: one sounding a line.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "gridding/survey/file_bytes.h"
#include "gridding/survey/line_reader.h"

namespace quarro::survey {

// Reads lines of x y z [sigma_v [sigma_h]]: x and y are easting and northing in metres of the
// grid's zone, or longitude and latitude in degrees; z is depth in metres, positive down; the
// sigmas are 1 sigma in metres, horizontal along one axis, and 0, "nan" or nothing where not known.
// Blanks, tabs and commas separate; the decimal mark is a point whatever the locale. Blank lines,
// lines that begin with '#' and a first line that begins with no number are skipped.
//
// Each line is a ping of one beam. One that cannot be read, or holds more than five fields, is a
// beam without depth, so that it is counted and refused; the remark names the first.
class TextReader : public LineReader {
 public:
  // Throws LineError when `path` cannot be opened or is not text.
  TextReader(const std::string& path, bool projected);

  bool Next(PingChunk& chunk, BeamAccount& account) override;
  std::string Remark() const override;
  FileStamp StampNow() const override { return window_.file().StampNow(); }

 private:
  // A longer line is no sounding; its rest is skipped.
  static constexpr std::size_t kLongestLine = 4096;

  // The next line without its end, valid until the next call. False at the end of the file.
  bool NextLine(std::string_view& line);
  // Moves behind the end of a line too long to be a sounding.
  void SkipLongLine();
  void TakeLine(std::string_view line, PingChunk& chunk);

  FileWindow window_;
  const bool projected_;
  std::uint64_t position_ = 0;
  std::uint64_t line_number_ = 0;
  std::string long_line_;          // the beginning of one
  bool before_first_line_ = true;  // neither blank nor comment, that is
  std::uint64_t good_lines_ = 0;
  std::uint64_t bad_lines_ = 0;
  std::string first_bad_line_;
};

}  // namespace quarro::survey
