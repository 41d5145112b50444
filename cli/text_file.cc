// Opening of the text files that commands read.
#include "cli/text_file.h"

#include <boost/filesystem/operations.hpp>
#include <boost/system/error_code.hpp>

namespace quarro {

bool OpenTextFile(const std::string& path, std::ifstream& file) {
  boost::system::error_code no_directory;
  if (boost::filesystem::is_directory(path, no_directory)) {
    return false;
  }
  file.open(path);
  return file.is_open();
}

}  // namespace quarro
