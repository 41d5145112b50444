// Opening of the text files that commands read.
#pragma once

#include <fstream>
#include <string>

namespace quarro {

// Opens `path` for reading. False when it cannot be opened, and for a directory, which would open
// and then give nothing.
bool OpenTextFile(const std::string& path, std::ifstream& file);

}  // namespace quarro
