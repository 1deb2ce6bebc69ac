// One machine: its clock, its device nodes, its devices and what goes wrong.
#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "virtualhub/bus/bus_device.h"
#include "virtualhub/bus/clock.h"
#include "virtualhub/bus/faults.h"
#include "virtualhub/bus/recorder.h"
#include "virtualhub/bus/usb_tree.h"
#include "virtualhub/capture/replay.h"
#include "virtualhub/capture/usb_capture.h"
#include "virtualhub/hub/hub.h"
#include "virtualhub/hub/report_channel.h"
#include "virtualhub/scenario/control_file.h"
#include "virtualhub/scenario/control_line.h"
#include "virtualhub/scenario/scenario.h"

namespace virtualhub {

/// What a host holds open.
enum class HandleKind { HidDevice, Event, NodeSet, PreparsedData };

/// A report exchange about to reach its device.
struct Exchange {
  std::uint64_t number;  ///< of all exchanges of this machine, from 1
  bool output;
  DevInst instance;
  ByteView report;  ///< output: the report; input: the buffer as it was handed in
};
using ExchangeHook = std::function<void(const Exchange&)>;

/// A substitute for the firmware of a device: it takes each output report, of any length, and fills
/// each input report. It must not call the machine.
struct FirmwareDouble {
  std::function<Result(ByteView report)> take;
  std::function<Result(MutableBytes report)> answer;
};

/// Any thread may call any function, except where it says otherwise. Devices leave and come back as
/// time passes, and as the lines of the control file say; each call first carries out what is due.
class Machine {
 public:
  explicit Machine(const Scenario& scenario);
  ~Machine();
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;

  Clock& clock() { return clock_; }
  const HostConfig& host() const { return host_; }

  // ---- What a host does ------------------------------------------------------------------------

  /// What a service sees of the machine; it exists only during Call.
  class View {
   public:
    explicit View(Machine& machine) : machine_(machine) {}
    const Node* FindNode(DevInst node) const;
    /// The present HID nodes in the order of enumeration, as they are now.
    std::shared_ptr<const std::vector<DevInst>> HidNodes() const;
    /// The HID node of that number as it is now, to be opened; of stay 0 when there is none.
    HidNode PresentHid(DevInst number) const;
    /// The device of that HID node, null when that stay has ended.
    const DeviceConfig* FindHid(const HidNode& node) const;
    /// Whether another program has the device of that node open exclusively.
    bool IsHeld(DevInst node) const;

   private:
    Machine& machine_;
  };

  /// One call of a service: faults first, then body(View), then the record.
  template <typename Body>
  Result Call(Service service, DevInst node, std::uint32_t value, Body&& body) {
    const std::lock_guard<std::mutex> guard(mutex_);
    Result result = BeginCall(service, node);
    if (result.ok()) result = body(View(*this));
    EndCall(service, node, value, result);
    return result;
  }

  /// Report exchanges. Each takes the device's latency; an input report shorter than the buffer
  /// does not touch the rest of it. The other HID nodes of the device stall.
  Result SetOutputReport(const HidNode& node, ByteView report,
                         OutputPipe pipe = OutputPipe::Control);
  Result GetInputReport(const HidNode& node, MutableBytes report);

  /// The named device as a USB host finds it now; none while it is off the bus.
  std::optional<BusDevice> OnBus(std::string_view device);
  /// Whether that stay on the bus has not ended.
  bool IsPresent(const HidNode& node);

  /// Sleeps on the machine's clock.
  void SleepMs(std::uint32_t milliseconds);
  void DebugText(std::string text);

  void AddHandle(HandleKind kind) { ++handles_[static_cast<std::size_t>(kind)]; }
  void DropHandle(HandleKind kind) { --handles_[static_cast<std::size_t>(kind)]; }

  // ---- What a user does ------------------------------------------------------------------------

  /// Carries out a line as a control file has them. Throws ControlError.
  void Control(const std::string& line);

  /// Carries out what is due in a machine that nothing else is asked of.
  void FollowControl();

  // ---- What a test does ------------------------------------------------------------------------

  /// Numbers of the named device's nodes, the HID node being the one that takes its reports; 0
  /// while it is off the bus.
  DevInst HidInstance(std::string_view device);
  DevInst UsbInstance(std::string_view device);

  /// Takes a device off the bus at once. It comes back after `returnMs` milliseconds, or never, at
  /// `port` if that is not empty.
  void Unplug(std::string_view device, std::optional<std::uint32_t> returnMs = {},
              const std::string& port = {});
  void PowerLoss(std::string_view device, std::optional<std::uint32_t> returnMs = {},
                 const std::string& port = {});
  /// Puts a device that is off the bus back on it at once.
  void Plug(std::string_view device, const std::string& port = {});

  void AddFault(const Fault& fault);
  void ClearFaults();

  /// The hook is called before each exchange reaches its device; it may call any function of the
  /// machine.
  void SetExchangeHook(ExchangeHook hook);

  /// From now on the double takes all reports that reach a device, after faults.
  void SetFirmwareDouble(FirmwareDouble firmware);

  /// Saves what hubs have in their flash, as the end of the machine does. For the end of a process:
  /// it does not wait forever for a lock that a thread took with it.
  void Save();

  /// The machine's lock, for the thread that forks the process.
  std::mutex& forkLock() { return mutex_; }

  /// Number of exchanges so far.
  std::uint64_t exchanges();

  /// How many handles of a kind are open.
  int openHandles(HandleKind kind) const { return handles_[static_cast<std::size_t>(kind)]; }

  /// The named hub and the record: for the time when no call is under way. Throws
  /// std::out_of_range when no hub has that name, as do all functions that take one.
  Hub& hub(std::string_view device);
  Recorder& recorder() { return recorder_; }

 private:
  struct Device {
    explicit Device(const DeviceConfig& config);
    bool present() const { return nodes.hid != 0; }
    /// On the bus, or back there after a while.
    bool plugged() const { return present() || returnAtUs; }

    DeviceConfig config;
    PortPath port;
    std::unique_ptr<Hub> hub;
    std::optional<Replay> replay;
    ReportChannel channel;
    UsbTree::Instance nodes;
    std::uint64_t stay = 0;  ///< the last one, counted over all devices from 1
    UsbIds ids;              ///< as of its last arrival
    std::optional<std::uint64_t> leaveAtUs, returnAtUs;
    std::uint64_t readyAtUs = 0;
    std::uint64_t heldUntilUs = 0;                           ///< by another program
    Bytes savedFlash;                                        ///< as it was last loaded or saved
    std::optional<std::filesystem::file_time_type> savedAt;  ///< of the file at that time
  };

  Result BeginCall(Service service, DevInst node);
  void EndCall(Service service, DevInst node, std::uint32_t value, const Result& result);

  void CatchUp();
  void Schedule(std::uint64_t atUs) { nextChangeUs_ = std::min(nextChangeUs_, atUs); }
  void Arrive(Device& device, std::uint64_t atUs);
  void Leave(Device& device);
  void LosePlug(Device& device, std::optional<std::uint32_t> returnMs, const std::string& port);
  void LosePower(Device& device, std::optional<std::uint32_t> returnMs, const std::string& port);
  BusDevice Describe(const Device& device) const;
  void SetOrder(const std::vector<std::string>& names);
  void StartCapture(const Scenario& scenario);
  void StartReset(Device& device, std::uint64_t leaveUs, std::uint64_t awayUs);
  void ReadControl();
  void CarryOut(const std::string& controlLine);
  void PlugIn(Device& device, const std::string& port);
  void LoadState(Device& device);
  void SaveState(Device& device);

  Device& Named(std::string_view device);
  Device* OfNode(DevInst node);
  Device* OfHidNode(DevInst node);
  Device* OfHidNode(const HidNode& node);
  void ForgetNodes(const UsbTree::Instance& nodes);
  void Hold(Device& device, std::optional<std::uint32_t> releaseMs);
  bool StrikeDevice(const Fault& fault, Device* concerned);

  template <typename Begin, typename Deliver>
  Result RunExchange(bool output, const HidNode& node, ByteView report, Begin begin,
                     Deliver deliver);
  std::optional<Result> Prevent(const Fault* fault, Device& device);
  Result DeliverOutput(Device& device, const Fault* fault, ByteView report, Effects& effects);
  Result DeliverInput(Device& device, const Fault* fault, MutableBytes report);
  Result CarryOut(Device& device, const Fault* fault, const VendorRequest& request, ByteView report,
                  Effects& effects);
  Result Repeat(Device& device, const Result& result);
  void RecordReport(Record::Kind kind, DevInst node, ByteView report, const Result& result);
  void RecordRequest(DevInst node, const VendorRequest& request, const Result& result);

  Clock clock_;
  HostConfig host_;
  std::filesystem::path stateFolder_;
  std::optional<ControlFile> control_;
  std::mutex mutex_;
  UsbTree tree_;
  std::vector<Device> devices_;
  std::vector<const Device*> order_;                      ///< of enumeration
  std::unordered_map<DevInst, Device*> byNode_;           ///< present devices under all their nodes
  std::shared_ptr<const std::vector<DevInst>> hidNodes_;  ///< null: to be listed again
  std::uint64_t nextChangeUs_ = 0;                        ///< nothing leaves or returns before that
  Faults faults_;
  Recorder recorder_;
  std::unique_ptr<UsbCapture> capture_;
  std::shared_ptr<const ExchangeHook> hook_;
  std::optional<FirmwareDouble> double_;
  std::uint64_t exchanges_ = 0, stays_ = 0;
  std::array<std::atomic<int>, 4> handles_{};
};

}  // namespace virtualhub
