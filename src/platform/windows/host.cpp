// The system's description of itself.
#include <array>

#include "platform/system/library_file.h"
#include "platform/system/windows/system.h"

namespace qzhid::platform {

namespace {

constexpr const char* kVersionKey = "SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\";
constexpr DWORD kBuildMask = 0xFFFF;  // the upper half says how the system was built

// The registry key of the system's version facts.
class CVersionKey {
 public:
  CVersionKey()
      : m_bOpen(RegOpenKeyExA(HKEY_LOCAL_MACHINE, kVersionKey, 0, KEY_READ, &m_Key) ==
                ERROR_SUCCESS) {}
  ~CVersionKey() {
    if (m_bOpen) RegCloseKey(m_Key);
  }
  CVersionKey(const CVersionKey&) = delete;
  CVersionKey& operator=(const CVersionKey&) = delete;

  bool IsOpen() const { return m_bOpen; }

  std::optional<std::string> ReadText(const char* name) const {
    std::array<char, 256> text{};  // the last byte ends what was stored without terminator
    DWORD type = REG_NONE;
    if (!Read(name, type, text.data(), text.size() - 1) || type != REG_SZ) return std::nullopt;
    return text.data();
  }

  std::optional<std::uint32_t> ReadNumber(const char* name) const {
    std::uint32_t number = 0;
    DWORD type = REG_NONE;
    if (!Read(name, type, &number, sizeof(number)) || type != REG_DWORD) return std::nullopt;
    return number;
  }

 private:
  bool Read(const char* name, DWORD& type, void* value, std::size_t size) const {
    auto bytes = static_cast<DWORD>(size);
    return RegQueryValueExA(m_Key, name, nullptr, &type, static_cast<BYTE*>(value), &bytes) ==
           ERROR_SUCCESS;
  }

  HKEY m_Key = nullptr;
  bool m_bOpen;
};

void ReadVersionNumbers(HostDescription& description) {
  using GetNumbers = void(WINAPI*)(DWORD*, DWORD*, DWORD*);
  const auto getNumbers =
      FindFunction<GetNumbers>(GetModuleHandleW(L"ntdll.dll"), "RtlGetNtVersionNumbers");
  if (getNumbers == nullptr) return;
  DWORD major = 0, minor = 0, build = 0;
  getNumbers(&major, &minor, &build);
  description.major = major;
  description.minor = minor;
  description.build = build & kBuildMask;
}

// The machine that this process runs on, as the system's loader knows it; no value on a system that
// does not know.
std::optional<Architecture> MachineOfProcess() {
  using GetMachines = BOOL(WINAPI*)(HANDLE, USHORT*, USHORT*);
  const auto getMachines =
      FindFunction<GetMachines>(GetModuleHandleW(L"kernel32.dll"), "IsWow64Process2");
  USHORT process = 0, native = 0;
  if (getMachines == nullptr) return std::nullopt;
  if (!getMachines(GetCurrentProcess(), &process, &native)) return Architecture::Unknown;
  switch (native) {
    case 0x014C:
      return Architecture::X86;
    case 0x8664:
      return Architecture::X64;
    case 0xAA64:
      return Architecture::Arm64;
    default:
      return Architecture::Unknown;
  }
}

}  // namespace

Status GetLibraryPath(std::string& path) { return SystemLibraryPath(path); }

Architecture NativeArchitecture() {
  SYSTEM_INFO info{};
  GetNativeSystemInfo(&info);
  switch (info.wProcessorArchitecture) {
    case 0:
      return Architecture::X86;
    case 9:
      return Architecture::X64;
    case 12:
      return Architecture::Arm64;
    default:
      return Architecture::Unknown;
  }
}

HostDescription DescribeHost() {
  HostDescription description;
  const CVersionKey key;
  description.hasVersionStore = key.IsOpen();
  if (key.IsOpen()) {
    description.productName = key.ReadText("ProductName");
    description.updateRevision = key.ReadNumber("UBR");
  }
  ReadVersionNumbers(description);
  const auto machine = MachineOfProcess();
  description.architecture = machine ? *machine : NativeArchitecture();
  return description;
}

}  // namespace qzhid::platform
