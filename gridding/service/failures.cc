#include "gridding/service/failures.h"

#include <new>

namespace quarro::service {

std::exception_ptr AsEngineFailure(std::exception_ptr failure) {
  try {
    std::rethrow_exception(failure);
  } catch (const ExSGClientBase&) {
    return failure;
  } catch (const ExTarn& e) {
    return std::make_exception_ptr(ExSGClientBase(e.who()));
  } catch (const std::bad_alloc&) {
    return std::make_exception_ptr(
        ExSGCServerResources("the engine has not enough memory for the request"));
  } catch (const std::exception& e) {
    return std::make_exception_ptr(ExSGClientBase(e.what()));
  } catch (...) {
    return std::make_exception_ptr(ExSGClientBase("a failure of unknown kind in the engine"));
  }
}

std::string ReasonOf(const std::exception_ptr& failure) {
  try {
    std::rethrow_exception(AsEngineFailure(failure));
  } catch (const ExTarn& e) {
    return e.who();
  }
}

Failure::Failure(const std::exception_ptr& failure) {
  try {
    std::rethrow_exception(AsEngineFailure(failure));
  } catch (const ExSGCNoGrid& e) {
    kind_ = Kind::kNoGrid;
    reason_ = e.who();
  } catch (const ExSGCServerResources& e) {
    kind_ = Kind::kResources;
    reason_ = e.who();
  } catch (const ExSGClientBase& e) {
    reason_ = e.who();
  }
}

void Failure::Throw() const {
  switch (kind_) {
    case Kind::kNoGrid:
      throw ExSGCNoGrid(reason_);
    case Kind::kResources:
      throw ExSGCServerResources(reason_);
    default:
      throw ExSGClientBase(reason_);
  }
}

}  // namespace quarro::service
