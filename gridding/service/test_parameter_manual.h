// What the manual's page of parameters says of each, for the tests that hold it against the code.
#pragma once

#include <fstream>
#include <string>
#include <vector>

#include "support/mparams.h"

namespace quarro::service {

// A row of a table of docs/parameters.md.
struct ManualRow {
  std::string section;
  std::string key;
  std::string fallback;
  std::string allowed;

  // What the refusal of a value that does not convert says is allowed; empty for texts, which are
  // not read as anything else.
  std::string RefusalSays() const {
    if (allowed == "true, false") return "it must be true, 1, yes or on, or false, 0, no or off.";
    const bool range = allowed.find(" to ") != std::string::npos && allowed.front() >= '0' &&
                       allowed.front() <= '9';
    return range ? " from " + allowed + "." : "";
  }
  MParams With(const std::string& value) const {
    MParams params;
    params.Set(section, key, value);
    return params;
  }
};

inline std::vector<ManualRow> ReadParameterManual() {
  std::ifstream page(QUARRO_SOURCE_DIR "/docs/parameters.md");
  std::vector<ManualRow> rows;
  std::string section;
  for (std::string line; std::getline(page, line);) {
    if (line.starts_with("## ")) section = line.substr(3);
    if (!line.starts_with("| ") || line.starts_with("| key ")) continue;
    std::vector<std::string> cells;
    for (std::size_t begin = 1; begin < line.size();) {
      const std::size_t end = line.find('|', begin);
      const std::string cell = line.substr(begin, end - begin);
      const std::size_t first = cell.find_first_not_of(' ');
      cells.push_back(first == std::string::npos
                          ? ""
                          : cell.substr(first, cell.find_last_not_of(' ') - first + 1));
      if (end == std::string::npos) break;
      begin = end + 1;
    }
    cells.resize(3);
    rows.push_back({section, cells[0], cells[1], cells[2]});
  }
  return rows;
}

}  // namespace quarro::service
