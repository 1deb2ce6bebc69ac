// The library on the system's own services for devices, with the two HID devices that Wine has
// built in: a mouse and a keyboard. Finding them, their paths, opening, descriptors, report
// lengths, error codes and closing are the system's. Only what Wine does not have is supplied, see
// kParts.
#include <gmock/gmock.h>

#include <filesystem>

#include "support/temp_file.h"
#include "test_system.h"
#include "windows/import_table.h"

// After the general Windows header.
extern "C" {
#include <hidsdi.h>
}
#include <cfgmgr32.h>
#include <setupapi.h>

namespace qzhid::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsSupersetOf;

/// The HID nodes that are present, as long as it lives.
class SystemNodes {
 public:
  SystemNodes() : m_Set(SetupDiGetClassDevsW(&Class(), nullptr, nullptr, kPresent)) {}
  ~SystemNodes() { SetupDiDestroyDeviceInfoList(m_Set); }
  SystemNodes(const SystemNodes&) = delete;
  SystemNodes& operator=(const SystemNodes&) = delete;

  std::vector<SP_DEVINFO_DATA> All() const {
    std::vector<SP_DEVINFO_DATA> nodes;
    SP_DEVINFO_DATA node = {};
    node.cbSize = sizeof(node);
    while (SetupDiEnumDeviceInfo(m_Set, static_cast<DWORD>(nodes.size()), &node)) {
      nodes.push_back(node);
    }
    return nodes;
  }
  static std::wstring IdOf(HDEVINFO set, SP_DEVINFO_DATA& node) {
    wchar_t id[MAX_DEVICE_ID_LEN] = {};
    SetupDiGetDeviceInstanceIdW(set, &node, id, MAX_DEVICE_ID_LEN, nullptr);
    return id;
  }
  /// The number here of the node with that id.
  DEVINST NumberOf(const std::wstring& id) const {
    for (SP_DEVINFO_DATA& node : All()) {
      if (IdOf(m_Set, node) == id) return node.DevInst;
    }
    return 0;
  }
  std::wstring HardwareIds(DEVINST number) const {
    wchar_t ids[512] = {};
    DWORD bytes = 0;
    for (SP_DEVINFO_DATA& node : All()) {
      if (node.DevInst != number) continue;
      SetupDiGetDeviceRegistryPropertyW(m_Set, &node, SPDRP_HARDWAREID, nullptr,
                                        reinterpret_cast<BYTE*>(ids), sizeof(ids), &bytes);
    }
    return {ids, bytes / sizeof(wchar_t)};
  }

 private:
  static constexpr DWORD kPresent = DIGCF_PRESENT | DIGCF_DEVICEINTERFACE;
  static const GUID& Class() {
    static const GUID guid = [] {
      GUID hid;
      HidD_GetHidGuid(&hid);
      return hid;
    }();
    return guid;
  }

  const HDEVINFO m_Set;
};

/// The number of a USB node is that of its HID node and this.
constexpr DEVINST kUsbNodes = 0x1000;
constexpr DEVINST kRootHub = 0x2000;

const SystemNodes* g_nodes;           // whose numbers the library gets
std::vector<ULONG> g_stringCapacity;  // of each string that was asked for

BOOL WINAPI EnumNode(HDEVINFO set, DWORD index, PSP_DEVINFO_DATA node) {
  if (!SetupDiEnumDeviceInfo(set, index, node)) return FALSE;
  node->DevInst = g_nodes->NumberOf(SystemNodes::IdOf(set, *node));
  return TRUE;
}

CONFIGRET WINAPI FindParent(PDEVINST parent, DEVINST node, ULONG) {
  if (node == kRootHub) return CR_NO_SUCH_DEVNODE;
  *parent = node < kUsbNodes ? node + kUsbNodes : kRootHub;
  return CR_SUCCESS;
}

CONFIGRET WINAPI ReadId(DEVINST node, PSTR buffer, ULONG capacity, ULONG flags) {
  if (node < kUsbNodes) return CM_Get_Device_IDA(node, buffer, capacity, flags);
  std::snprintf(buffer, capacity, "%s", node == kRootHub ? "USB\\ROOT_HUB30\\0" : "USB\\0");
  return CR_SUCCESS;
}

CONFIGRET WINAPI ReadProperty(DEVINST node, const DEVPROPKEY* key, DEVPROPTYPE*, PBYTE buffer,
                              PULONG bytes, ULONG) {
  std::wstring value;
  if (key->pid == 3) value = g_nodes->HardwareIds(node);
  if (key->pid == 30) value = {static_cast<wchar_t>(node - kUsbNodes), L'\0'};
  if (key->pid == 37) value = L"USB(" + std::to_wstring(node - kUsbNodes) + L")" + L'\0' + L'\0';
  if (*bytes < value.size() * sizeof(wchar_t)) return CR_BUFFER_SMALL;
  *bytes = static_cast<ULONG>(value.size() * sizeof(wchar_t));
  std::copy_n(reinterpret_cast<const BYTE*>(value.data()), *bytes, buffer);
  return value.empty() ? CR_NO_SUCH_VALUE : CR_SUCCESS;
}

BOOLEAN NTAPI ReadString(HANDLE, ULONG index, PVOID buffer, ULONG bytes) {
  const std::wstring text = L"WQ HID";
  g_stringCapacity.push_back(bytes);
  const bool fits = index == 52 && bytes >= (text.size() + 1) * sizeof(wchar_t);
  if (fits) std::copy_n(text.c_str(), text.size() + 1, static_cast<wchar_t*>(buffer));
  if (!fits) SetLastError(ERROR_INSUFFICIENT_BUFFER);
  return fits;
}

void WINAPI DoNotWait(DWORD) {}

/// A function that is supplied, and the system's own.
struct Part {
  const char* name;
  void* supplied;
  void* system;
  const char* failure;  ///< what the log says without it, with the system's code
};
template <class Function>
Part MakePart(const char* name, Function* system, Function* supplied, const char* failure) {
  return {name, reinterpret_cast<void*>(supplied), reinterpret_cast<void*>(system), failure};
}
const Part kParts[] = {
    // Wine numbers the nodes of each open set anew; elsewhere a node has one number.
    MakePart("SetupDiEnumDeviceInfo", SetupDiEnumDeviceInfo, EnumNode, "List Hid Device Fail\n"),
    // In Wine no node has a parent.
    MakePart("CM_Get_Parent", CM_Get_Parent, FindParent, "Get Parent Devinst fail,Error:0xd\n"),
    // The ids of those parents. Those of the HID nodes are Wine's.
    MakePart("CM_Get_Device_IDA", CM_Get_Device_IDA, ReadId, "Get Dev Level Fail\n"),
    // Wine's configuration manager has no properties. The hardware ids are those that Wine's
    // device-installation services give; the port and the location path belong to the parents.
    MakePart("CM_Get_DevNode_PropertyW", CM_Get_DevNode_PropertyW, ReadProperty,
             "Get Dev Hw Id Fail,ErrorCode:0x25\n"),
    // The built-in devices have no string 52.
    MakePart("HidD_GetIndexedString", HidD_GetIndexedString, ReadString,
             "HidD_GetIndexedString failed,Error Code:50\n"),
};

/// Lets the library use the supplied parts, without one of them if it is named.
void Supply(std::string_view without = "") {
  // A device that does not answer is asked for many seconds; these take no time.
  Replacements replacements = {{"Sleep", reinterpret_cast<void*>(&DoNotWait)}};
  for (const Part& part : kParts) {
    replacements[part.name] = part.name == without ? part.system : part.supplied;
  }
  ReplaceImports(GetModuleHandleW(L"QzHidAPI.dll"), replacements);
}

class HidStackTest : public ::testing::Test {
 protected:
  HidStackTest() {
    g_nodes = &nodes;
    g_stringCapacity.clear();
    Supply();
    for (const SP_DEVINFO_DATA& node : nodes.All()) numbers.push_back(node.DevInst);
  }
  ~HidStackTest() override { std::filesystem::remove(m_IdList); }

  static void SetUpTestSuite() {
    // The system starts its devices in the background.
    for (int i = 0; i < 300 && SystemNodes().All().size() < 2; ++i) Sleep(100);
  }

  /// The library accepts the devices by their ids.
  void AcceptBoth() const { WriteText(m_IdList, "VID:845E PID:0001\nVID:845E PID:0002\n"); }

  /// Lists, and returns the records.
  static std::vector<HidDevRecord> List() {
    HidDevRecord* list = nullptr;
    std::uint32_t count = 0;
    QZ_ListAllHidDev(&list, &count);
    std::vector<HidDevRecord> records;
    if (list != nullptr) records.assign(list, list + count);
    QZ_FreeDevList(list);
    return records;
  }
  std::vector<std::string> Logged() const {
    std::vector<std::string> texts;
    for (const LogLine& line : log.Lines()) texts.push_back(line.text);
    return texts;
  }

  /// The handle that the system gives next; it reuses those that are closed.
  static std::uintptr_t NextHandle() {
    const HANDLE handle = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    const auto number = reinterpret_cast<std::uintptr_t>(handle);
    CloseHandle(handle);
    return number;
  }

  ExportLog log;
  const SystemNodes first;  // has number 0, which is none elsewhere
  const SystemNodes nodes;
  std::vector<std::uint32_t> numbers;  // of the mouse and the keyboard

 private:
  static std::filesystem::path Folder() {
    wchar_t file[MAX_PATH] = {};
    GetModuleFileNameW(GetModuleHandleW(L"QzHidAPI.dll"), file, MAX_PATH);
    return std::filesystem::path(file).parent_path();
  }
  const std::filesystem::path m_IdList = Folder() / "VidPid.ini";
};

TEST_F(HidStackTest, BothDevicesAreListedAsTheSystemKnowsThem) {
  AcceptBoth();
  const std::vector<HidDevRecord> records = List();
  ASSERT_EQ(2u, records.size());
  for (std::size_t i = 0; i < records.size(); ++i) {
    EXPECT_EQ(numbers[i], records[i].dwInst);
    const std::wstring ids = nodes.HardwareIds(numbers[i]);
    EXPECT_NE(L"", ids);
    EXPECT_EQ(ids, std::wstring(records[i].HwID, records[i].HwID + ids.size()));
    EXPECT_EQ(1u, records[i].Level);
    EXPECT_EQ(numbers[i], records[i].Port);
  }
  EXPECT_THAT(Logged(),
              IsSupersetOf({"DevInst:2,VID/PID:0x845e/0x0001\n", "DevInst: 2, WQ Hid Device\n",
                            "DevInst:3,VID/PID:0x845e/0x0002\n", "DevInst: 3, WQ Hid Device\n"}));
}

TEST_F(HidStackTest, AStringMustFitIntoAsManyBytesAsTheInputReportHas) {
  const std::vector<HidDevRecord> records = List();
  EXPECT_THAT(g_stringCapacity, ElementsAre(2, 14)) << "of the mouse and the keyboard";
  ASSERT_EQ(1u, records.size());
  EXPECT_EQ(numbers[1], records[0].dwInst);
}

TEST_F(HidStackTest, ADeviceThatTakesNoReportsIsNotOpenedAndNothingStaysOpen) {
  AcceptBoth();
  List();
  log.Clear();
  const std::uintptr_t handle = NextHandle();
  const DEVINST number = SystemNodes().All()[0].DevInst;
  EXPECT_EQ(nullptr, QZ_OpenHid(numbers[1]));
  EXPECT_THAT(Logged(), IsSupersetOf({"match topology return true.\n",
                                      "Set Report Fail,ErrorCode:1784\n", "Open Hid failed\n"}));
  EXPECT_EQ(handle, NextHandle());
  EXPECT_EQ(number, SystemNodes().All()[0].DevInst) << "a set of nodes was not closed";
}

TEST_F(HidStackTest, WhatTheSystemDoesNotHaveFailsWithItsCode) {
  for (const Part& part : kParts) {
    Supply(part.name);
    log.Clear();
    EXPECT_TRUE(List().empty()) << part.name;
    EXPECT_THAT(Logged(), Contains(part.failure)) << part.name;
  }
}

}  // namespace
}  // namespace qzhid::test
