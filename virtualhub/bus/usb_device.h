// The USB device around a hub or another HID device: standard requests of USB 2.0 section 9.4 and
// class requests of HID 1.11 section 7.2.
#pragma once

#include "virtualhub/bus/machine.h"
#include "virtualhub/bus/usb_descriptors.h"

namespace virtualhub {

/// The 8 bytes that begin a control transfer.
struct SetupPacket {
  explicit SetupPacket(ByteView bytes)
      : type(bytes[0]),
        request(bytes[1]),
        value(LittleEndian16(bytes, 2)),
        index(LittleEndian16(bytes, 4)),
        length(LittleEndian16(bytes, 6)) {}

  bool IsIn() const { return (type & 0x80) != 0; }

  std::uint8_t type, request;
  std::uint16_t value, index, length;
};

/// One device from its arrival on the bus until it leaves; a device that comes back is another one.
/// At first it is not configured. The host's side gives it an address, so SET_ADDRESS has no
/// effect.
///
/// Only one thread at a time may use it.
class UsbDevice {
 public:
  UsbDevice(Machine& machine, const BusDevice& device);

  /// Whether it is still on the bus.
  bool IsPresent() { return machine_.IsPresent(device_.hid); }

  /// One control transfer; it takes as long as the device takes. `data` is the data stage of an OUT
  /// transfer; `answer` becomes that of an IN transfer, at most the setup packet's length. Unknown
  /// requests and those that the device's state does not allow fail with Stall.
  Result Control(const SetupPacket& setup, ByteView data, Bytes& answer);

  /// One transfer to the interrupt OUT endpoint: an output report, with its ID if it is numbered.
  Result InterruptOut(ByteView data);

  /// Whether the interrupt IN endpoint is halted: its transfers then stall. Otherwise it never has
  /// anything to send, because the host reads answers with GET_REPORT.
  bool IsHalted() const { return inHalted_; }

  /// What enumeration by a host does: it resets the port, then sets the configuration.
  void Enumerate();

 private:
  struct Handler;
  static const Handler* FindHandler(const SetupPacket& setup);

  Result GetDeviceStatus(const SetupPacket& setup, ByteView data, Bytes& answer);
  Result GetInterfaceStatus(const SetupPacket& setup, ByteView data, Bytes& answer);
  Result GetEndpointStatus(const SetupPacket& setup, ByteView data, Bytes& answer);
  Result ChangeEndpointFeature(const SetupPacket& setup, ByteView data, Bytes& answer);
  Result SetAddress(const SetupPacket& setup, ByteView data, Bytes& answer);
  Result GetDeviceLevelDescriptor(const SetupPacket& setup, ByteView data, Bytes& answer);
  Result GetHidDescriptor(const SetupPacket& setup, ByteView data, Bytes& answer);
  Result GetConfiguration(const SetupPacket& setup, ByteView data, Bytes& answer);
  Result SetConfiguration(const SetupPacket& setup, ByteView data, Bytes& answer);
  Result GetInterface(const SetupPacket& setup, ByteView data, Bytes& answer);
  Result SetInterface(const SetupPacket& setup, ByteView data, Bytes& answer);
  Result GetReport(const SetupPacket& setup, ByteView data, Bytes& answer);
  Result SetReport(const SetupPacket& setup, ByteView data, Bytes& answer);
  Result GetIdle(const SetupPacket& setup, ByteView data, Bytes& answer);
  Result SetIdle(const SetupPacket& setup, ByteView data, Bytes& answer);
  Result GetProtocol(const SetupPacket& setup, ByteView data, Bytes& answer);
  Result SetProtocol(const SetupPacket& setup, ByteView data, Bytes& answer);

  bool GetCaptured(const SetupPacket& setup, Bytes& answer) const;
  void BusReset();
  /// Whether the interrupt endpoint with that address is halted; null when there is none now.
  bool* HaltOf(std::uint16_t endpoint);
  Result TakeOutputReport(std::uint8_t id, ByteView data, OutputPipe pipe);
  Result GetString(const SetupPacket& setup, Bytes& answer);
  Result GetProductText(Bytes& answer);

  Machine& machine_;
  const BusDevice device_;
  std::uint8_t configuration_ = 0;
  bool inHalted_ = false;
  bool outHalted_ = false;
  std::uint8_t idleRate_ = 0;  ///< in units of 4 ms; 0: only changes are reported
  std::uint8_t reportProtocol_ = 1;
};

}  // namespace virtualhub
