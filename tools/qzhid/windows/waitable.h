#pragma once

#include <windows.h>

namespace qzhid {

struct Waitable {
  HANDLE handle;  ///< ready when it is signalled
};

}  // namespace qzhid
