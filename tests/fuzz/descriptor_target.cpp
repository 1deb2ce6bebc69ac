// Descriptors as USB devices send them, and the virtual hub's own read back.
#include "fuzz/fuzz.h"
#include "platform/linux/report_descriptor.h"
#include "platform/linux/string_descriptor.h"
#include "virtualhub/usb_descriptors.h"

using namespace qzhid;
using namespace qzhid::fuzz;

namespace {

void CheckOwnDescriptor(Input input) {
  const bool hasIds = input.Flag();
  const virtualhub::ReportConfig reports{true, hasIds, input.Word(), input.Word()};
  const auto caps = platform::ParseReportDescriptor(virtualhub::ReportDescriptor(reports));
  // A report of one byte, its ID, cannot be declared.
  const auto declared = [](std::uint16_t length) { return length > 1 ? length : 0; };
  Require(caps && caps->outputReportLength == declared(reports.outputLength) &&
              caps->inputReportLength == declared(reports.inputLength),
          "the hub's descriptor declares its report lengths");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Bytes descriptor(data, data + size);
  const auto caps = platform::ParseReportDescriptor(descriptor);
  Require(!caps || (caps->inputReportLength != 1 && caps->outputReportLength != 1),
          "lengths count the ID");
  const auto text = platform::DecodeString(descriptor);
  Require(!text || text->size() <= size / 2, "a text is no longer than its descriptor");
  platform::DecodeFirstLanguage(descriptor);
  CheckOwnDescriptor(Input(data, size));
  return 0;
}
