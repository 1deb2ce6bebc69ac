// Device files: which one is opened, the requests that it is sent, and how failures are passed on.
#include <linux/capability.h>
#include <linux/usbdevice_fs.h>
#include <sys/syscall.h>

#include "platform/linux/hidraw_requests.h"
#include "platform/linux/kernel_double.h"
#include "platform/system/property_text.h"
#include "support/bytes.h"

namespace qzhid::platform::test {

namespace {

namespace fs = std::filesystem;
using qzhid::test::Bytes;
using qzhid::test::Hex;
using ::testing::ElementsAre;

/// Code and remark of an opening.
using Opening = std::pair<int, std::string>;

/// A device at port 1, whose requests are answered by `answer`, except for the one by which the
/// backend finds out whether the kernel knows the report requests.
class DeviceFileTest : public ::testing::Test {
 protected:
  DeviceFileTest() {
    kernel.answer = [this](unsigned long request, void* argument) {
      const bool isProbe = request == HIDIOCGINPUT(2) && argument == nullptr;
      return isProbe ? -probe : answer(request, argument);
    };
    kernel.Plug("1", 3);
  }

  static std::wstring PathOfFirst() { return PathOf(PresentNodes().at(0)); }
  static Opening Open(const std::wstring& path = PathOfFirst()) {
    HidDevice opened;
    const OpenStatus status = OpenHidDevice(path, opened);
    EXPECT_EQ(status.ok, opened != nullptr);
    return {CodeOf(status), status.remark};
  }

  KernelDouble kernel;
  const std::string file = kernel.Path("/dev/hidraw3");
  int probe = EFAULT;
  std::function<int(unsigned long request, void* argument)> answer = [](auto...) { return 0; };
};

TEST_F(DeviceFileTest, AnotherFileThanThatOfTheNodeIsNotOpened) {
  EXPECT_EQ(Opening(0, ""), Open());
  fs::remove(file);
  fs::create_symlink("/dev/urandom", file);
  EXPECT_EQ(Opening(ENODEV, ""), Open());
  fs::remove(file);
  kernel.Write("/dev/hidraw3", "");
  EXPECT_EQ(Opening(ENODEV, ""), Open()) << "no device file at all";
  fs::remove(file);
  EXPECT_EQ(Opening(ENOENT, ""), Open());
}

TEST_F(DeviceFileTest, APathThatNamesNoPresentNodeIsNotOpened) {
  const std::wstring path = PathOfFirst(), name = path.substr(0, path.find(L'#'));
  for (const wchar_t* number : {L"", L"#", L"#0", L"#7x", L"#-1", L"#4294967296"}) {
    EXPECT_EQ(Opening(ENOENT, ""), Open(name + number)) << ToNarrow(number);
  }
  EXPECT_EQ(Opening(ENODEV, ""), Open(L"/dev/hidraw4" + path.substr(name.size())));
  kernel.Unplug("1");
  EXPECT_EQ(Opening(ENODEV, ""), Open(path));
}

TEST_F(DeviceFileTest, AFileWithoutPermissionToReadAndWriteIsNamed) {
  // Root needs no permission, unless it gives up its privilege.
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct all[2] = {}, few[2] = {};
  ASSERT_EQ(0, syscall(SYS_capget, &header, all));
  std::copy(std::begin(all), std::end(all), few);
  few[0].effective &= ~(1u << CAP_DAC_OVERRIDE | 1u << CAP_DAC_READ_SEARCH);
  for (const fs::perms permissions : {fs::perms::none, fs::perms(0444)}) {
    fs::remove(file);
    kernel.Write("/dev/hidraw3", "");
    fs::permissions(file, permissions);
    ASSERT_EQ(0, syscall(SYS_capset, &header, few));
    const Opening opening = Open();
    ASSERT_EQ(0, syscall(SYS_capset, &header, all));
    EXPECT_EQ(Opening(EACCES, "No permission for " + file), opening);
  }
}

TEST_F(DeviceFileTest, AKernelWithoutTheReportRequestsIsNamed) {
  const std::string remark = "The kernel cannot send reports to hubs, update it to Linux 5.11";
  const std::pair<int, Opening> rows[] = {{EFAULT, {0, ""}},
                                          {0, {0, ""}},
                                          {EINVAL, {ENOSYS, remark}},
                                          {ENOTTY, {ENOSYS, remark}},
                                          {ENODEV, {ENODEV, ""}}};
  for (const auto& [answered, opening] : rows) {
    probe = answered;
    EXPECT_EQ(opening, Open()) << answered;
  }
}

TEST_F(DeviceFileTest, AnInterruptOutEndpointIsRemarkedOnUnlessTheQuirkIsSet) {
  const std::string remark =
      "The kernel sends reports to the interrupt OUT endpoint; if requests fail, set "
      "usbhid.quirks=0x2E7C:0x0818:0x40000";
  const struct {
    const char *endpoint, *type, *direction, *quirks;
    bool isRemarkedOn;
  } rows[] = {{"ep_01", "Bulk", "out", "", false},
              {"ep_01", "Interrupt", "in", "", false},
              {"ep_10", "Interrupt", "out", "", false},
              {"ep_00", "Interrupt", "out", "", false},
              {"ep_01", "Interrupt", "out", "", true},
              {"ep_0f", "Interrupt", "out", "(null),(null)", true},
              {"ep_01", "Interrupt", "out", "0x2e7c:0x0818:0x20000", true},
              {"ep_01", "Interrupt", "out", "0x2e7c:0x0810:0x40000", true},
              {"ep_01", "Interrupt", "out", "0x1a2b:0x0818:0x40000", true},
              {"ep_01", "Interrupt", "out", "0x2e7c:0x0818", true},
              {"ep_01", "Interrupt", "out", "0x2e7c:0x0818:0x99999999999", true},
              {"ep_01", "Interrupt", "out", ":::,,", true},
              {"ep_01", "Interrupt", "out", "0x2E7C:0x0818:0x00040000", false},
              {"ep_01", "Interrupt", "out", "0X2e7c:0x818:0x40000,(null),(null)", false},
              {"ep_01", "Interrupt", "out", "(null),0x2e7c:0x0818:0x60004", false},
              {"ep_01", "Interrupt", "out", "2e7c:818:40000", false}};
  for (const auto& row : rows) {
    const std::string endpoint = kernel.UsbFolder("1") + "/1-1:1.0/" + row.endpoint;
    kernel.Write(endpoint + "/type", std::string(row.type) + '\n');
    kernel.Write(endpoint + "/direction", std::string(row.direction) + '\n');
    kernel.Write("/sys/module/usbhid/parameters/quirks", std::string(row.quirks) + '\n');
    EXPECT_EQ(Opening(0, row.isRemarkedOn ? remark : ""), Open()) << row.endpoint << row.quirks;
    kernel.Unplug("1");  // what a node is, is read once
    kernel.Plug("1", 3);
  }
}

/// The device of DeviceFileTest, which is open.
class OpenDeviceTest : public DeviceFileTest {
 protected:
  OpenDeviceTest() { EXPECT_EQ(0, CodeOf(OpenHidDevice(PathOfFirst(), device))); }

  HidDevice device;
};

TEST_F(OpenDeviceTest, AReportGoesWithTheRequestOfItsLengthUntilNoSignalInterruptsIt) {
  const std::uint32_t longest = (1u << 14) - 1;
  Bytes report(longest + 1);
  std::vector<unsigned long> requests;
  answer = [&](unsigned long request, void* argument) {
    EXPECT_EQ(report.data(), argument);
    requests.push_back(request);
    return requests.size() % 2 == 1 ? -EINTR : 5;
  };
  EXPECT_EQ(0, CodeOf(SetOutputReport(device, report.data(), longest)));
  EXPECT_EQ(0, CodeOf(GetInputReport(device, report.data(), 1)));
  for (const std::uint32_t length : {0u, longest + 1}) {
    EXPECT_EQ(EINVAL, CodeOf(SetOutputReport(device, report.data(), length)));
    EXPECT_EQ(EINVAL, CodeOf(GetInputReport(device, report.data(), length)));
  }
  EXPECT_THAT(requests, ElementsAre(HIDIOCSOUTPUT(longest), HIDIOCSOUTPUT(longest), HIDIOCGINPUT(1),
                                    HIDIOCGINPUT(1)));
  answer = [](auto...) { return -EPIPE; };
  EXPECT_EQ(EPIPE, CodeOf(SetOutputReport(device, report.data(), 1)));
  EXPECT_EQ(EPIPE, CodeOf(GetInputReport(device, report.data(), longest)));
  EXPECT_EQ(EBADF, CodeOf(SetOutputReport(nullptr, report.data(), 1)));
  EXPECT_EQ(EBADF, CodeOf(GetInputReport(nullptr, report.data(), 1)));
}

TEST_F(OpenDeviceTest, TheReportDescriptorIsReadInItsSizeOrFailsWithTheKernelsCode) {
  const Bytes descriptor = Hex("75 08 95 04 91 02 95 08 81 02");
  const struct {
    int size, sizeResult, result;  // what the kernel answers
    int code;
  } rows[] = {{10, 0, 0, 0},       {10, -EIO, 0, EIO},    {10, 0, -EIO, EIO},
              {-1, 0, 0, EBADMSG}, {4097, 0, 0, EBADMSG}, {9, 0, 0, EBADMSG}};
  PreparsedData preparsed;
  EXPECT_EQ(EBADF, CodeOf(GetPreparsedData(nullptr, preparsed)));
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
    HidCaps caps;
    EXPECT_EQ(row.code, CodeOf(GetPreparsedData(device, preparsed))) << row.size;
    EXPECT_EQ(row.code == 0 ? 0 : EBADF, CodeOf(GetCaps(preparsed, caps)));
    EXPECT_EQ(row.code == 0 ? std::pair(5, 9) : std::pair(0, 0),
              std::pair(caps.outputReportLength + 0, caps.inputReportLength + 0));
  }
}

/// What the device answers to a request for a string descriptor: bytes or a failure.
struct Answer {
  const char* digits = "";
  int failure = 0;
};

TEST_F(OpenDeviceTest,
       AStringIsAskedInTheFirstLanguageOfTheDeviceOrInEnglishAndMustFitItsCapacity) {
  const Answer german{"06 03 07 04 09 04"};
  const struct {
    const char* name;
    Answer languages;
    std::uint16_t asked;  // the language of the second request, if there is one
    Answer string;
    int code;
    std::wstring text;
  } rows[] = {{"text", german, 0x0407, {"06 03 57 00 F6 00"}, 0, L"W\u00F6"},
              {"no languages", {"02 03"}, 0x0409, {"04 03 57 00"}, 0, L"W"},
              {"languages refused", {"", EPIPE}, 0x0409, {"04 03 57 00"}, 0, L"W"},
              {"languages failed", {"", EIO}, 0, {}, EIO, {}},
              {"text failed", german, 0x0407, {"", EIO}, EIO, {}},
              {"beyond 16 bits", german, 0x0407, {"06 03 3D D8 0C DD"}, 0, L"\U0001F50C"},
              {"lone halves", german, 0x0407, {"08 03 3D D8 78 00 0C DD"}, 0, L"\uFFFDx\uFFFD"},
              {"up to a zero", german, 0x0407, {"08 03 61 00 00 00 62 00 7A 00"}, 0, L"a"},
              {"empty", german, 0x0407, {"02 03"}, 0, L""},
              {"longer than received", german, 0x0407, {"06 03 61 00"}, EBADMSG, {}},
              {"odd", german, 0x0407, {"05 03 61 00 62"}, EBADMSG, {}},
              {"shorter than its head", german, 0x0407, {"01 03 61 00"}, EBADMSG, {}},
              {"another type", german, 0x0407, {"04 02 61 00"}, EBADMSG, {}},
              {"one byte", german, 0x0407, {"04"}, EBADMSG, {}},
              {"nothing", german, 0x0407, {}, EBADMSG, {}}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    std::vector<std::pair<int, int>> requests;
    answer = [&](unsigned long request, void* argument) {
      EXPECT_EQ(USBDEVFS_CONTROL, request);
      const auto& control = *static_cast<usbdevfs_ctrltransfer*>(argument);
      EXPECT_EQ(std::tuple(0x80, 6, 255),
                std::tuple(control.bRequestType + 0, control.bRequest + 0, control.wLength + 0));
      const Answer& given = requests.empty() ? row.languages : row.string;
      requests.emplace_back(control.wValue, control.wIndex);
      const Bytes bytes = Hex(given.digits);
      std::copy(bytes.begin(), bytes.end(), static_cast<std::uint8_t*>(control.data));
      return given.failure != 0 ? -given.failure : static_cast<int>(bytes.size());
    };
    std::vector<std::pair<int, int>> expected{{0x0300, 0}};
    if (row.asked != 0) expected.emplace_back(0x0334, row.asked);
    const std::size_t bytes = (Utf16Units(row.text) + 1) * 2;  // with the terminator
    std::wstring text = L"kept";
    EXPECT_EQ(row.code == 0 ? ENOBUFS : row.code,
              CodeOf(GetIndexedString(device, 52, bytes - 1, text)));
    EXPECT_EQ(L"kept", text);
    EXPECT_EQ(expected, requests);
    requests.clear();
    EXPECT_EQ(row.code, CodeOf(GetIndexedString(device, 52, bytes, text)));
    EXPECT_EQ(row.code == 0 ? row.text : L"kept", text);
  }
}

TEST_F(OpenDeviceTest, WithoutASuitableIndexOrItsOwnUsbFileADeviceIsAskedForNoString) {
  answer = [](auto...) { return ADD_FAILURE() << "a request", 0; };
  std::wstring text;
  EXPECT_EQ(EBADF, CodeOf(GetIndexedString(nullptr, 52, 512, text)));
  EXPECT_EQ(EINVAL, CodeOf(GetIndexedString(device, 0, 512, text)));
  EXPECT_EQ(EINVAL, CodeOf(GetIndexedString(device, 256, 512, text)));
  const std::string usbFile = kernel.Path("/dev/bus/usb/001/002");
  fs::remove(usbFile);
  fs::create_symlink("/dev/urandom", usbFile);
  EXPECT_EQ(ENODEV, CodeOf(GetIndexedString(device, 52, 512, text))) << "of another device";
  kernel.Unplug("1");
  EXPECT_EQ(ENODEV, CodeOf(GetIndexedString(device, 52, 512, text)));
}

}  // namespace

}  // namespace qzhid::platform::test
