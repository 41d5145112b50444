// Failures of a request in the classes that a client expects.
#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <utility>

#include "engine/exceptions.h"

namespace quarro::service {

// `failure` as an ExSGClientBase or a class derived from it, with the whole reason as its text:
// what is one already stays as it is, and lack of memory is an ExSGCServerResources.
std::exception_ptr AsEngineFailure(std::exception_ptr failure);

// The reason that a client prints for `failure`.
std::string ReasonOf(const std::exception_ptr& failure);

// A failure on its way to another thread, as a value: each thread throws an exception of its own.
class Failure {
 public:
  // As AsEngineFailure tells.
  Failure(const std::exception_ptr& failure);  // NOLINT(google-explicit-constructor)
  // An ExSGClientBase.
  explicit Failure(std::string reason) : reason_(std::move(reason)) {}

  const std::string& reason() const { return reason_; }
  // Throws it in the class that a client expects.
  [[noreturn]] void Throw() const;

 private:
  enum class Kind : std::uint8_t { kGeneral, kNoGrid, kResources };
  Kind kind_ = Kind::kGeneral;
  std::string reason_;
};

}  // namespace quarro::service
