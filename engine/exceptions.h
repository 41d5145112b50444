// What an engine front end throws, beside ExSGClientBase itself.
#pragma once

#include <string>

#include "support/exceptions.h"

namespace quarro {

// The engine is out of resources for the request.
class ExSGCServerResources : public ExSGClientBase {
 public:
  using ExSGClientBase::ExSGClientBase;
};

// The engine has no grid for the request.
class ExSGCNoGrid : public ExSGClientBase {
 public:
  using ExSGClientBase::ExSGClientBase;
};

// A fetched result is not of the class that was expected.
class ExSGCResultIncompatible : public ExSGClientBase {
 public:
  using ExSGClientBase::ExSGClientBase;
};

}  // namespace quarro
