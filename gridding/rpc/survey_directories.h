// Which files of this machine a client on the network may have read.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace quarro::rpc {

// The folders under which survey lines are found; nothing else of the machine is reachable by a
// file name in a request. Constant after construction: any thread may call.
class SurveyDirectories {
 public:
  // A list of folders parted by ':' or ';', as parameter SurveyDirectories of section Network gives
  // it. Relative ones start at the current directory. They need not exist yet. An empty list
  // refuses every file.
  explicit SurveyDirectories(const std::string& setting);

  // The regular file that `file_name` means, as an absolute path without symbolic links. A relative
  // name is looked for under each folder in the order of the list; an absolute one must lie under
  // one of them. Symbolic links are followed, and what they lead to must lie under one of the
  // folders too. Throws ExSGClientBase naming the file and the remedy for a name that is empty or
  // holds ".." or a zero byte, for what is no regular file, and for what lies elsewhere. Of what
  // lies outside the folders the message does not tell whether it exists.
  //
  // What it promises holds at the moment of the call. Whoever may rename files inside the folders
  // can put a link in the place of the file before it is opened: let only those write there who may
  // read what the server's account may read.
  std::string Resolve(const std::string& file_name) const;

  // Those that are no folders at the moment, as absolute paths.
  std::vector<std::filesystem::path> Missing() const;

 private:
  std::string Listing() const;

  std::vector<std::filesystem::path> directories_;  // absolute
};

}  // namespace quarro::rpc
