// What the tests of the transport share.
#pragma once

#include <numeric>
#include <sstream>

#include "support/library_test.h"
#include "test_system.h"

namespace qzhid::test {

using virtualhub::Bytes;

/// Bytes written in hexadecimal, with blanks between them.
inline Bytes Hex(const std::string& text) {
  std::istringstream in(text);
  Bytes bytes;
  for (unsigned byte = 0; in >> std::hex >> byte;) bytes.push_back(LowByte(byte));
  return bytes;
}

/// The bytes first, first + 1, ...
inline Bytes CountUp(std::uint8_t first, std::size_t count) {
  Bytes bytes(count);
  std::iota(bytes.begin(), bytes.end(), first);
  return bytes;
}

/// An output report of channel 1 or 2.
inline Bytes Report(int channel, const Bytes& header, const Bytes& data, std::size_t length = 321) {
  return channel == 1 ? Channel1(header, data, length) : Channel2(header, data, length);
}

/// The name of an operation of that channel as it stands in log lines.
inline std::string Tag(const std::string& operation, int channel) {
  return "CHidTransfers::" + operation + (channel == 1 ? "" : "2");
}

class TransportTest : public OpenTransportTest {
 protected:
  TransportTest() { OpenWithLengths(321, 257); }

  /// Opens a hub that has both channels and declares reports of these lengths.
  void OpenWithLengths(std::uint16_t output, std::uint16_t input) {
    virtualhub::Scenario scenario = RecordedScenario();
    scenario.devices[0].hub->reports = {true, true, output, input};
    OpenHub(scenario);
  }

  std::size_t InputCount() const {
    return machine->recorder().Of(virtualhub::Record::Kind::Input).size();
  }

  /// Sends a request with value 0x1122 and index 0x3344 over channel 1 or 2.
  std::uint32_t Send(int channel, std::uint8_t type, std::uint8_t request, std::uint8_t* data,
                     std::uint32_t length, std::uint32_t timeoutMs = 5000) {
    const auto send = channel == 1 ? &ITransfers::Yv_SendVDCmd : &ITransfers::Yv_SendVDCmd2;
    return (static_cast<ITransfers*>(transfers)->*send)(type, request, 0x1122, 0x3344, data, length,
                                                        timeoutMs);
  }

  CRequestCMD& requests = CRequestCMD::Instance();
};

}  // namespace qzhid::test
