// Vendor requests to a hub through its HID interface.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>

#include "platform/platform.h"
#include "transport/report_buffers.h"
#include "transport/transfers.h"
#include "transport/vid_pid_list.h"

namespace qzhid {

/// Opening and closing is for one thread at a time; requests may come from any thread. A child
/// process that was forked during a request must make its own object: in this one the request never
/// ends.
class CHidTransfers final : public ITransfers {
 public:
  CHidTransfers() = default;
  CHidTransfers(const CHidTransfers&) = delete;
  CHidTransfers& operator=(const CHidTransfers&) = delete;

  /// Opens the HID device of that number and accepts it when its vendor id is the family's, when
  /// "VidPid.ini" in the library's folder lists its ids, or, without such a list, when its product
  /// text names the family. Returns 0 when opened and accepted, else an error; what was opened
  /// stays open until Yv_CloseDevice.
  std::uint32_t Yv_OpenDeviceByDevInst(std::uint32_t devInst) override;

  /// Closes what is open. Returns 0, also when nothing is open.
  std::uint32_t Yv_CloseDevice() override;

  std::uint32_t Yv_SendVDCmd(std::uint8_t bmRequestType, std::uint8_t bRequest,
                             std::uint16_t wValue, std::uint16_t wIndex, std::uint8_t* data,
                             std::uint32_t wLength, std::uint32_t timeoutMs) override;
  std::uint32_t Yv_SendVDCmd2(std::uint8_t bmRequestType, std::uint8_t bRequest,
                              std::uint16_t wValue, std::uint16_t wIndex, std::uint8_t* data,
                              std::uint32_t wLength, std::uint32_t timeoutMs) override;

  std::uint32_t SendPacketOut(const PacketHeader& header, std::uint8_t* data) override;
  std::uint32_t SendPacketIn(const PacketHeader& header, std::uint8_t* buffer) override;
  std::uint32_t SendPacketOut2(const PacketHeader& header, std::uint8_t* data) override;
  std::uint32_t SendPacketIn2(const PacketHeader& header, std::uint8_t* buffer) override;

  /// Fills the list of accepted ids from a file. Returns 1 if it holds at least one pair, else 0.
  std::uint32_t GetVidPidList(const std::string& path);

 private:
  /// The tag of the log lines of opening.
  static constexpr const char* kOpenTag = "CHidTransfers::Yv_OpenDeviceByDevInst";

  struct Channel;
  static const Channel kFirst;
  static const Channel kSecond;

  std::uint32_t OpenInterface(std::uint32_t devInst);
  std::uint32_t OpenPath(const std::wstring& path);
  std::uint32_t ReadReportLengths();
  std::uint32_t Identify(std::uint32_t devInst);
  std::uint32_t IdentifyByProductText();
  /// Logs the system's remark on the opened device, once for each device.
  void LogRemarkOnce(std::uint32_t devInst);
  static void LogRemark(const platform::OpenStatus& status);

  std::uint32_t SendRaw(const std::uint8_t* block, std::uint32_t wLength, std::uint32_t timeoutMs);
  std::uint32_t SendPrepared(const std::uint8_t* block, std::uint32_t wLength,
                             std::uint32_t timeoutMs);
  std::uint32_t HidDataOut(const Channel& channel, const std::uint8_t* header,
                           std::size_t headerLength, const std::uint8_t* data,
                           std::uint32_t dataLength, std::uint32_t timeoutMs);
  std::uint32_t HidDataIn(const Channel& channel, const std::uint8_t* header,
                          std::size_t headerLength, std::uint8_t* buffer, std::uint32_t length,
                          std::uint32_t timeoutMs);
  std::uint32_t Hid_SetReport(const Channel& channel, const std::uint8_t* data,
                              std::uint32_t length);
  std::uint32_t Hid_GetReport(const Channel& channel, std::uint8_t* buffer, std::uint32_t length);
  std::unique_lock<std::mutex> LockTransfer(const char* operation, std::uint32_t timeoutMs);

  VidPidList m_AcceptedIds;
  platform::OpenStatus m_OpenStatus;  // of the device that was opened last
  platform::HidDevice m_Device;
  platform::Event m_ReportEvent;
  CReportBuffers m_Reports;
  std::uint32_t m_nLastIndex = 0;  // where the device was found that was looked for last
  std::mutex m_TransferLock;       // held for one request; only tried, so a wait has a limit
};

}  // namespace qzhid
