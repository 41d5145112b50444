// Files that bear their names only once they are whole.
#pragma once

#include <filesystem>
#include <string>

namespace quarro::simulate {

// Throws SimulationError where something is that keeping a file of this name would replace, naming
// it and `option`, the one that gives another place. Pipes and devices are written to, not
// replaced.
void RefuseToReplace(const std::filesystem::path& path, const char* option);

// A file that is written beside its place and takes its name when told to, so that one cut short is
// never taken for a whole one and what bore the name stays until then. Pipes and devices are
// written in place. One thread at a time.
class PartFile {
 public:
  // Throws SimulationError where `path` is a directory. Makes no file.
  explicit PartFile(const std::filesystem::path& path);
  // Removes what was not kept.
  ~PartFile();
  PartFile(const PartFile&) = delete;
  PartFile& operator=(const PartFile&) = delete;

  // Where to write.
  std::string path() const { return part_.string(); }
  // Gives the file its name, once it is written and closed. Throws SimulationError.
  void Keep();

 private:
  std::filesystem::path place_;
  std::filesystem::path part_;  // the same as place_ where that is written in place
  bool pending_;                // whether part_ is to be renamed, or to be removed
};

}  // namespace quarro::simulate
