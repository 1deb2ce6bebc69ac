// Block commands to a target behind the hub, carried by I2C transfers: the command and its data are
// written, the target's status is polled, and an answer is read.
#include <algorithm>

#include "device/hid_dev.h"
#include "log/msg.h"
#include "platform/platform.h"

namespace qzhid {

namespace {

constexpr std::uint16_t kMaxData = 59;
constexpr std::uint8_t kCommandOnly = 5;  // done as soon as it is written
constexpr int kOutPolls = 10;
constexpr std::uint32_t kOutPollMs = 100;
constexpr std::uint32_t kInPollMs = 10;
constexpr std::uint32_t kDataRegister = 0x80;

// Bits 0 and 1 of the status byte.
constexpr std::uint8_t kStatusMask = 0x03;
constexpr std::uint8_t kStatusBusy = 0;
constexpr std::uint8_t kStatusComplete = 1;

using Block = std::array<std::uint8_t, 64>;

struct Payload {
  Block bytes{};
  std::uint8_t length = 0;  // 0: the command is unknown
};

Payload BuildOutPayload(std::uint8_t cmd, std::uint32_t addr, const std::uint8_t* data,
                        std::uint16_t len) {
  const std::uint8_t count = LowByte(len);
  switch (cmd) {
    case 1:
    case 2:
    case 3:
    case 5:
    case 16:
      return {{cmd, 3, LowByte(addr), HighByte(addr), count}, 5};
    case 4:
    case 6:
    case 19:
    case 20: {
      Payload payload{{cmd, LowByte(len + 3u), LowByte(addr), HighByte(addr), count},
                      LowByte(len + 5u)};
      if (data != nullptr) std::copy_n(data, len, payload.bytes.begin() + 5);
      return payload;
    }
    case 22:
      return {{cmd, 1, LowByte(addr)}, 3};
    default:
      return {};
  }
}

Payload BuildInPayload(std::uint8_t cmd, std::uint32_t addr, std::uint16_t len) {
  switch (cmd) {
    case 3:
    case 36:
    case 38:
    case 51:
    case 52:
    case 53:
    case 58:
      return {{cmd, 3, LowByte(addr), HighByte(addr), LowByte(len)}, 5};
    case 16:
      return {{cmd, 4, LowByte(addr), HighByte(addr)}, 4};
    default:
      return {};
  }
}

/// The three transfers of a block command to one target.
class CBlockTarget {
 public:
  CBlockTarget(const char* tag, std::uint8_t slave) : m_pTag(tag), m_bySlave(slave) {}

  std::uint32_t WriteCommand(Payload& payload) const {
    const PacketHeader header =
        MakeI2CHeader(kI2CWriteRequest, 0, payload.length, {m_bySlave, 0x00, 0x02});
    const std::uint32_t result =
        CRequestCMD::Instance().Yv_CtlPipeOut(header, payload.bytes.data());
    return ReportTransfer(m_pTag, kWriteFailure, result, header);
  }

  std::uint32_t ReadStatus(std::uint8_t& status) const {
    return CRequestCMD::Instance().Yv_CtlPipeIn(
        MakeI2CHeader(kI2CReadRequest, 0, 1, {m_bySlave, 0x00, 0x02}), &status);
  }

  std::uint32_t ReadData(Block& block, std::uint16_t len) const {
    return CRequestCMD::Instance().Yv_CtlPipeIn(
        MakeI2CHeader(kI2CReadRequest, kDataRegister, LowByte(len), {m_bySlave, 0x01, 0x02}),
        block.data());
  }

 private:
  const char* const m_pTag;
  const std::uint8_t m_bySlave;
};

/// The time that has passed since the object was made, against a limit in ms.
class CDeadline {
 public:
  explicit CDeadline(std::uint32_t timeoutMs) : m_nTimeout(timeoutMs) {}
  bool IsOver() const { return Elapsed() > m_nTimeout; }
  std::uint64_t Remaining() const { return m_nTimeout - std::min(Elapsed(), m_nTimeout); }

 private:
  std::uint64_t Elapsed() const { return platform::ClockMs() - m_nStart; }

  const std::uint64_t m_nStart = platform::ClockMs();
  const std::uint64_t m_nTimeout;
};

void LogStatusError(const char* tag, std::uint8_t status) {
  CMsg::Instance().Log(3, tag, "I2C Status Error,Status Value:%d\n", status);
}

std::int32_t PollOutStatus(const char* tag, const CBlockTarget& target) {
  CMsg& msg = CMsg::Instance();
  for (int retry = 0; retry < kOutPolls; ++retry) {
    std::uint8_t status = 0;
    if (const std::uint32_t result = target.ReadStatus(status); result != 0) {
      msg.Log(3, tag, "Polling I2C Status Failed,Error Code:%d, retry:%d\n",
              static_cast<int>(result), retry);
    } else if ((status & kStatusMask) == kStatusComplete) {
      return 0;
    } else if ((status & kStatusMask) != kStatusBusy) {
      LogStatusError(tag, status);
    }
    platform::SleepMs(kOutPollMs);
  }
  msg.Log(3, tag, "Polling I2C Status Timeout\n");
  return 1;
}

/// Polls until the target is done or the time is up, which is not a failure here.
std::int32_t PollInStatus(const char* tag, const CBlockTarget& target, const CDeadline& deadline) {
  for (std::uint64_t polls = deadline.Remaining() / kInPollMs; polls > 0; --polls) {
    std::uint8_t status = 0;
    if (const std::uint32_t result = target.ReadStatus(status); result != 0) {
      CMsg::Instance().Log(3, tag, "Polling I2C Status Failed,Error Code:%d\n",
                           static_cast<int>(result));
      return static_cast<std::int32_t>(result);
    }
    if ((status & kStatusMask) == kStatusComplete) return 0;
    if ((status & kStatusMask) != kStatusBusy) {
      LogStatusError(tag, status);
      return 1;
    }
    platform::SleepMs(kInPollMs);
  }
  return 0;
}

}  // namespace

std::int32_t CHidDev::BlockOutTrans(const std::uint8_t* slave, std::uint8_t cmd, std::uint32_t addr,
                                    const std::uint8_t* data, std::uint16_t len,
                                    std::uint32_t timeout) {
  constexpr const char* kTag = "CHidDev::BlockOutTrans";
  CMsg& msg = CMsg::Instance();
  if (len > kMaxData) {
    msg.Log(3, kTag, "Length > 59,Return -1\n");
    return 1;
  }
  const CDeadline deadline(timeout);
  Payload payload = BuildOutPayload(cmd, addr, data, len);
  if (payload.length == 0) return -1;

  const CBlockTarget target(kTag, *slave);
  if (const std::uint32_t result = target.WriteCommand(payload); result != 0) {
    const Block& b = payload.bytes;
    msg.Log(3, kTag,
            "Buf:0x%02x 0x%02x 0x%02x 0x%02x 0x%02x 0x%02x 0x%02x 0x%02x 0x%02x 0x%02x 0x%02x\n",
            b[0], b[1], b[2], b[3], b[4], b[5], b[6], b[7], b[8], b[9], b[10]);
    return static_cast<std::int32_t>(result);
  }
  if (deadline.IsOver()) {
    msg.Log(3, kTag, "Write Data To Hub Timeout!!\n");
    return 1;
  }
  return cmd == kCommandOnly ? 0 : PollOutStatus(kTag, target);
}

std::int32_t CHidDev::BlockInTrans(const std::uint8_t* slave, std::uint8_t cmd, std::uint32_t addr,
                                   std::uint8_t* buf, std::uint16_t len, std::uint32_t timeout) {
  constexpr const char* kTag = "CHidDev::BlockInTrans";
  CMsg& msg = CMsg::Instance();
  if (len > kMaxData) {
    msg.Log(3, kTag, "Length > 59,Return -1\n");
    return -1;
  }
  const CDeadline deadline(timeout);
  Payload payload = BuildInPayload(cmd, addr, len);
  if (payload.length == 0) {
    msg.Log(3, kTag, "Unknow Command Code:%d\n", cmd);
    return 1;
  }
  const CBlockTarget target(kTag, *slave);
  if (const std::uint32_t result = target.WriteCommand(payload); result != 0) {
    const Block& b = payload.bytes;
    msg.Log(3, kTag, "Buf:0x%02x 0x%02x 0x%02x 0x%02x 0x%02x 0x%02x\n", b[0], b[1], b[2], b[3],
            b[4], b[5]);
    return static_cast<std::int32_t>(result);
  }
  if (deadline.IsOver()) {
    msg.Log(3, kTag, "Write Data To Hub Timeout!!\n");
    return 1;
  }
  if (const std::int32_t result = PollInStatus(kTag, target, deadline); result != 0) return result;
  if (deadline.IsOver()) {
    msg.Log(3, kTag, "Polling I2C Status Timeout\n");
    return 1;
  }
  Block answer{};
  if (const std::uint32_t result = target.ReadData(answer, len); result != 0) {
    msg.Log(3, kTag, "Read Data Failed,Error Code:%d\n", static_cast<int>(result));
    return static_cast<std::int32_t>(result);
  }
  const bool isLate = deadline.IsOver();
  if (isLate) msg.Log(3, kTag, "Read Data Timeout\n");
  // The first byte is the target's own count.
  if (buf != nullptr) std::copy_n(answer.begin() + 1, len, buf);
  return isLate ? 1 : 0;
}

}  // namespace qzhid
