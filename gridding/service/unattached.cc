#include "gridding/service/unattached.h"

#include "engine/exceptions.h"

namespace quarro::service {

void FailUnattached(Delivery& delivery, RequestKind kind, const ResultCallback& on_done) {
  const RequestPtr request = delivery.Accept(on_done, kind, Order::kInOrder);
  delivery.Fail(request, std::make_exception_ptr(ExSGClientBase(kNotAttached)));
  if (!delivery.OnCallbackThread()) delivery.WaitFor(request);
}

}  // namespace quarro::service
