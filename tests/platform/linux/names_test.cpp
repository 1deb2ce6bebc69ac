// What the Linux backend makes of report descriptors and of the kernel's texts, good and hostile.
#include <gtest/gtest.h>

#include "platform/linux/host_facts.h"
#include "platform/linux/report_descriptor.h"
#include "platform/linux/sysfs_names.h"
#include "support/bytes.h"

namespace qzhid::platform::test {

namespace {

using qzhid::test::Bytes;
using qzhid::test::Hex;

/// "output/input", or "none" for a descriptor that is refused.
std::string Lengths(const Bytes& descriptor) {
  const auto caps = ParseReportDescriptor(descriptor);
  return !caps ? "none"
               : std::to_string(caps->outputReportLength) + '/' +
                     std::to_string(caps->inputReportLength);
}

TEST(ReportDescriptor, TheLengthsOfTheLongestReportsCountTheirIds) {
  const std::tuple<const char*, const char*, const char*> rows[] = {
      {"empty", "", "0/0"},
      {"no ids", "06 00 FF 09 01 A1 01 75 08 96 40 01 09 02 91 02 96 00 01 09 03 81 02 C0",
       "321/257"},
      {"fields add up, bits round up", "75 01 95 08 81 02 95 05 91 02 75 08 95 06 81 00 B1 02",
       "2/8"},
      {"the longest of several ids",
       "75 08 85 01 95 3F 91 02 81 02 85 F0 95 14 91 02 85 01 95 01 91 02", "65/64"},
      {"pop restores size, count and id", "75 08 95 04 85 01 A4 75 10 95 20 85 02 B4 91 02", "5/0"},
      {"four-byte items", "77 08 00 00 00 97 0A 00 00 00 81 02", "0/11"},
      {"long items are skipped", "FE 02 81 AA BB 75 08 95 01 81 02", "0/2"},
      {"the longest that fits", "75 08 96 FE FF 81 02", "0/65535"},
      {"one byte more", "75 08 96 FF FF 81 02", "none"},
      {"more by a second field", "75 08 96 FE FF 81 02 95 01 81 02", "none"},
      {"numbers that overflow", "77 FF FF FF FF 97 FF FF FF FF 91 02", "none"},
      {"id 0", "85 00", "none"},
      {"id 255", "85 FF 75 08 95 01 81 02", "0/2"},
      {"id 256", "86 00 01", "none"},
      {"pop of nothing", "B4", "none"},
      {"cut short item", "75 08 96 40", "none"},
      {"cut four-byte item", "77 08 00 00", "none"},
      {"cut long item", "FE 04 10 AA", "none"},
      {"long item without tag", "FE 00", "none"},
      {"long item without size", "FE", "none"}};
  for (const auto& [name, digits, lengths] : rows) EXPECT_EQ(lengths, Lengths(Hex(digits))) << name;
  EXPECT_EQ("0/0", Lengths(Bytes(64, 0xA4))) << "pushes";
  EXPECT_EQ("none", Lengths(Bytes(65, 0xA4))) << "endless pushes";
}

TEST(SysfsNames, AUsbFolderHasALocationPathFromItsController) {
  const std::string pci = "/sys/devices/pci0000:00/0000:00:14.0/usb1";
  const std::pair<std::string, std::string> rows[] = {
      {pci, "PCIROOT(0)#PCI(1400)#USBROOT(0)"},
      {pci + "/1-3/1-3.2/1-3.2.11", "PCIROOT(0)#PCI(1400)#USBROOT(0)#USB(3)#USB(2)#USB(11)"},
      {"/sys/devices/pci0000:00/0000:00:0e.0/pci10000:e0/10000:e0:1f.7/10000:e1:00.0/usb12/12-1",
       "PCIROOT(0)#PCI(0E00)#PCIROOT(10000E0)#PCI(1F07)#PCI(0000)#USBROOT(0)#USB(1)"},
      {"/sys/devices/pcifffff:ff/pci100000:00/pci0:100/0000:00:20.0/0000:00:1f.8/usb1",
       "PCIROOT(FFFFFFF)#DEV(pci100000:00)#DEV(pci0:100)#DEV(0000:00:20.0)#DEV(0000:00:1f.8)#"
       "USBROOT(0)"},
      {"/sys/devices/platform/soc(0)#1/x.usb/usb3/3-255",
       "DEV(platform)#DEV(soc_0__1)#DEV(x.usb)#USBROOT(0)#USB(255)"},
      {"/sys/devices/platform/fe8.usb/xhci-hcd.13.auto/usb4/4-2",
       "DEV(platform)#DEV(fe8.usb)#DEV(xhci-hcd)#USBROOT(0)#USB(2)"},
      {"/sys/devices/x.auto/y.z.auto/.auto/vhci_hcd.0/usb1",
       "DEV(x.auto)#DEV(y.z.auto)#DEV(.auto)#DEV(vhci_hcd.0)#USBROOT(0)"},
      {"", "none"},
      {"1-1", "none"}};
  const auto pathOf = [](const std::string& folder, bool isSuperSpeed) {
    const auto place = ParseUsbFolder(folder);
    return place ? LocationPath(*place, isSuperSpeed) : "none";
  };
  for (const auto& [folder, path] : rows) EXPECT_EQ(path, pathOf(folder, false)) << folder;
  EXPECT_EQ("PCIROOT(0)#PCI(1400)#USBROOT(1)", pathOf(pci, true));
  for (const char* folder :
       {"/1-3/1-3.2/1-3.2:1.0", "/1-3/1-4.2", "/1-3.2", "/2-3", "/1-03", "/1-0", "/1-256", "/1-",
        "/1-3.", "/usb", "/1-99999999999",
        "/1-1/1-1.1/1-1.1.1/1-1.1.1.1/1-1.1.1.1.1/1-1.1.1.1.1.1/1-1.1.1.1.1.1.1", "/"}) {
    EXPECT_EQ("none", pathOf(pci + folder, false)) << folder;
  }
}

TEST(SysfsNames, AHidrawFolderNamesItsIdsAndItsInterface) {
  const std::string usb = "/sys/devices/pci0000:00/0000:00:14.0/usb1/1-3",
                    hid = "/0003:2E7C:0818.00A1", hidraw = "/hidraw/hidraw10", ids = "2E7C:0818 ",
                    found = ids + usb + " 1-3:1.2 2", unknown = ids + "  0";
  const std::pair<std::string, std::string> rows[] = {
      {usb + "/1-3:1.2" + hid + hidraw, found},
      {usb + "/1-3:1.2/0003:046D:C52B.0003/0003:2E7C:0818.0004" + hidraw, found},
      {"/sys/devices/virtual/misc/uhid" + hid + hidraw, unknown},
      {usb + "/1-3:1.2/bluetooth/hci0/hci0:11/0005:2E7C:0818.00A1" + hidraw, unknown},
      {usb + "/1-4:1.2" + hid + hidraw, unknown},
      {usb + "/1-3:1" + hid + hidraw, unknown},
      {"", "none"},
      {"/", "none"},
      {"hidraw0", "none"},
      {"/x/hidraw/hidraw0", "none"},
      {"/0003:2E7C:0818.1/hidraw/hidraw", "none"},
      {"/0003:2E7C:0818.1/raw/hidraw0", "none"},
      {"/0003:2E7C:0818/hidraw/hidraw0", "none"},
      {"/0003:12E7C:0818.1/hidraw/hidraw0", "none"},
      {"/3:-1:0.1/hidraw/hidraw0", "none"}};
  for (const auto& [folder, text] : rows) {
    const auto place = ParseHidrawFolder(folder);
    EXPECT_EQ(text, !place
                        ? "none"
                        : Hex4(place->vid) + ':' + Hex4(place->pid) + ' ' + place->usbFolder + ' ' +
                              place->usbInterface + ' ' + std::to_string(place->interfaceNumber))
        << folder;
  }
}

TEST(HostFacts, AnOsReleaseFileIsReadAsAShellWouldReadIt) {
  const std::string text = "NAME=Other\nPRETTY_NAME_X=no\n# PRETTY_NAME=no\nPRETTY_NAME";
  const std::pair<std::string, std::optional<std::string>> rows[] = {
      {"=\"Debian GNU/Linux 12\"\nX=1", "Debian GNU/Linux 12"},
      {"='a\\b'", "a\\b"},
      {"=\"a \\\"b\\\" \\$c\"", "a \"b\" $c"},
      {"=plain", "plain"},
      {"=\"open", "open"},
      {"=end\\", "end\\"},
      {"=", ""},
      {"", {}}};
  for (const auto& [value, plain] : rows)
    EXPECT_EQ(plain, OsReleaseValue(text + value, "PRETTY_NAME")) << value;
}

TEST(HostFacts, AKernelIsKnownByItsNumbersAndItsProcessorByItsName) {
  const std::pair<const char*, std::vector<std::uint32_t>> releases[] = {
      {"6.1.0-56-amd64", {6, 1, 0, 56}},
      {"6.9.7-arch1-1", {6, 9, 7, 777}},
      {"5.11", {5, 11, 0, 777}},
      {"99999999999.1", {0, 0, 0, 777}},
      {"", {0, 0, 0, 777}}};
  for (const auto& [text, numbers] : releases) {
    const KernelRelease found = ParseKernelRelease(text);
    EXPECT_EQ(numbers, (std::vector{found.major, found.minor, found.build,
                                    found.updateRevision.value_or(777)}));
  }
  using enum Architecture;
  const std::pair<const char*, Architecture> machines[] = {
      {"x86_64", X64}, {"aarch64", Arm64}, {"i686", X86}, {"riscv64", Unknown}, {"", Unknown}};
  for (const auto& [name, found] : machines) EXPECT_EQ(found, ParseMachine(name)) << name;
}

}  // namespace

}  // namespace qzhid::platform::test
