// Files that bear their names only once they are whole.
#include "simulate/part_file.h"

#include <system_error>

#include "simulate/survey_options.h"

namespace quarro::simulate {
namespace {

bool IsWrittenInPlace(const std::filesystem::path& path) {
  std::error_code none;
  const auto status = std::filesystem::status(path, none);
  return std::filesystem::exists(status) && !std::filesystem::is_regular_file(status) &&
         !std::filesystem::is_directory(status);
}

// The file that a link leads to, so that the link stays one.
std::filesystem::path Resolved(const std::filesystem::path& path) {
  std::error_code error;
  const auto resolved = std::filesystem::canonical(path, error);
  return error ? path : resolved;
}

}  // namespace

void RefuseToReplace(const std::filesystem::path& path, const char* option) {
  std::error_code none;
  if (!std::filesystem::exists(path, none) || IsWrittenInPlace(path)) return;
  throw SimulationError("\"" + path.string() + "\" exists already: give another " + option +
                        ", or --overwrite");
}

PartFile::PartFile(const std::filesystem::path& path)
    : place_(path), part_(path), pending_(!IsWrittenInPlace(path)) {
  std::error_code none;
  if (std::filesystem::is_directory(path, none)) {
    throw SimulationError("\"" + path.string() + "\" is a directory; it must be a file");
  }
  if (!pending_) return;
  place_ = part_ = Resolved(path);
  part_ += ".part";
}

PartFile::~PartFile() {
  std::error_code ignored;
  if (pending_ && std::filesystem::is_regular_file(part_, ignored)) {
    std::filesystem::remove(part_, ignored);
  }
}

void PartFile::Keep() {
  if (!pending_) return;
  std::error_code error;
  std::filesystem::rename(part_, place_, error);
  if (error) {
    throw SimulationError("\"" + part_.string() + "\" cannot be renamed to \"" + place_.string() +
                          "\": " + error.message());
  }
  pending_ = false;
}

}  // namespace quarro::simulate
