#pragma once

namespace qzhid {

struct Waitable {
  int descriptor;  ///< ready when it can be read
};

}  // namespace qzhid
