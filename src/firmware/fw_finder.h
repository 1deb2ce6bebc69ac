// Where a device's firmware image comes from.
#pragma once

#include "firmware/fw_image.h"

namespace qzhid {

class IFwFinder {
 public:
  virtual ~IFwFinder() = default;

  /// Replaces the contents of `out` with the image. Returns false, with `out` unchanged, when there
  /// is no image.
  virtual bool LoadFwbin2Buf(FwBuffer& out) = 0;
};

}  // namespace qzhid
