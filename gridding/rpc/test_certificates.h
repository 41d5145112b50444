// Certificates for tests.
#pragma once

#include <filesystem>
#include <string>

#include "support/mparams.h"

namespace quarro::testing {

// An authority in a folder of its own, which signs what is asked for.
class TestAuthority {
 public:
  explicit TestAuthority(std::filesystem::path folder);

  // What a certificate is to be; all of it serves without a change.
  struct Wanted {
    bool for_server = false;
    long begins_in_s = -3600;
    long ends_in_s = 3600;
  };
  // Writes NAME.pem and NAME.key, in the place of those that are there.
  void Make(const std::string& name, const Wanted& wanted) const;
  // Sets the three keys of section Network for the certificate NAME.
  void Use(const std::string& name, MParams& parameters) const;

  const std::filesystem::path& folder() const { return folder_; }

 private:
  std::filesystem::path folder_;
};

}  // namespace quarro::testing
