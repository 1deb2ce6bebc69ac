// Vendor requests inside HID reports: each request travels in one output report, the answer of an
// IN request comes in one input report.
#include "log/msg.h"
#include "transport/hid_transfers.h"

namespace qzhid {

namespace {

constexpr std::uint32_t kLockPollMs = 100;
constexpr std::uint32_t kMaxOutStage = 128;  // a longer OUT stage of channel 1 is cut to one byte
constexpr std::uint32_t kRawHeaderSize = 64;
constexpr std::uint32_t kPreparedDataSize = 128;

// Requests (bmRequestType, bRequest) whose data takes the place of the header.
constexpr std::uint16_t kRawRequest = 0x40F2;
constexpr std::uint16_t kPreparedRequest = 0x40F5;

struct Request {
  std::uint8_t bmRequestType, bRequest;
  std::uint16_t wValue, wIndex;
  std::uint32_t wLength, timeoutMs;
};

std::uint32_t TraceFailure(const char* tag, const Request& request, std::uint32_t result) {
  CMsg& msg = CMsg::Instance();
  msg.Log(0, tag, "YvHub_SendVDCmd -> RequestType: 0x%02x, Request: 0x%02x\n",
          request.bmRequestType, request.bRequest);
  msg.Log(0, tag, "YvHub_SendVDCmd -> wValue: 0x%04x, wIndex: 0x%04x\n", request.wValue,
          request.wIndex);
  msg.Log(0, tag, "YvHub_SendVDCmd -> dwLength: 0x%x\n", request.wLength);
  msg.Log(0, tag, "YvHub_SendVDCmd -> ulTimeout: 0x%x\n", request.timeoutMs);
  msg.Log(0, tag, "YvHub_SendVDCmd -> return %d\n", static_cast<int>(result));
  return result;
}

}  // namespace

/// A channel with the names under which its operations log.
struct CHidTransfers::Channel {
  const ReportChannel& layout;
  const char* dataOut;
  const char* dataIn;
  const char* setReport;
  const char* getReport;
};

const CHidTransfers::Channel CHidTransfers::kFirst{
    kChannel1, "CHidTransfers::HidDataOut", "CHidTransfers::HidDataIn",
    "CHidTransfers::Hid_SetReport", "CHidTransfers::Hid_GetReport"};
const CHidTransfers::Channel CHidTransfers::kSecond{
    kChannel2, "CHidTransfers::HidDataOut2", "CHidTransfers::HidDataIn2",
    "CHidTransfers::Hid_SetReport2", "CHidTransfers::Hid_GetReport2"};

std::uint32_t CHidTransfers::Yv_SendVDCmd(std::uint8_t bmRequestType, std::uint8_t bRequest,
                                          std::uint16_t wValue, std::uint16_t wIndex,
                                          std::uint8_t* data, std::uint32_t wLength,
                                          std::uint32_t timeoutMs) {
  const SetupPacket setup = MakeSetup(bmRequestType, bRequest, wValue, wIndex, wLength);
  std::uint32_t result = 0;
  if (const unsigned key = bmRequestType * 256u + bRequest; key == kRawRequest) {
    result = SendRaw(data, wLength, timeoutMs);
  } else if (key == kPreparedRequest) {
    result = SendPrepared(data, wLength, timeoutMs);
  } else if (bmRequestType < kDeviceToHost) {
    const std::uint32_t length = wLength <= kMaxOutStage ? wLength : 1;
    result = HidDataOut(kFirst, setup.data(), setup.size(), data, length, timeoutMs);
  } else {
    result = HidDataIn(kFirst, setup.data(), setup.size(), data, wLength, timeoutMs);
  }
  if (result == 0) return result;
  return TraceFailure("CHidTransfers::Yv_SendVDCmd",
                      {bmRequestType, bRequest, wValue, wIndex, wLength, timeoutMs}, result);
}

std::uint32_t CHidTransfers::Yv_SendVDCmd2(std::uint8_t bmRequestType, std::uint8_t bRequest,
                                           std::uint16_t wValue, std::uint16_t wIndex,
                                           std::uint8_t* data, std::uint32_t wLength,
                                           std::uint32_t timeoutMs) {
  const SetupPacket setup = MakeSetup(bmRequestType, bRequest, wValue, wIndex, wLength);
  const std::uint32_t result =
      bmRequestType < kDeviceToHost
          ? HidDataOut(kSecond, setup.data(), setup.size(), data, wLength, timeoutMs)
          : HidDataIn(kSecond, setup.data(), setup.size(), data, wLength, timeoutMs);
  if (result == 0) return result;
  return TraceFailure("CHidTransfers::Yv_SendVDCmd2",
                      {bmRequestType, bRequest, wValue, wIndex, wLength, timeoutMs}, result);
}

std::uint32_t CHidTransfers::SendPacketOut(const PacketHeader& header, std::uint8_t* data) {
  return HidDataOut(kFirst, header.data(), header.size(), data, header[6], kRequestTimeoutMs);
}

std::uint32_t CHidTransfers::SendPacketIn(const PacketHeader& header, std::uint8_t* buffer) {
  return HidDataIn(kFirst, header.data(), header.size(), buffer, header[6], kRequestTimeoutMs);
}

std::uint32_t CHidTransfers::SendPacketOut2(const PacketHeader& header, std::uint8_t* data) {
  return HidDataOut(kSecond, header.data(), header.size(), data, header[6], kRequestTimeoutMs);
}

std::uint32_t CHidTransfers::SendPacketIn2(const PacketHeader& header, std::uint8_t* buffer) {
  return HidDataIn(kSecond, header.data(), header.size(), buffer, header[6], kRequestTimeoutMs);
}

std::uint32_t CHidTransfers::SendRaw(const std::uint8_t* block, std::uint32_t wLength,
                                     std::uint32_t timeoutMs) {
  const std::uint32_t length = LowByte(wLength);
  if (length > kRawHeaderSize || (length > 0 && block == nullptr)) return kRefused;
  return HidDataOut(kFirst, block, length, nullptr, 0, timeoutMs);
}

std::uint32_t CHidTransfers::SendPrepared(const std::uint8_t* block, std::uint32_t wLength,
                                          std::uint32_t timeoutMs) {
  if (block == nullptr || wLength < kRawHeaderSize + kPreparedDataSize) return kRefused;
  return HidDataOut(kFirst, block, kRawHeaderSize, block + kRawHeaderSize, kPreparedDataSize,
                    timeoutMs);
}

std::uint32_t CHidTransfers::HidDataOut(const Channel& channel, const std::uint8_t* header,
                                        std::size_t headerLength, const std::uint8_t* data,
                                        std::uint32_t dataLength, std::uint32_t timeoutMs) {
  const auto lock = LockTransfer(channel.dataOut, timeoutMs);
  if (!lock) return kRefused;
  m_Reports.PlaceHeader(channel.layout, header, headerLength);
  const std::uint32_t result = Hid_SetReport(channel, data, dataLength);
  if (result != 0) {
    CMsg::Instance().Log(3, channel.dataOut, "Set Report Fail,ErrorCode:%d\n",
                         static_cast<int>(result));
  }
  return result;
}

std::uint32_t CHidTransfers::HidDataIn(const Channel& channel, const std::uint8_t* header,
                                       std::size_t headerLength, std::uint8_t* buffer,
                                       std::uint32_t length, std::uint32_t timeoutMs) {
  const auto lock = LockTransfer(channel.dataIn, timeoutMs);
  if (!lock) return kRefused;
  m_Reports.PlaceHeader(channel.layout, header, headerLength);
  std::uint32_t result = Hid_SetReport(channel, buffer, length);
  if (result != 0) {
    CMsg::Instance().Log(3, channel.dataIn, "Set Report Fail,ErrorCode:%d\n",
                         static_cast<int>(result));
    return result;
  }
  result = Hid_GetReport(channel, buffer, length);
  if (result != 0) {
    CMsg::Instance().Log(3, channel.dataIn, "Get Report Fail,ErrorCode:%d\n",
                         static_cast<int>(result));
  }
  return result;
}

std::uint32_t CHidTransfers::Hid_SetReport(const Channel& channel, const std::uint8_t* data,
                                           std::uint32_t length) {
  const std::int64_t limit = m_Reports.OutputLimit(channel.layout);
  if (length > limit) {
    CMsg::Instance().Log(3, channel.setReport,
                         "Fail,pBuffer Len greater than Max Length,byLen:%d Max Length:%d\n",
                         static_cast<int>(length), static_cast<int>(limit));
    return kRefused;
  }
  if (length > 0 && data == nullptr) return kRefused;
  m_Reports.PlaceData(channel.layout, data, length);
  const platform::Status status = m_Reports.Send(m_Device, channel.layout);
  return status ? 0 : ErrorOf(status);
}

std::uint32_t CHidTransfers::Hid_GetReport(const Channel& channel, std::uint8_t* buffer,
                                           std::uint32_t length) {
  if (length > m_Reports.InputLimit()) {
    CMsg::Instance().Log(3, channel.getReport,
                         "Fail,pBuffer Len greater than Max Length,byLen:%d Max Length:%d\n",
                         static_cast<int>(length), static_cast<int>(m_Reports.PrintedInputLimit()));
    return kRefused;
  }
  const platform::Status status = m_Reports.Receive(m_Device, channel.layout);
  if (!status && status.code != 0) {
    CMsg::Instance().Log(3, channel.getReport, "Get Report Fail,Last Error Code is 0x%08x\n",
                         status.code);
    return status.code;
  }
  // A read that failed without a code has delivered its report.
  m_Reports.CopyAnswer(channel.layout, buffer, length);
  return 0;
}

std::unique_lock<std::mutex> CHidTransfers::LockTransfer(const char* operation,
                                                         std::uint32_t timeoutMs) {
  std::unique_lock<std::mutex> lock(m_TransferLock, std::defer_lock);
  for (std::uint64_t waited = 0; !lock.try_lock();) {
    CMsg::Instance().Log(3, operation, "Can't Obtain Lock!\n");
    platform::SleepMs(kLockPollMs);
    waited += kLockPollMs;
    if (waited > timeoutMs) {
      CMsg::Instance().Log(3, operation, "WqHIDDataIn Timeout Fail! \n");
      break;
    }
  }
  return lock;
}

}  // namespace qzhid
