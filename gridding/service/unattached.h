// What a front end without an engine does with requests whose failure is told by a call-back.
#pragma once

#include "gridding/service/delivery.h"

namespace quarro::service {

inline constexpr const char* kNotAttached = "no engine is attached";

// Fails a request; its call-back has returned when this returns, unless this is called by one.
void FailUnattached(Delivery& delivery, RequestKind kind, const ResultCallback& on_done);

}  // namespace quarro::service
