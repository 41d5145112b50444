// Which reader opens which file.
#include "gridding/survey/line_reader.h"

#include <algorithm>
#include <filesystem>

#include "gridding/survey/gsf_reader.h"
#include "gridding/survey/text_reader.h"

namespace quarro::survey {

std::unique_ptr<LineReader> OpenLine(const std::string& path) {
  std::string extension = std::filesystem::path(path).extension().string();
  // Not std::tolower, whose answer depends on the locale.
  std::transform(extension.begin(), extension.end(), extension.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  if (extension == ".xyz" || extension == ".txt") return std::make_unique<TextReader>(path, true);
  if (extension == ".llz" || extension == ".lld") return std::make_unique<TextReader>(path, false);
  return std::make_unique<GsfReader>(path);
}

}  // namespace quarro::survey
