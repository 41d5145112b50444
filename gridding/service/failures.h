// Failures of a request in the classes that a client expects.
#pragma once

#include <exception>
#include <string>

#include "engine/exceptions.h"

namespace quarro::service {

// `failure` as an ExSGClientBase or a class derived from it, with the whole reason as its text:
// what is one already stays as it is, and lack of memory is an ExSGCServerResources.
std::exception_ptr AsEngineFailure(std::exception_ptr failure);

// The reason that a client prints for `failure`.
std::string ReasonOf(const std::exception_ptr& failure);

}  // namespace quarro::service
