// Descriptors as USB devices send them, and the virtual hub's own read back.
#include "fuzz/fuzz.h"
#include "platform/linux/report_descriptor.h"
#include "platform/linux/string_descriptor.h"
#include "virtualhub/bus/usb_descriptors.h"

using namespace qzhid::platform;
using namespace qzhid::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Bytes descriptor(data, data + size);
  const auto caps = ParseReportDescriptor(descriptor);
  Require(!caps || (caps->inputReportLength != 1 && caps->outputReportLength != 1),
          "lengths count the ID");
  const auto text = DecodeString(descriptor);
  Require(!text || text->size() <= size / 2, "a text is no longer than its descriptor");
  DecodeFirstLanguage(descriptor);

  Input input(data, size);
  const virtualhub::ReportConfig reports{true, input.Flag(), input.Word(), input.Word()};
  const auto own = ParseReportDescriptor(virtualhub::ReportDescriptor(reports));
  // A report of one byte, its ID, cannot be declared.
  const auto declared = [](std::uint16_t length) { return length > 1 ? length : 0; };
  Require(own && own->outputReportLength == declared(reports.outputLength), "output reports");
  Require(own->inputReportLength == declared(reports.inputLength), "input reports");
  return 0;
}
