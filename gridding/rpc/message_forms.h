// Results and failures of the engine interface as messages of the protocol, and back.
#pragma once

#include <exception>
#include <memory>
#include <string>

#include "engine/results.h"
#include "gridding/rpc/quarro_v1.pb.h"
#include "support/sg_bounding_box.h"

namespace quarro::rpc {

// Text in which bytes that are no UTF-8 are question marks: names and reasons may hold any.
std::string Utf8(const std::string& text);
// Text in which control characters are question marks: names come from the network, and nothing in
// one may forge a line of the log or drive the terminal that shows it.
std::string Printable(std::string text);

v1::BoundingBox ToMessage(const SGBoundingBox& box);
// Throws ExSGClientBase for what is no box.
SGBoundingBox FromMessage(const v1::BoundingBox& box);

// Of whatever class: in the form in which the engine tells it.
v1::Failure ToMessage(const std::exception_ptr& failure);
// An ExSGClientBase or the class derived from it that the kind names.
std::exception_ptr FromMessage(const v1::Failure& failure);

// Puts a result without arrays into the completion; false for one with arrays.
bool PutResult(const SEBaseResult& result, v1::Completion& completion);
// The result in the completion. Throws the failure in it, and ExSGClientBase for a held result and
// for no outcome at all.
std::unique_ptr<SEBaseResult> TakeResult(const v1::Completion& completion);

}  // namespace quarro::rpc
