#include "gridding/core/encoding.h"

#include <string>

namespace quarro::core {

void Decoder::Fail() const {
  throw EncodingError(std::string("the ") + what_ + " of a cell has the wrong length");
}

}  // namespace quarro::core
