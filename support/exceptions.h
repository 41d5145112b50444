// The exception chain that support and engine share, from the most general.
#pragma once

#include <stdexcept>
#include <string>

namespace quarro {

// Root of the project's exceptions. what() tells what happened; who() is the text that the console
// prints, the whole reason on one line: what() unless a derived class says more.
class ExTarn : public std::runtime_error {
 public:
  explicit ExTarn(const std::string& reason) : std::runtime_error(reason) {}
  virtual std::string who() const { return what(); }
};

// Root of the engine's exceptions.
class ExQuarro : public ExTarn {
 public:
  using ExTarn::ExTarn;
};

// Any failure of a call to an engine front end, a bounding box that is none among them.
class ExSGClientBase : public ExQuarro {
 public:
  using ExQuarro::ExQuarro;
};

}  // namespace quarro
