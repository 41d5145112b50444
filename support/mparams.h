// The parameter file: sections of keys with text values, read once at start-up.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "support/exceptions.h"

namespace quarro {

// The parameter file is no well-formed XML, or not a parameter file. what() names the file, the
// line and the column.
class ExMPEXmlFileNotParsable : public ExTarn {
 public:
  using ExTarn::ExTarn;
};

// The parameters of one XML file:
//
//   <parameters>
//     <section name="Engine">
//       <parameter key="WorkingDirectory">/data/grids</parameter>
//     </section>
//   </parameters>
//
// Constant after construction, so any thread may look up. The text of a value is taken without the
// white space around it.
class MParams {
 public:
  // No parameters at all: every Lookup gives an empty text.
  MParams() = default;

  // Reads the file at `path`. With `must_exist` a missing file is an error, without it the object
  // is empty. Throws ExMPEXmlFileNotParsable for what is not a parameter file (elements and
  // attributes that the format does not know, a key given twice in a section, malformed XML), and
  // ExTarn for a file that is missing, a directory, or cannot be read.
  MParams(const std::string& path, bool must_exist);

  // The value of a key, empty when the file does not hold it.
  std::string Lookup(const std::string& section, const std::string& key) const;

  // All (section, key) pairs that the file holds, in byte order.
  std::vector<std::pair<std::string, std::string>> Keys() const;

  // For tests and programs that set a value without a file.
  void Set(const std::string& section, const std::string& key, const std::string& value);

 private:
  std::map<std::pair<std::string, std::string>, std::string> values_;
};

// Typed access to one section. Each gives `fallback` for a key that is absent or empty, and throws
// ExSGClientBase naming section, key, value and what is allowed for a value that does not convert
// or lies outside [lowest, highest].
double LookupNumber(const MParams& params, const std::string& section, const std::string& key,
                    double fallback, double lowest, double highest);
long LookupInteger(const MParams& params, const std::string& section, const std::string& key,
                   long fallback, long lowest, long highest);
// "true", "1", "yes", "on" or "false", "0", "no", "off".
bool LookupFlag(const MParams& params, const std::string& section, const std::string& key,
                bool fallback);

}  // namespace quarro
