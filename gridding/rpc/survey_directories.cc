#include "gridding/rpc/survey_directories.h"

#include <algorithm>
#include <iterator>
#include <system_error>

#include "gridding/rpc/message_forms.h"
#include "support/exceptions.h"

namespace quarro::rpc {

namespace {

namespace fs = std::filesystem;

constexpr const char* kParameter = "parameter SurveyDirectories of section Network";

bool LiesUnder(const fs::path& path, const fs::path& directory) {
  const auto [end, rest] =
      std::mismatch(directory.begin(), directory.end(), path.begin(), path.end());
  return end == directory.end() && rest != path.end();
}

bool HoldsParentComponent(const fs::path& path) {
  return std::any_of(path.begin(), path.end(), [](const fs::path& part) { return part == ".."; });
}

// Folders end without a slash, so that components compare.
fs::path WithoutTrailingSlash(const fs::path& path) {
  const fs::path normal = path.lexically_normal();
  return normal.has_filename() ? normal : normal.parent_path();
}

[[noreturn]] void Refuse(const std::string& file_name, const std::string& reason) {
  throw ExSGClientBase("the survey file \"" + Printable(file_name) + "\" is refused: " + reason);
}

}  // namespace

SurveyDirectories::SurveyDirectories(const std::string& setting) {
  std::size_t begin = 0;
  while (begin <= setting.size()) {
    const std::size_t end = std::min(setting.find_first_of(":;", begin), setting.size());
    const std::string part = setting.substr(begin, end - begin);
    const std::size_t first = part.find_first_not_of(" \t\r\n");
    if (first != std::string::npos) {
      const std::size_t last = part.find_last_not_of(" \t\r\n");
      directories_.push_back(
          WithoutTrailingSlash(fs::absolute(part.substr(first, last - first + 1))));
    }
    begin = end + 1;
  }
}

std::string SurveyDirectories::Resolve(const std::string& file_name) const {
  if (directories_.empty()) {
    Refuse(file_name, std::string("this engine has no survey directories; set ") + kParameter);
  }
  if (file_name.empty()) Refuse(file_name, "the name is empty");
  if (file_name.find('\0') != std::string::npos) Refuse(file_name, "the name holds a zero byte");
  const fs::path name(file_name);
  if (HoldsParentComponent(name)) {
    Refuse(file_name, "the name holds \"..\"; give it from a survey directory on: " + Listing());
  }

  std::vector<fs::path> roots;  // as they are now, without symbolic links
  for (const fs::path& directory : directories_) {
    std::error_code error;
    fs::path root = fs::canonical(directory, error);
    if (!error) roots.push_back(std::move(root));
  }
  const auto is_inside = [&](const fs::path& path) {
    return std::any_of(roots.begin(), roots.end(),
                       [&](const fs::path& root) { return LiesUnder(path, root); });
  };

  bool is_no_file = false;
  for (const fs::path& directory : directories_) {
    // An absolute name stands for itself, once, if it starts at this folder in one of its
    // spellings.
    if (name.is_absolute() && !LiesUnder(name.lexically_normal(), directory) &&
        !is_inside(name.lexically_normal())) {
      continue;
    }
    std::error_code error;
    const fs::path found = fs::canonical(directory / name, error);
    if (error || !is_inside(found)) continue;
    if (fs::is_regular_file(found, error)) return found.string();
    is_no_file = true;
  }
  if (is_no_file) Refuse(file_name, "it is no regular file");
  // The same text for what is absent and for what links lead out to.
  Refuse(file_name, "no such file under the survey directories " + Listing() +
                        " (links out of them are not followed); put it there, or add its folder "
                        "to " +
                        kParameter);
}

std::string SurveyDirectories::Listing() const {
  const std::vector<fs::path> missing = Missing();
  std::string listing;
  for (const fs::path& directory : directories_) {
    if (!listing.empty()) listing += ", ";
    listing.append("\"").append(directory.string()).append("\"");
    if (std::find(missing.begin(), missing.end(), directory) != missing.end()) {
      listing += " (no such folder)";
    }
  }
  return listing;
}

std::vector<fs::path> SurveyDirectories::Missing() const {
  std::vector<fs::path> missing;
  std::copy_if(directories_.begin(), directories_.end(), std::back_inserter(missing),
               [](const fs::path& directory) {
                 std::error_code error;
                 return !fs::is_directory(directory, error);
               });
  return missing;
}

}  // namespace quarro::rpc
