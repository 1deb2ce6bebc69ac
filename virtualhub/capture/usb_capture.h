// What passes on the buses of a machine, as a capture.
#pragma once

#include <array>
#include <map>
#include <optional>

#include "virtualhub/bus/bus_device.h"
#include "virtualhub/capture/pcapng_file.h"
#include "virtualhub/hub/result.h"

namespace virtualhub {

class Clock;

/// How an output report travels.
enum class OutputPipe {
  Control,   ///< SET_REPORT
  Interrupt  ///< to the interrupt OUT endpoint
};

/// Writes each transfer as Linux's usbmon shows it: a packet when it begins and one when it ends.
/// When the file cannot be written, one line on standard error says so, and the capture ends.
class UsbCapture {
 public:
  /// One report on its way.
  struct Transfer {
    std::uint64_t id = 0;
    HidNode node;
    bool isIn = false;
    bool isControl = true;
    std::array<std::uint8_t, 8> setup{};  ///< control transfers
    std::uint32_t length = 0;             ///< bytes that are sent, or asked for
  };

  UsbCapture(PcapngFile file, const Clock& clock) : file_(std::move(file)), clock_(clock) {}

  /// The device gets an address and is enumerated: the capture then holds its descriptors.
  void Arrive(const BusDevice& device);
  /// Its address is free again.
  void Leave(const HidNode& node);

  /// A report, whose byte 0 is its ID, begins to travel; of an input report only the ID counts.
  Transfer BeginOutput(const HidNode& node, OutputPipe pipe, ByteView report);
  Transfer BeginInput(const HidNode& node, ByteView buffer);
  /// The transfer has ended; `input` is the input report that was read.
  void End(const Transfer& transfer, const Result& result, ByteView input);

 private:
  struct Place {
    std::uint32_t bus;
    std::uint8_t address;
    bool isPresent;
  };

  std::uint8_t FreeAddress(std::uint32_t bus);
  void GetDescriptor(const BusDevice& device, std::uint16_t request, std::uint16_t value,
                     std::uint16_t index, const Bytes& made);
  Transfer BeginControl(const HidNode& node, std::array<std::uint8_t, 8> setup, ByteView data);
  void Write(const Transfer& transfer, char event, std::int32_t status, std::uint32_t length,
             ByteView data);

  std::optional<PcapngFile> file_;
  const Clock& clock_;
  std::map<std::uint64_t, Place> places_;  ///< of all stays so far
  std::uint8_t lastAddress_ = 0;
  std::uint64_t lastId_ = 0;
};

}  // namespace virtualhub
