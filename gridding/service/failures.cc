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

}  // namespace quarro::service
