// Completion of command and file names while a line is typed.
#include "app/completion.h"

#include <algorithm>

#include <boost/filesystem.hpp>

namespace quarro {
namespace {

namespace fs = boost::filesystem;

bool StartsWith(const std::string& text, const std::string& start) {
  return text.compare(0, start.size(), start) == 0;
}

std::vector<std::string> MatchingNames(const std::string& word,
                                       const std::vector<std::string>& names) {
  std::vector<std::string> matching;
  std::copy_if(names.begin(), names.end(), std::back_inserter(matching),
               [&](const std::string& name) { return StartsWith(name, word); });
  return matching;
}

std::vector<std::string> MatchingFiles(const std::string& word) {
  const auto slash = word.rfind('/');
  const std::string folder = slash == std::string::npos ? "" : word.substr(0, slash + 1);
  const std::string start = word.substr(folder.size());
  std::vector<std::string> matching;
  boost::system::error_code failure;
  fs::directory_iterator entry(folder.empty() ? "." : folder, failure);
  for (; !failure && entry != fs::directory_iterator(); entry.increment(failure)) {
    const std::string name = entry->path().filename().string();
    const bool hidden = name.front() == '.' && start.empty();
    if (!hidden && StartsWith(name, start)) {
      boost::system::error_code unknown;
      matching.push_back(folder + name + (fs::is_directory(entry->path(), unknown) ? "/" : ""));
    }
  }
  std::sort(matching.begin(), matching.end());
  return matching;
}

// How many leading bytes all words share.
std::size_t CommonLength(const std::vector<std::string>& words) {
  std::size_t length = words.front().size();
  for (const std::string& word : words) {
    const auto differ =
        std::mismatch(word.begin(), word.end(), words.front().begin(), words.front().end());
    length = std::min(length, static_cast<std::size_t>(differ.first - word.begin()));
  }
  return length;
}

}  // namespace

Completion Complete(const std::string& typed, const std::vector<std::string>& command_names) {
  const auto blank = typed.rfind(' ');
  const std::string word = blank == std::string::npos ? typed : typed.substr(blank + 1);
  const std::string before = typed.substr(0, typed.size() - word.size());
  const auto first = before.find_first_not_of(' ');
  const bool is_command = first == std::string::npos ||
                          before.substr(first, before.find_last_not_of(' ') + 1 - first) == "help";

  Completion completion;
  completion.candidates = is_command ? MatchingNames(word, command_names) : MatchingFiles(word);
  if (completion.candidates.empty()) {
    return completion;
  }
  const std::string& one = completion.candidates.front();
  completion.insertion = one.substr(word.size(), CommonLength(completion.candidates) - word.size());
  if (completion.candidates.size() == 1 && one.back() != '/') {
    completion.insertion += ' ';
  }
  return completion;
}

}  // namespace quarro
