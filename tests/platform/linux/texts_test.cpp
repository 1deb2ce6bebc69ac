// What the Linux backend makes of descriptors and of the kernel's texts, good and hostile.
#include <gtest/gtest.h>

#include "platform/linux/hid_path.h"
#include "platform/linux/host_facts.h"
#include "platform/linux/out_endpoint.h"
#include "platform/linux/report_descriptor.h"
#include "platform/linux/string_descriptor.h"
#include "platform/linux/sysfs_names.h"
#include "support/bytes.h"

namespace qzhid::platform::test {

namespace {

using qzhid::test::Bytes;
using qzhid::test::Hex;
using Numbers = std::vector<std::uint32_t>;

/// "output/input", or "none" for a descriptor that is refused.
std::string Lengths(const Bytes& descriptor) {
  const auto caps = ParseReportDescriptor(descriptor);
  if (!caps) return "none";
  return std::to_string(caps->outputReportLength) + '/' + std::to_string(caps->inputReportLength);
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
      {"id 256", "86 00 01", "none"},
      {"pop of nothing", "B4", "none"},
      {"cut short item", "75 08 96 40", "none"},
      {"cut four-byte item", "77 08 00 00", "none"},
      {"cut long item", "FE 04 10 AA", "none"},
      {"long item without tag", "FE 00", "none"},
      {"long item without size", "FE", "none"}};
  for (const auto& [name, digits, lengths] : rows) EXPECT_EQ(lengths, Lengths(Hex(digits))) << name;
  EXPECT_EQ("none", Lengths(Bytes(1000, 0xA4))) << "endless push";
}

TEST(StringDescriptor, ATextEndsAtItsFirstZeroAndAMalformedOneIsRejected) {
  const std::tuple<const char*, const char*, std::optional<std::wstring>> rows[] = {
      {"text", "06 03 57 00 F6 00", L"W\u00F6"},
      {"beyond 16 bits", "06 03 3D D8 0C DD", L"\U0001F50C"},
      {"lone halves", "08 03 3D D8 78 00 0C DD", L"\uFFFDx\uFFFD"},
      {"half at the end", "04 03 3D D8", L"\uFFFD"},
      {"up to a zero, without what follows", "08 03 61 00 00 00 62 00 7A 00", L"a"},
      {"empty", "02 03", L""},
      {"longer than received", "06 03 61 00", {}},
      {"odd", "05 03 61 00 62", {}},
      {"shorter than its head", "01 03 61 00", {}},
      {"another type", "04 02 61 00", {}},
      {"one byte", "04", {}},
      {"nothing", "", {}}};
  for (const auto& [name, digits, text] : rows) EXPECT_EQ(text, DecodeString(Hex(digits))) << name;
  EXPECT_EQ(0x0407, DecodeFirstLanguage(Hex("06 03 07 04 09 04")));
  EXPECT_EQ(std::nullopt, DecodeFirstLanguage(Hex("02 03")));
}

TEST(SysfsNames, AUsbFolderHasALocationPathFromItsController) {
  const std::string pci = "/sys/devices/pci0000:00/0000:00:14.0/usb1";
  const std::pair<std::string, std::string> rows[] = {
      {pci, "PCIROOT(0)#PCI(1400)#USBROOT(0)"},
      {pci + "/1-3/1-3.2/1-3.2.11", "PCIROOT(0)#PCI(1400)#USBROOT(0)#USB(3)#USB(2)#USB(11)"},
      {"/sys/devices/pci0000:00/0000:00:0e.0/pci10000:e0/10000:e0:1d.7/10000:e1:00.0/usb12/12-1",
       "PCIROOT(0)#PCI(0E00)#PCIROOT(10000E0)#PCI(1D07)#PCI(0000)#USBROOT(0)#USB(1)"},
      {"/sys/devices/platform/soc(0)#1/x.usb/usb3/3-255",
       "DEV(platform)#DEV(soc_0__1)#DEV(x.usb)#USBROOT(0)#USB(255)"},
      {"/sys/devices/platform/fe8.usb/xhci-hcd.0.auto/usb1/1-2",
       "DEV(platform)#DEV(fe8.usb)#DEV(xhci-hcd)#USBROOT(0)#USB(2)"},
      {"/sys/devices/platform/fe8.usb/xhci-hcd.13.auto/usb4/4-2",
       "DEV(platform)#DEV(fe8.usb)#DEV(xhci-hcd)#USBROOT(0)#USB(2)"},
      {"/sys/devices/x.auto/y.z.auto/.auto/vhci_hcd.0/usb1",
       "DEV(x.auto)#DEV(y.z.auto)#DEV(.auto)#DEV(vhci_hcd.0)#USBROOT(0)"}};
  for (const auto& [folder, path] : rows) {
    const auto place = ParseUsbFolder(folder);
    EXPECT_EQ(path, place ? LocationPath(*place, false) : "") << folder;
  }
  for (const char* folder :
       {"/1-3/1-3.2/1-3.2:1.0", "/1-3/1-4.2", "/1-3.2", "/2-3", "/1-03", "/1-0", "/1-256", "/1-",
        "/1-3.", "/usb", "/1-99999999999",
        "/1-1/1-1.1/1-1.1.1/1-1.1.1.1/1-1.1.1.1.1/1-1.1.1.1.1.1/1-1.1.1.1.1.1.1", "/"}) {
    EXPECT_FALSE(ParseUsbFolder(pci + folder)) << folder;
  }
  EXPECT_FALSE(ParseUsbFolder(""));
  EXPECT_FALSE(ParseUsbFolder("1-1"));
  EXPECT_EQ("PCIROOT(0)#PCI(1400)#USBROOT(1)", LocationPath(*ParseUsbFolder(pci), true));
}

TEST(SysfsNames, AHidrawFolderNamesItsIdsAndItsInterface) {
  const std::string usb = "/sys/devices/pci0000:00/0000:00:14.0/usb1/1-3";
  const std::string hid = "/0003:2E7C:0818.00A1", hidraw = "/hidraw/hidraw10";
  const std::tuple<std::string, std::string, std::string> rows[] = {
      {usb + "/1-3:1.2" + hid + hidraw, usb, "1-3:1.2"},
      {usb + "/1-3:1.2/0003:046D:C52B.0003/0003:2E7C:0818.0004" + hidraw, usb, "1-3:1.2"},
      {"/sys/devices/virtual/misc/uhid" + hid + hidraw, "", ""},
      {usb + "/1-3:1.2/bluetooth/hci0/hci0:11/0005:2E7C:0818.00A1" + hidraw, "", ""},
      {usb + "/1-4:1.2" + hid + hidraw, "", ""},
      {usb + "/1-3:1" + hid + hidraw, "", ""}};
  for (const auto& [folder, usbFolder, interface] : rows) {
    const auto place = ParseHidrawFolder(folder);
    ASSERT_TRUE(place) << folder;
    EXPECT_EQ(std::pair(0x2E7Cu, 0x0818u), std::pair(place->vid, place->pid));
    EXPECT_EQ(std::pair(usbFolder, interface), std::pair(place->usbFolder, place->usbInterface));
    EXPECT_EQ(interface.empty() ? 0u : 2u, place->interfaceNumber);
  }
  for (const char* folder :
       {"", "/", "hidraw0", "/x/hidraw/hidraw0", "/0003:2E7C:0818.1/hidraw/hidraw",
        "/0003:2E7C:0818.1/raw/hidraw0", "/0003:2E7C:0818/hidraw/hidraw0",
        "/0003:12E7C:0818.1/hidraw/hidraw0", "/3:-1:0.1/hidraw/hidraw0"}) {
    EXPECT_FALSE(ParseHidrawFolder(folder)) << folder;
  }
}

TEST(HidPath, AnInterfacePathCarriesItsNode) {
  std::string file;
  DevInst node = 0;
  EXPECT_TRUE(ParseHidPath(HidPath("/dev/hidraw3", 7), file, node));
  EXPECT_EQ(std::pair(std::string("/dev/hidraw3"), DevInst{7}), std::pair(file, node));
  for (const wchar_t* path : {L"", L"#", L"/dev/hidraw3", L"/dev/hidraw3#", L"/dev/hidraw3#0",
                              L"/dev/hidraw3#7x", L"/dev/hidraw3#-1", L"/dev/hidraw3#4294967296"}) {
    EXPECT_FALSE(ParseHidPath(path, file, node));
  }
}

TEST(HostFacts, TheHostsTextsAreReadAsAShellWouldReadThem) {
  const std::string text = "NAME=Other\nPRETTY_NAME_X=no\n# PRETTY_NAME=no\nPRETTY_NAME=";
  const std::pair<std::string, const char*> values[] = {
      {"\"Debian GNU/Linux 12\"\nX=1", "Debian GNU/Linux 12"},
      {"'a\\b'", "a\\b"},
      {"\"a \\\"b\\\" \\$c\"", "a \"b\" $c"},
      {"plain", "plain"},
      {"\"open", "open"},
      {"end\\", "end\\"},
      {"", ""}};
  for (const auto& [value, plain] : values)
    EXPECT_EQ(plain, OsReleaseValue(text + value, "PRETTY_NAME"));
  EXPECT_EQ(std::nullopt, OsReleaseValue("PRETTY_NAME", "PRETTY_NAME"));

  const std::pair<const char*, Numbers> releases[] = {{"6.1.0-56-amd64", {6, 1, 0, 56}},
                                                      {"6.9.7-arch1-1", {6, 9, 7}},
                                                      {"5.11", {5, 11, 0}},
                                                      {"99999999999.1", {0, 0, 0}},
                                                      {"", {0, 0, 0}}};
  for (const auto& [release, numbers] : releases) {
    const KernelRelease parsed = ParseKernelRelease(release);
    Numbers found = {parsed.major, parsed.minor, parsed.build};
    if (parsed.updateRevision) found.push_back(*parsed.updateRevision);
    EXPECT_EQ(numbers, found) << release;
  }
  const std::pair<const char*, Architecture> machines[] = {{"x86_64", Architecture::X64},
                                                           {"aarch64", Architecture::Arm64},
                                                           {"i686", Architecture::X86},
                                                           {"riscv64", Architecture::Unknown},
                                                           {"", Architecture::Unknown}};
  for (const auto& [machine, architecture] : machines)
    EXPECT_EQ(architecture, ParseMachine(machine));
}

TEST(OutEndpoint, TheKernelKeepsOffItWhereTheQuirkSaysSo) {
  const std::pair<const char*, bool> rows[] = {{"0x2E7C:0x0818:0x00040000", true},
                                               {"0x2e7c:0x818:0x40000,(null),(null),(null)", true},
                                               {"(null),0x2e7c:0x0818:0x60004", true},
                                               {"2e7c:818:40000", true},
                                               {"0x2e7c:0x0818:0x20000", false},
                                               {"0x2e7c:0x0810:0x40000", false},
                                               {"0x1a2b:0x0818:0x40000", false},
                                               {"0x2e7c:0x0818", false},
                                               {"0x2e7c:0x0818:0x99999999999", false},
                                               {"(null),(null)", false},
                                               {":::,,", false},
                                               {"", false}};
  for (const auto& [quirks, isSet] : rows) {
    EXPECT_EQ(isSet, KeepsOffEndpoint(quirks, 0x2E7C, 0x0818)) << quirks;
  }
}

}  // namespace

}  // namespace qzhid::platform::test
