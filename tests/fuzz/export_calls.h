// Calls of the exports, and events on the machine between them, that an input spells.
#pragma once

#include "fuzz/library_bench.h"
#include "transport/setup_packet.h"
#include "virtualhub/hub/image.h"

namespace qzhid::fuzz {

/// The arguments of one call.
struct Arguments {
  LibraryBench& bench;
  void* handle;  ///< open, closed, null, or one that never was
  std::uint32_t node, value;
  std::uint16_t length;
  std::uint8_t a, b;
  std::uint8_t* data;  ///< a block of exactly `length` bytes, or null
  const char* path;    ///< of an image, good or not, or null
  std::uint16_t* version;
  std::uint32_t *vid, *pid;
  QZ_ProgressCallback callback;
};

/// An image that hubs accept. Without seal, so that no checksum takes up the time.
inline const Bytes& GoodImage() {
  static const Bytes image = [] {
    Bytes bytes = virtualhub::BuildImage({}, virtualhub::kIdentityEnd);
    std::fill_n(bytes.begin() + 0x7F80, 16, std::uint8_t{0});
    return bytes;
  }();
  return image;
}

inline constexpr const char* kLogPaths[] = {"/dev/null", "", "/", "/nowhere/log.txt", nullptr};

using ExportCall = void (*)(const Arguments& g);
inline constexpr ExportCall kUpdate = [](const Arguments& g) {
  QZ_UpdateDev(g.handle, g.path, g.callback);
};
inline constexpr ExportCall kCalls[] = {
    kUpdate,
    [](const Arguments&) { List(); },
    [](const Arguments& g) { List(&g.value, g.length); },
    [](const Arguments& g) { g.bench.Open(g.a == 255 ? g.value : g.node); },
    [](const Arguments& g) { g.bench.Open(g.node); },
    [](const Arguments& g) { QZ_CloseDev(g.handle); },
    [](const Arguments& g) { QZ_DllPassPara(g.a); },
    [](const Arguments& g) { QZ_ReadBinVersion(g.handle, g.path, g.version); },
    [](const Arguments& g) { QZ_ReadDevVersion(g.handle, g.version); },
    [](const Arguments& g) { QZ_GetHidBinFileVIDPID(g.path, g.vid, g.pid); },
    [](const Arguments& g) { QZ_GetHubVIDPIDFromHidDevice(g.node, g.vid, g.pid); },
    [](const Arguments& g) { QZ_HidI2CConfig(g.handle, g.a, g.b % 8, g.length % 4); },
    [](const Arguments& g) { QZ_HidI2CWrite(g.handle, g.value, g.data, g.length); },
    [](const Arguments& g) { QZ_HidI2CRead(g.handle, g.value, g.data, g.length); },
    [](const Arguments& g) {
      Bytes address(g.b % 8, g.a);
      QZ_HidI2CRead2(g.handle, address.data(), g.b % 8, g.data, g.length);
    },
    [](const Arguments& g) { QZ_HidI2CBlockWriteFlash(g.handle, g.value, g.data, g.length); },
    [](const Arguments& g) { QZ_Stage_Flash(g.handle, g.value, g.data, g.length); },
    [](const Arguments& g) { QZ_Write_Byte(g.handle, g.value, g.data, g.length); },
    [](const Arguments& g) { QZ_HidI2CBlockEraseFlash(g.handle); },
    [](const Arguments& g) { QZ_HidI2CBlockStatus(g.handle, g.length > 0 ? g.data : nullptr); },
    [](const Arguments& g) {
      QZ_MST_HidI2CBlock(g.handle, g.a, g.b, g.a, g.value, g.b, g.data, LowByte(g.length));
    },
    [](const Arguments& g) { QZ_HidGPIOR(g.handle, g.b % 26, g.data, g.value << 16 | g.length); },
    [](const Arguments& g) { QZ_HidGPIOW(g.handle, g.b % 26, g.value); },
    [](const Arguments& g) { QZ_HidSetHubGPIO(g.handle, g.value, g.a); },
    [](const Arguments& g) { QZ_SetLogPath(kLogPaths[g.value % 5]); },
    [](const Arguments& g) { QZ_ConfigLog(g.a % 2, static_cast<std::int32_t>(g.value)); }};

class ExportCalls {
 public:
  ExportCalls(LibraryBench& bench, Input& input) : bench_(bench), input_(input) {}

  /// Calls until the input is empty, `most` times at most.
  void Run(int most) {
    current_ = this;
    while (!input_.IsEmpty() && most-- > 0) RunOne();
    current_ = nullptr;
  }

  /// A fault of any kind, at one of the next 256 events that it watches.
  void AddFault() {
    using virtualhub::Fault;
    using virtualhub::Service;
    using enum Fault::Action;
    constexpr Fault::On kEvents[] = {Fault::On::Exchange, Fault::On::Output, Fault::On::Input,
                                     Fault::On::Request,  Fault::On::Call,   Fault::On::Reset};
    constexpr Fault::Action kActions[] = {Fail,         Stall,     AnswerZeros, AnswerOnes,
                                          AnswerRandom, LoseWrite, Unplug,      PowerLoss};
    constexpr Service kServices[] = {
        Service::OpenNodeSet,   Service::EnumNode,         Service::FirstInterface,
        Service::InterfacePath, Service::CloseNodeSet,     Service::OpenHidDevice,
        Service::GetCaps,       Service::GetParent,        Service::CreateReportEvent,
        Service::GetDeviceIdA,  Service::GetPreparsedData, Service::LocationInfo,
        Service::HardwareIds,   Service::LocationPaths,    Service::GetAddressProperty};
    constexpr std::uint8_t kRequests[] = {0x02, 0x09, 0xC8, 0xD8, 0xE8, 0x00, 0xE9};
    Fault fault{.on = input_.Choice(kEvents)};
    const Service service = input_.Choice(kServices);
    if (fault.on == Fault::On::Call) fault.service = service;
    fault.request = input_.Choice(kRequests);
    fault.requestType = fault.request == 0x09 || fault.request == 0xD8 ? 0xC0 : 0x40;
    fault.nth = input_.Byte() + 1u;
    fault.count = input_.Byte() % 4;
    fault.action = input_.Choice(kActions);
    fault.seed = input_.Byte();
    fault.code = fault.seed % 3;
    if (fault.seed % 2 == 0) fault.returnMs = fault.seed * 16;
    if (fault.on == Fault::On::Reset) fault.action = fault.seed % 2 == 0 ? NeverReturn : ReturnAt;
    if (fault.action == ReturnAt || fault.seed % 8 == 0) fault.port = "4.2";
    bench_.machine.AddFault(fault);
  }

 private:
  void RunOne() {
    const std::uint8_t which = input_.Byte();
    which >= 224 ? DisturbMachine(which % 5) : CallExport(kCalls[which % std::size(kCalls)]);
  }

  void CallExport(ExportCall call) {
    constexpr int kMostUpdates = 2;  // they take most of the time
    static const MemoryFile good(GoodImage()), cut(ByteView(GoodImage()).first(0x7F00)), empty;
    static const std::string paths[] = {good.path(), good.path(), "/nowhere/at/all",
                                        cut.path(),  good.path(), empty.path(),
                                        "/",         ""};
    if (call == kUpdate && ++updates_ > kMostUpdates) return;
    const std::uint8_t given = input_.Byte(), a = input_.Byte(), b = input_.Byte();
    const std::uint32_t value = input_.Number(4), node = bench_.machine.HidInstance("hub");
    Bytes block(a % 2 == 0 ? b : input_.Word(), a);
    block.shrink_to_fit();
    void* handle = given == 255 ? nullptr : this;
    if (given < 254 && !bench_.handles.empty()) {
      handle = bench_.handles[given % bench_.handles.size()];
    }
    std::uint16_t version = 0;
    std::uint32_t vid = 0, pid = 0;
    call({bench_, handle, node, value, static_cast<std::uint16_t>(block.size()), a, b,
          a == 255 ? nullptr : block.data(), a == 255 ? nullptr : paths[b % 8].c_str(),
          a == 254 ? nullptr : &version, &vid, a == 254 ? nullptr : &pid,
          a % 2 == 0 ? OnProgress : nullptr});
  }

  void DisturbMachine(std::uint8_t how) {
    const char* const port = input_.Flag() ? "4.2" : "";
    const std::uint32_t time = input_.Word();
    const auto back = time % 2 == 0 ? std::optional(time) : std::nullopt;
    if (how == 0) bench_.machine.Unplug("hub", back, port);
    if (how == 1) bench_.machine.PowerLoss("hub", back, port);
    if (how == 2) bench_.machine.Plug("hub", port);
    if (how == 3) bench_.machine.SleepMs(time);
    if (how == 4) AddFault();
  }

  /// Calls of a progress callback are spelled by the same input.
  static void OnProgress(std::int32_t) {
    if (current_->input_.Byte() % 8 == 7) current_->RunOne();
  }

  static inline ExportCalls* current_ = nullptr;
  LibraryBench& bench_;
  Input& input_;
  int updates_ = 0;
};

}  // namespace qzhid::fuzz
