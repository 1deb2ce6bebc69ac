// A hub on both report channels, and requests to it.
#pragma once

#include "support/layer_test.h"

namespace qzhid::test {

/// The name of an operation of channel 1 or 2 as log lines have it.
inline std::string Tag(const std::string& operation, int channel) {
  return "CHidTransfers::" + operation + (channel == 1 ? "" : "2");
}

class TransportTest : public LayerTest {
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
};

}  // namespace qzhid::test
