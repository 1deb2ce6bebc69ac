// Calls of the exports, and events on the machine between them, that an input spells.
#pragma once

#include <functional>

#include "fuzz/library_bench.h"
#include "transport/setup_packet.h"
#include "virtualhub/hub/image.h"

namespace qzhid::fuzz {

inline const Bytes kGoodImage = virtualhub::BuildImage({}, virtualhub::kIdentityEnd);

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
    using enum Fault::Action;
    constexpr std::uint8_t kRequests[] = {0x02, 0x09, 0xC8, 0xD8, 0xE8, 0x00, 0xE9};
    Fault fault{.on = static_cast<Fault::On>(input_.Byte() % 6)};
    const auto service = static_cast<virtualhub::Service>(input_.Byte() % 22);
    if (fault.on == Fault::On::Call) fault.service = service;
    fault.request = kRequests[input_.Byte() % 7];
    fault.requestType = fault.request == 0x09 || fault.request == 0xD8 ? 0xC0 : 0x40;
    fault.nth = input_.Byte() + 1u;
    fault.count = input_.Byte() % 4;
    fault.action = static_cast<Fault::Action>(input_.Byte() % 8);  // from Fail to PowerLoss
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
    which >= 224 ? DisturbMachine(which % 5) : CallExport(which % 26);
  }

  void CallExport(std::uint8_t which) {
    constexpr int kMostUpdates = 2;  // they take most of the time
    static const MemoryFile good(kGoodImage), cut(ByteView(kGoodImage).first(0x7F00)), empty;
    static const std::string paths[] = {good.path(), good.path(), "/nowhere/at/all",
                                        cut.path(),  good.path(), empty.path(),
                                        "/",         ""};
    static const char* const logs[] = {"/dev/null", "", "/", "/nowhere/log.txt", nullptr};
    if (which == 0 && ++updates_ > kMostUpdates) return;
    // The arguments: handles that are open, closed, null or never were; a block of exactly `length`
    // bytes, or null; an image, good or not, or null.
    const std::uint8_t given = input_.Byte(), a = input_.Byte(), b = input_.Byte();
    const std::uint32_t value = input_.Number(4), node = bench_.machine.HidInstance("hub");
    Bytes block(a % 2 == 0 ? b : input_.Word(), a), address(b % 8, a);
    block.shrink_to_fit();
    const auto length = static_cast<std::uint16_t>(block.size());
    const auto& all = bench_.handles;
    void* const handle = given == 255                  ? nullptr
                         : given == 254 || all.empty() ? this
                                                       : all[given % all.size()];
    std::uint8_t* const bytes = a == 255 ? nullptr : block.data();
    const char* const path = a == 255 ? nullptr : paths[b % 8].c_str();
    std::uint16_t read = 0, *const version = a == 254 ? nullptr : &read;
    std::uint32_t vid = 0, readPid = 0, *const pid = a == 254 ? nullptr : &readPid;
    const std::function<void()> calls[] = {
        [&] { QZ_UpdateDev(handle, path, a % 2 == 0 ? OnProgress : nullptr); },
        [&] { List(); },
        [&] { List(&value, length); },
        [&] { bench_.Open(a == 255 ? value : node); },
        [&] { bench_.Open(node); },
        [&] { QZ_CloseDev(handle); },
        [&] { QZ_DllPassPara(a); },
        [&] { QZ_ReadBinVersion(handle, path, version); },
        [&] { QZ_ReadDevVersion(handle, version); },
        [&] { QZ_GetHidBinFileVIDPID(path, &vid, pid); },
        [&] { QZ_GetHubVIDPIDFromHidDevice(node, &vid, pid); },
        [&] { QZ_HidI2CConfig(handle, a, b % 8, length % 4); },
        [&] { QZ_HidI2CWrite(handle, value, bytes, length); },
        [&] { QZ_HidI2CRead(handle, value, bytes, length); },
        [&] { QZ_HidI2CRead2(handle, address.data(), b % 8, bytes, length); },
        [&] { QZ_HidI2CBlockWriteFlash(handle, value, bytes, length); },
        [&] { QZ_Stage_Flash(handle, value, bytes, length); },
        [&] { QZ_Write_Byte(handle, value, bytes, length); },
        [&] { QZ_HidI2CBlockEraseFlash(handle); },
        [&] { QZ_HidI2CBlockStatus(handle, length > 0 ? bytes : nullptr); },
        [&] { QZ_MST_HidI2CBlock(handle, a, b, a, value, b, bytes, LowByte(length)); },
        [&] { QZ_HidGPIOR(handle, b % 26, bytes, value << 16 | length); },
        [&] { QZ_HidGPIOW(handle, b % 26, value); },
        [&] { QZ_HidSetHubGPIO(handle, value, a); },
        [&] { QZ_SetLogPath(logs[value % 5]); },
        [&] { QZ_ConfigLog(a % 2, static_cast<std::int32_t>(value)); }};
    calls[which]();
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
