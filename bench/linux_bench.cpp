// Listings and scans with the Linux backend, of a system with one hub and HID devices of other
// makers, for tools that count the system calls.
#include <cstring>
#include <memory>
#include <string>

#include "QzHidAPI.h"
#include "discovery/hid_find.h"
#include "platform/linux/hidraw_requests.h"
#include "platform/linux/kernel_double.h"
#include "rows.h"
#include "transport/hid_property.h"
#include "transport/hid_transfers.h"
#include "transport/request_cmd.h"

using namespace qzhid;
using namespace qzhid::bench;

namespace {

// One report of 64 bytes in each direction.
constexpr unsigned char kDescriptor[] = {0x06, 0x00, 0xFF, 0x09, 0x01, 0xA1, 0x01, 0x15, 0x00,
                                         0x26, 0xFF, 0x00, 0x75, 0x08, 0x95, 0x40, 0x09, 0x01,
                                         0x81, 0x02, 0x09, 0x01, 0x91, 0x02, 0xC0};

/// Every device accepts all reports, and has no product text.
int Answer(unsigned long request, void* argument) {
  if (request == HIDIOCGINPUT(2) && argument == nullptr) return -EFAULT;
  if (request == HIDIOCGRDESCSIZE) {
    *static_cast<int*>(argument) = sizeof(kDescriptor);
  } else if (request == HIDIOCGRDESC) {
    std::memcpy(static_cast<hidraw_report_descriptor*>(argument)->value, kDescriptor,
                sizeof(kDescriptor));
  } else if (_IOC_TYPE(request) == 'U') {
    return -EPIPE;
  }
  return 0;
}

void List(CHidFind&) {
  HidDevRecord* list = nullptr;
  std::uint32_t count = 0;
  if (QZ_ListAllHidDev(&list, &count) == 0 || count != 1) Fail("a listing failed");
  QZ_FreeDevList(list);
}

void Scan(CHidFind& finder) {
  CHidProperty property{std::make_unique<CHidTransfers>()};
  CRequestCMD::Instance().SetProperty(&property);
  finder.ScanDevs();
  CRequestCMD::Instance().SetProperty(nullptr);
}

/// Does the work on a system with one hub and so many HID devices of other makers.
void AmongOthers(int times, int others, void (*work)(CHidFind&)) {
  platform::test::KernelDouble kernel;
  kernel.answer = Answer;
  kernel.Plug("1");
  kernel.Plug("2", -1);
  for (int i = 1; i <= others; ++i) {
    const platform::test::Attributes ids{{"idVendor", "1234"}, {"idProduct", "5678"}};
    kernel.Plug("2." + std::to_string(i), i, ids);
  }
  CHidFind finder;
  for (int i = 0; i < times; ++i) work(finder);
}
const CCounted g_others[] = {
    {"listing/5", AmongOthers, 5, List},     {"scan/5", AmongOthers, 5, Scan},
    {"listing/20", AmongOthers, 20, List},   {"scan/20", AmongOthers, 20, Scan},
    {"listing/100", AmongOthers, 100, List}, {"scan/100", AmongOthers, 100, Scan}};

}  // namespace
