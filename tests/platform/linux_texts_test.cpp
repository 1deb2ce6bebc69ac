// What the Linux backend makes of descriptors and of the kernel's texts, good and hostile.
#include <gtest/gtest.h>

#include "platform/linux/hid_path.h"
#include "platform/linux/host_facts.h"
#include "platform/linux/report_descriptor.h"
#include "platform/linux/string_descriptor.h"
#include "platform/linux/sysfs_names.h"

namespace qzhid::platform::test {

namespace {

using Bytes = std::vector<std::uint8_t>;
using Numbers = std::vector<std::uint32_t>;

/// "output/input", or "none" for a descriptor that is refused.
std::string Lengths(const Bytes& descriptor) {
  const auto caps = ParseReportDescriptor(descriptor);
  if (!caps) return "none";
  return std::to_string(caps->outputReportLength) + '/' + std::to_string(caps->inputReportLength);
}

TEST(ReportDescriptor, LongestReportsWithTheirIds) {
  const std::tuple<const char*, Bytes, const char*> rows[] = {
      {"empty", {}, "0/0"},
      {"no ids",
       {0x06, 0x00, 0xFF, 0x09, 0x01, 0xA1, 0x01, 0x75, 0x08, 0x96, 0x40, 0x01,
        0x09, 0x02, 0x91, 0x02, 0x96, 0x00, 0x01, 0x09, 0x03, 0x81, 0x02, 0xC0},
       "321/257"},
      {"fields add up, bits round up",
       {0x75, 0x01, 0x95, 0x08, 0x81, 0x02, 0x95, 0x05, 0x91, 0x02, 0x75, 0x08, 0x95, 0x06, 0x81,
        0x00, 0xB1, 0x02},
       "2/8"},
      {"the longest of several ids",
       {0x75, 0x08, 0x85, 0x01, 0x95, 0x3F, 0x91, 0x02, 0x81, 0x02, 0x85,
        0xF0, 0x95, 0x14, 0x91, 0x02, 0x85, 0x01, 0x95, 0x01, 0x91, 0x02},
       "65/64"},
      {"pop restores size, count and id",
       {0x75, 0x08, 0x95, 0x04, 0x85, 0x01, 0xA4, 0x75, 0x10, 0x95, 0x20, 0x85, 0x02, 0xB4, 0x91,
        0x02},
       "5/0"},
      {"four-byte items", {0x77, 0x08, 0, 0, 0, 0x97, 0x0A, 0, 0, 0, 0x81, 0x02}, "0/11"},
      {"long items are skipped",
       {0xFE, 0x02, 0x81, 0xAA, 0xBB, 0x75, 0x08, 0x95, 0x01, 0x81, 0x02},
       "0/2"},
      {"the longest that fits", {0x75, 0x08, 0x96, 0xFE, 0xFF, 0x81, 0x02}, "0/65535"},
      {"one byte more", {0x75, 0x08, 0x96, 0xFF, 0xFF, 0x81, 0x02}, "none"},
      {"more by a second field",
       {0x75, 0x08, 0x96, 0xFE, 0xFF, 0x81, 0x02, 0x95, 0x01, 0x81, 0x02},
       "none"},
      {"numbers that overflow",
       {0x77, 0xFF, 0xFF, 0xFF, 0xFF, 0x97, 0xFF, 0xFF, 0xFF, 0xFF, 0x91, 0x02},
       "none"},
      {"id 0", {0x85, 0x00}, "none"},
      {"id 256", {0x86, 0x00, 0x01}, "none"},
      {"pop of nothing", {0xB4}, "none"},
      {"endless push", Bytes(1000, 0xA4), "none"},
      {"cut short item", {0x75, 0x08, 0x96, 0x40}, "none"},
      {"cut four-byte item", {0x77, 0x08, 0, 0}, "none"},
      {"cut long item", {0xFE, 0x04, 0x10, 0xAA}, "none"},
      {"long item without tag", {0xFE, 0x00}, "none"},
      {"long item without size", {0xFE}, "none"}};
  for (const auto& [name, descriptor, lengths] : rows)
    EXPECT_EQ(lengths, Lengths(descriptor)) << name;
}

TEST(StringDescriptor, TextsAndLanguages) {
  const std::tuple<const char*, Bytes, std::optional<std::wstring>> rows[] = {
      {"text", {6, 3, 'W', 0, 0xF6, 0}, L"W\u00F6"},
      {"beyond 16 bits", {6, 3, 0x3D, 0xD8, 0x0C, 0xDD}, L"\U0001F50C"},
      {"lone halves", {8, 3, 0x3D, 0xD8, 'x', 0, 0x0C, 0xDD}, L"\uFFFDx\uFFFD"},
      {"half at the end", {4, 3, 0x3D, 0xD8}, L"\uFFFD"},
      {"up to a zero", {8, 3, 'a', 0, 0, 0, 'b', 0}, L"a"},
      {"bytes behind it", {4, 3, 'a', 0, 'b', 0}, L"a"},
      {"empty", {2, 3}, L""},
      {"longer than received", {6, 3, 'a', 0}, {}},
      {"odd", {5, 3, 'a', 0, 'b'}, {}},
      {"shorter than its head", {1, 3, 'a', 0}, {}},
      {"another type", {4, 2, 'a', 0}, {}},
      {"one byte", {4}, {}},
      {"nothing", {}, {}}};
  for (const auto& [name, descriptor, text] : rows)
    EXPECT_EQ(text, DecodeString(descriptor)) << name;
  EXPECT_EQ(0x0407, DecodeFirstLanguage({6, 3, 0x07, 0x04, 0x09, 0x04}));
  EXPECT_EQ(std::nullopt, DecodeFirstLanguage({2, 3}));
}

TEST(SysfsNames, LocationPathsOfUsbFolders) {
  const std::string pci = "/sys/devices/pci0000:00/0000:00:14.0/usb1";
  const std::pair<std::string, std::string> rows[] = {
      {pci, "PCIROOT(0)#PCI(1400)#USBROOT(0)"},
      {pci + "/1-3/1-3.2/1-3.2.11", "PCIROOT(0)#PCI(1400)#USBROOT(0)#USB(3)#USB(2)#USB(11)"},
      {"/sys/devices/pci0000:00/0000:00:0e.0/pci10000:e0/10000:e0:1d.7/10000:e1:00.0/usb12/12-1",
       "PCIROOT(0)#PCI(0E00)#PCIROOT(10000E0)#PCI(1D07)#PCI(0000)#USBROOT(0)#USB(1)"},
      {"/sys/devices/platform/soc(0)#1/x.usb/usb3/3-255",
       "DEV(platform)#DEV(soc_0__1)#DEV(x.usb)#USBROOT(0)#USB(255)"},
      {pci + "/1-3/1-3.2/1-3.2:1.0", ""},
      {pci + "/1-3/1-4.2", ""},
      {pci + "/1-3.2", ""},
      {pci + "/2-3", ""},
      {pci + "/1-03", ""},
      {pci + "/1-0", ""},
      {pci + "/1-256", ""},
      {pci + "/1-", ""},
      {pci + "/1-3.", ""},
      {pci + "/1-99999999999", ""},
      {pci + "/1-1/1-1.1/1-1.1.1/1-1.1.1.1/1-1.1.1.1.1/1-1.1.1.1.1.1/1-1.1.1.1.1.1.1", ""},
      {"/sys/devices/usb", ""},
      {"1-1", ""},
      {"/", ""},
      {"", ""}};
  for (const auto& [folder, path] : rows) {
    const auto place = ParseUsbFolder(folder);
    EXPECT_EQ(path, place ? LocationPath(*place, false) : "") << folder;
  }
  EXPECT_EQ("PCIROOT(0)#PCI(1400)#USBROOT(1)", LocationPath(*ParseUsbFolder(pci), true));
}

TEST(SysfsNames, PlacesOfHidrawFolders) {
  const std::string usb = "/sys/devices/pci0000:00/0000:00:14.0/usb1/1-3";
  const std::string hid = "/0003:2E7C:0818.00A1", hidraw = "/hidraw/hidraw10";
  const std::tuple<std::string, std::string, std::string> rows[] = {
      {usb + "/1-3:1.2" + hid + hidraw, usb, "1-3:1.2"},
      {usb + "/1-3:1.2/0003:046D:C52B.0003/0003:2E7C:0818.0004" + hidraw, usb, "1-3:1.2"},
      {"/sys/devices/virtual/misc/uhid" + hid + hidraw, "", ""},
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

TEST(HidPath, CarriesTheNode) {
  std::string file;
  DevInst node = 0;
  EXPECT_TRUE(ParseHidPath(HidPath("/dev/hidraw3", 7), file, node));
  EXPECT_EQ(std::pair(std::string("/dev/hidraw3"), DevInst{7}), std::pair(file, node));
  for (const wchar_t* path : {L"", L"#", L"/dev/hidraw3", L"/dev/hidraw3#", L"/dev/hidraw3#0",
                              L"/dev/hidraw3#7x", L"/dev/hidraw3#-1", L"/dev/hidraw3#4294967296"}) {
    EXPECT_FALSE(ParseHidPath(path, file, node));
  }
}

TEST(HostFacts, OsReleaseAndKernelNames) {
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

}  // namespace

}  // namespace qzhid::platform::test
