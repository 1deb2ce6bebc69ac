// Device files: which one is opened, the requests that it is sent, and how failures are passed on.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/hidraw.h>
#include <linux/usbdevice_fs.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>

#include "platform/code_of.h"
#include "platform/linux/hidraw_requests.h"
#include "platform/linux/kernel_double.h"

namespace qzhid::platform::test {

namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using Bytes = std::vector<std::uint8_t>;

/// The request that the double knows the reports by, before it looks at them.
constexpr auto kProbe = HIDIOCGINPUT(2);

/// A device at port 1, whose requests are answered by `answer`; not asked is what finds out whether
/// the kernel knows the report requests.
class DeviceFileTest : public ::testing::Test {
 protected:
  DeviceFileTest() { Plug(); }

  void Plug(const Attributes& more = {}) {
    PluggedDevice device{.ports = "1", .hidraw = 3};
    for (const auto& [name, text] : more) device.attributes[name] = text;
    device.requests = [this](unsigned long request, void* argument) {
      return request == kProbe && argument == nullptr ? -probe : answer(request, argument);
    };
    kernel.Plug(device);
  }

  std::wstring InterfaceOfFirst() {
    NodeSet set;
    DeviceInterface found;
    std::wstring path;
    EXPECT_EQ(0, CodeOf(OpenNodeSet(HidClassGuid(), set)));
    EXPECT_EQ(0, CodeOf(FirstInterface(set, 0, found)));
    EXPECT_EQ(0, CodeOf(InterfacePath(set, found, path)));
    return path;
  }
  HidDevice Open() {
    HidDevice device;
    EXPECT_EQ(0, CodeOf(OpenHidDevice(InterfaceOfFirst(), device)));
    return device;
  }
  /// How opening fails: code and remark.
  std::pair<int, std::string> Failure() {
    HidDevice device;
    const OpenStatus status = OpenHidDevice(InterfaceOfFirst(), device);
    EXPECT_EQ(status.ok, device != nullptr);
    return {CodeOf(status), status.remark};
  }

  KernelDouble kernel;
  const std::string file = kernel.Path("/dev/hidraw3"),
                    usbFile = kernel.Path("/dev/bus/usb/001/002");
  int probe = EFAULT;
  std::function<int(unsigned long request, void* argument)> answer = [](auto...) { return 0; };
};

TEST_F(DeviceFileTest, AnotherFileThanThatOfTheNodeIsNotOpened) {
  EXPECT_EQ(std::pair(0, std::string()), Failure());
  const auto noDevice = std::pair(ENODEV, std::string());
  fs::remove(file);
  fs::create_symlink("/dev/urandom", file);
  EXPECT_EQ(noDevice, Failure());
  fs::remove(file);
  kernel.Write("/dev/hidraw3", "");
  EXPECT_EQ(noDevice, Failure()) << "no device file at all";
  fs::remove(file);
  EXPECT_EQ(std::pair(ENOENT, std::string()), Failure());
}

TEST_F(DeviceFileTest, APathThatNamesNoPresentNodeIsNotOpened) {
  const std::wstring path = InterfaceOfFirst();
  HidDevice device;
  const std::wstring number = path.substr(path.find(L'#'));
  EXPECT_EQ(ENOENT, CodeOf(OpenHidDevice(L"/dev/hidraw3", device)));
  EXPECT_EQ(ENODEV, CodeOf(OpenHidDevice(L"/dev/hidraw4" + number, device)));
  kernel.Unplug("1");
  EXPECT_EQ(ENODEV, CodeOf(OpenHidDevice(path, device)));
}

TEST_F(DeviceFileTest, AFileWithoutPermissionToReadAndWriteIsNamed) {
  fs::permissions(kernel.Path(""), fs::perms::all);
  constexpr uid_t kNobody = 65534;
  const uid_t user = geteuid();
  for (const fs::perms permissions : {fs::perms::none, fs::perms(0444)}) {
    fs::remove(file);
    kernel.Write("/dev/hidraw3", "");
    fs::permissions(file, permissions);
    ASSERT_EQ(0, seteuid(user == 0 ? kNobody : user)) << "root needs no permission";
    const auto failure = Failure();
    ASSERT_EQ(0, seteuid(user));
    EXPECT_EQ(std::pair(EACCES, "No permission for " + file), failure);
  }
}

TEST_F(DeviceFileTest, AKernelWithoutTheReportRequestsIsNamed) {
  const std::string remark = "The kernel cannot send reports to hubs, update it to Linux 5.11";
  const std::tuple<int, int, std::string> rows[] = {{EFAULT, 0, ""},
                                                    {0, 0, ""},
                                                    {EINVAL, ENOSYS, remark},
                                                    {ENOTTY, ENOSYS, remark},
                                                    {ENODEV, ENODEV, ""}};
  for (const auto& [answered, code, text] : rows) {
    probe = answered;
    EXPECT_EQ(std::pair(code, text), Failure());
  }
}

TEST_F(DeviceFileTest, AnInterruptOutEndpointIsRemarkedOnUnlessTheQuirkIsSet) {
  const std::string remark =
      "The kernel sends reports to the interrupt OUT endpoint; if requests fail, set "
      "usbhid.quirks=0x2E7C:0x0818:0x40000";
  const std::string interface = kernel.UsbFolder("1") + "/1-1:1.0";
  const struct {
    const char *endpoint, *type, *direction, *quirks;
    bool isRemarkedOn;
  } rows[] = {{"ep_01", "Interrupt", "out", "", true},
              {"ep_0f", "Interrupt", "out", "(null)", true},
              {"ep_01", "Interrupt", "out", "0x2e7c:0x0818:0x40000", false},
              {"ep_01", "Bulk", "out", "", false},
              {"ep_01", "Interrupt", "in", "", false},
              {"ep_10", "Interrupt", "out", "", false},
              {"ep_00", "Interrupt", "out", "", false}};
  for (const auto& row : rows) {
    const std::string endpoint = interface + '/' + row.endpoint;
    kernel.Write(endpoint + "/type", std::string(row.type) + '\n');
    kernel.Write(endpoint + "/direction", std::string(row.direction) + '\n');
    kernel.Write("/sys/module/usbhid/parameters/quirks", std::string(row.quirks) + '\n');
    EXPECT_EQ(row.isRemarkedOn ? remark : "", Failure().second) << row.endpoint << row.quirks;
    kernel.Unplug("1");  // what a node is, is read once
    Plug();
  }
}

TEST_F(DeviceFileTest, ReportsGoWithTheRequestOfTheirLengthAndAreTriedAgainAfterASignal) {
  const HidDevice device = Open();
  std::uint8_t report[300] = {0, 1, 2};
  std::vector<unsigned long> requests;
  answer = [&](unsigned long request, void* argument) {
    EXPECT_EQ(report, argument);
    requests.push_back(request);
    return requests.size() % 2 == 1 ? -EINTR : 5;
  };
  EXPECT_EQ(0, CodeOf(SetOutputReport(device, report, 300)));
  EXPECT_EQ(0, CodeOf(GetInputReport(device, report, 2)));
  EXPECT_THAT(requests, ElementsAre(HIDIOCSOUTPUT(300), HIDIOCSOUTPUT(300), HIDIOCGINPUT(2),
                                    HIDIOCGINPUT(2)));
}

TEST_F(DeviceFileTest, ReportsThatNoRequestCanCarryAreRejectedAndCodesPassedOn) {
  const HidDevice device = Open();
  const std::uint32_t longest = (1u << 14) - 1;
  Bytes report(longest + 1);
  EXPECT_EQ(0, CodeOf(SetOutputReport(device, report.data(), longest)));
  EXPECT_EQ(0, CodeOf(GetInputReport(device, report.data(), 1)));
  answer = [](auto...) { return -EPIPE; };
  for (const std::uint32_t length : {0u, longest + 1}) {
    EXPECT_EQ(EINVAL, CodeOf(SetOutputReport(device, report.data(), length)));
    EXPECT_EQ(EINVAL, CodeOf(GetInputReport(device, report.data(), length)));
  }
  EXPECT_EQ(EPIPE, CodeOf(SetOutputReport(device, report.data(), 1)));
  EXPECT_EQ(EPIPE, CodeOf(GetInputReport(device, report.data(), longest)));
}

TEST_F(DeviceFileTest, TheReportDescriptorIsReadInItsSizeOrFailsWithTheKernelsCode) {
  const Bytes descriptor = {0x75, 8, 0x95, 4, 0x91, 2, 0x95, 8, 0x81, 2};
  const struct {
    int size, sizeResult, result;  // what the kernel answers
    int code;
  } rows[] = {{10, 0, 0, 0},       {10, -EIO, 0, EIO},    {10, 0, -EIO, EIO},
              {-1, 0, 0, EBADMSG}, {4097, 0, 0, EBADMSG}, {9, 0, 0, EBADMSG}};
  const HidDevice device = Open();
  for (const auto& row : rows) {
    answer = [&](unsigned long request, void* argument) {
      if (request == HIDIOCGRDESCSIZE) {
        *static_cast<int*>(argument) = row.size;
        return row.sizeResult;
      }
      auto& block = *static_cast<hidraw_report_descriptor*>(argument);
      EXPECT_EQ(static_cast<std::uint32_t>(row.size), block.size);
      std::copy(descriptor.begin(), descriptor.end(), block.value);
      return row.result;
    };
    PreparsedData preparsed;
    HidCaps caps;
    EXPECT_EQ(row.code, CodeOf(GetPreparsedData(device, preparsed))) << row.size;
    EXPECT_EQ(row.code == 0 ? 0 : EBADF, CodeOf(GetCaps(preparsed, caps)));
    EXPECT_EQ(row.code == 0 ? 5 : 0, caps.outputReportLength);
    EXPECT_EQ(row.code == 0 ? 9 : 0, caps.inputReportLength);
  }
}

/// A request for a string descriptor: its index, the language, and what is answered.
struct StringRequest {
  unsigned value, language;
  Bytes descriptor;
  int failure = 0;
};

class UsbStringTest : public DeviceFileTest {
 protected:
  /// Asks for string 52; the code. The device is asked exactly these requests.
  int Ask(const std::vector<StringRequest>& expected, std::size_t capacity = 512) {
    std::size_t asked = 0;
    answer = [&](unsigned long request, void* argument) {
      EXPECT_EQ(USBDEVFS_CONTROL, request);
      const auto& control = *static_cast<usbdevfs_ctrltransfer*>(argument);
      EXPECT_EQ(0x80, control.bRequestType);
      EXPECT_EQ(6, control.bRequest);
      EXPECT_EQ(255, control.wLength);
      if (asked == expected.size()) return -EIO;
      const StringRequest& row = expected[asked++];
      EXPECT_EQ(row.value, control.wValue);
      EXPECT_EQ(row.language, control.wIndex);
      std::copy(row.descriptor.begin(), row.descriptor.end(),
                static_cast<std::uint8_t*>(control.data));
      return row.failure != 0 ? -row.failure : static_cast<int>(row.descriptor.size());
    };
    text = L"kept";
    const int code = CodeOf(GetIndexedString(device, 52, capacity, text));
    answer = nullptr;
    EXPECT_EQ(expected.size(), asked);
    EXPECT_EQ(code == 0 ? L"ab" : L"kept", text);
    return code;
  }

  const HidDevice device = Open();
  const Bytes german = {4, 3, 0x07, 0x04}, ab = {6, 3, 'a', 0, 'b', 0};
  std::wstring text;
};

TEST_F(UsbStringTest, AStringIsAskedInTheFirstLanguageOfTheDeviceOrInEnglish) {
  EXPECT_EQ(0, Ask({{0x0300, 0, german}, {0x0334, 0x0407, ab}}));
  EXPECT_EQ(0, Ask({{0x0300, 0, {2, 3}}, {0x0334, 0x0409, ab}}));
  EXPECT_EQ(0, Ask({{0x0300, 0, {}, EPIPE}, {0x0334, 0x0409, ab}}));
  EXPECT_EQ(EIO, Ask({{0x0300, 0, {}, EIO}}));
  EXPECT_EQ(EIO, Ask({{0x0300, 0, german}, {0x0334, 0x0407, {}, EIO}}));
  EXPECT_EQ(EBADMSG, Ask({{0x0300, 0, german}, {0x0334, 0x0407, {6, 2, 'a', 0, 'b', 0}}}));
  EXPECT_EQ(EBADMSG, Ask({{0x0300, 0, german}, {0x0334, 0x0407, {6, 3, 'a', 0}}}));
}

TEST_F(UsbStringTest, AStringMustFitItsCapacityWithItsTerminator) {
  EXPECT_EQ(0, Ask({{0x0300, 0, german}, {0x0334, 0x0407, ab}}, 6));
  EXPECT_EQ(ENOBUFS, Ask({{0x0300, 0, german}, {0x0334, 0x0407, ab}}, 5));
}

TEST_F(UsbStringTest, AnIndexOfNoStringIsRejectedWithoutARequest) {
  answer = [](auto...) { return ADD_FAILURE() << "a request", 0; };
  for (const std::uint32_t index : {0u, 256u}) {
    EXPECT_EQ(EINVAL, CodeOf(GetIndexedString(device, index, 512, text)));
  }
  kernel.Unplug("1");
  EXPECT_EQ(ENODEV, CodeOf(GetIndexedString(device, 52, 512, text)));
}

TEST_F(UsbStringTest, AnotherDeviceThatHasTheUsbFileIsNotAsked) {
  answer = [](auto...) { return ADD_FAILURE() << "a request", 0; };
  fs::remove(usbFile);
  fs::create_symlink("/dev/urandom", usbFile);
  EXPECT_EQ(ENODEV, CodeOf(GetIndexedString(device, 52, 512, text)));
}

TEST(ReportEvent, DoesNotWaitAndIsNotInherited) {
  Event event;
  EXPECT_EQ(0, CodeOf(CreateReportEvent(event)));
  EXPECT_TRUE(event);
}

}  // namespace

}  // namespace qzhid::platform::test
