#include "platform/system/hid_class.h"

#include <algorithm>
#include <iterator>

namespace qzhid::platform {

Guid HidClassGuid() {
  return {0x4D1E55B2, 0xF16F, 0x11CF, {0x88, 0xCB, 0x00, 0x11, 0x11, 0x00, 0x00, 0x30}};
}

bool IsHidClass(const Guid& guid) {
  const Guid hid = HidClassGuid();
  return guid.data1 == hid.data1 && guid.data2 == hid.data2 && guid.data3 == hid.data3 &&
         std::equal(std::begin(hid.data4), std::end(hid.data4), std::begin(guid.data4));
}

}  // namespace qzhid::platform
