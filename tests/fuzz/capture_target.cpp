// Captures: any file, or requests with any end to hubs that come and go. They are rejected with a
// reason, or explained and repeated.
#include <sstream>

#include "fuzz/fuzz.h"
#include "qzhid/explain/capture_account.h"
#include "qzhid/explain/html_report.h"
#include "qzhid/explain/json_report.h"
#include "qzhid/explain/text_report.h"
#include "qzhid/failure.h"
#include "virtualhub/capture/replay.h"

using namespace qzhid::fuzz;

/// Writes a file of the older format with packets of usbmon.
class CaptureWriter {
 public:
  CaptureWriter() {
    for (const std::uint32_t field : {0xA1B2C3D4u, 0x00040002u, 0u, 0u, 0x40000u, 220u}) {
      virtualhub::AppendLittleEndian(file_, field);
    }
  }

  /// A control transfer, which ends unless the input says otherwise.
  void Add(std::uint8_t address, const Bytes& setup, const Bytes& data, std::uint8_t end) {
    const std::int32_t kEnds[] = {0, 0, 0, 0, -32, -71, -19, -110};
    const bool isIn = (setup[0] & 0x80) != 0;
    AddPacket('S', address, setup, isIn ? Bytes() : data, -115);
    if (end == 255) return;
    AddPacket('C', address, setup, isIn ? data : Bytes(), kEnds[end % 8]);
  }

  const Bytes& file() const { return file_; }

 private:
  void AddPacket(char kind, std::uint8_t address, const Bytes& setup, const Bytes& data,
                 std::int32_t status) {
    Bytes packet{0, 0, 0, 0, 0, 0, 0, 0, static_cast<std::uint8_t>(kind), 2, 0, address, 1, 0, 0};
    packet.resize(28);
    virtualhub::AppendLittleEndian(packet, static_cast<std::uint32_t>(status));
    virtualhub::AppendLittleEndian(packet, static_cast<std::uint32_t>(data.size()));
    virtualhub::AppendLittleEndian(packet, static_cast<std::uint32_t>(data.size()));
    virtualhub::Append(packet, setup);
    packet.resize(64);
    virtualhub::Append(packet, data);
    for (const std::size_t field : {std::size_t{0}, ++time_, packet.size(), packet.size()}) {
      virtualhub::AppendLittleEndian(file_, static_cast<std::uint32_t>(field));
    }
    virtualhub::Append(file_, packet);
  }

  Bytes file_;
  std::size_t time_ = 0;
};

/// A request to a hub, or its arrival.
static void AddRequest(CaptureWriter& capture, Input& input) {
  constexpr std::uint16_t kKeys[] = {0x4002, 0xC009, 0x4006, 0x4000, 0x40E8, 0x40C8, 0xC0D8,
                                     0x40D9, 0x40E9, 0xC004, 0x40C6, 0x40D6, 0x40F5, 0x407F};
  const std::uint8_t which = input.Byte(), address = input.Byte() % 4, end = input.Byte();
  if (which % 16 >= std::size(kKeys)) {
    capture.Add(address, {0x80, 6, 0, 1, 0, 0, 18, 0},
                {18, 1, 0, 2, 0, 0, 0, 64, 0x7C, 0x2E, which, 8, 0, 1, 1, 2, 0, 1}, end);
    capture.Add(address, {0, 9, 1, 0, 0, 0, 0, 0}, {}, 0);
    return;
  }
  const std::uint16_t key = kKeys[which % 16];
  Bytes report{static_cast<std::uint8_t>(key >> 8),
               static_cast<std::uint8_t>(key),
               which,
               input.Byte(),
               0x7C,
               0x2E,
               20,
               0};
  if (key != 0x4002) report[4] = report[5] = 0;
  report.resize(64);
  virtualhub::Append(report, input.Take(20));
  report.resize(84);
  capture.Add(address, {0x21, 9, 0, 2, 0, 0, 84, 0}, report, end);
  if (key < 0x8000) return;
  Bytes answer = input.Take(20);
  answer.resize(20);
  capture.Add(address, {0xA1, 1, 0, 1, 0, 0, 20, 0}, answer, input.Byte());
}

static void Explain(const std::string& file) try {
  std::istringstream stream(file);
  const std::vector<qzhid::LogAccount> accounts{qzhid::ReadCapture("wire", {}, stream)};
  Require(!TextReport(accounts).empty(), "there is a report");
  Require(!HtmlReport(accounts).empty() && !JsonReport(accounts).dump().empty(),
          "reports are UTF-8");
} catch (const qzhid::Failure&) {
}

/// A host that sends what was sent gets what was answered.
static void Repeat(const std::string& file) try {
  std::istringstream stream(file);
  const auto hub =
      std::make_shared<const virtualhub::CapturedHub>(virtualhub::ReadCapturedHub(stream, {}));
  virtualhub::Replay replay(hub);
  for (const virtualhub::CapturedStay& stay : hub->stays) {
    for (const virtualhub::CapturedExchange& exchange : stay.exchanges) {
      Bytes report = exchange.report;
      if (report.empty()) report.push_back(exchange.id);
      const auto result = exchange.isOutput ? replay.Output(exchange.report) : replay.Input(report);
      Require(replay.difference().empty(), "the captured host does not differ");
      Require(result.ok() == (exchange.status == 0), "failures are repeated");
      Require(!result.ok() || exchange.isOutput || report == exchange.report,
              "answers are repeated");
    }
    replay.Leave();
  }
} catch (const virtualhub::CaptureError&) {
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  Bytes bytes;
  if (input.Flag()) {
    bytes = input.Take(size);
  } else {
    CaptureWriter capture;
    while (!input.IsEmpty()) AddRequest(capture, input);
    bytes = capture.file();
  }
  const std::string file(bytes.begin(), bytes.end());
  Explain(file);
  Repeat(file);
  return 0;
}
