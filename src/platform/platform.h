// What the library needs from an operating system: plain functions and small value types, one
// function per service. A backend (windows/, linux/, virtual/) defines all of them; the linker
// chooses the backend.
//
// Failures carry the system's own error code (Windows error codes on Windows, errno values on
// Linux), because the library prints and returns that code unchanged. No function throws anything
// but std::bad_alloc. Functions on one handle are called by one thread at a time, unless said
// otherwise.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "QzHidAPI.h"

namespace qzhid::platform {

/// Outcome of one system call. `code` is the system's error code, valid only when `ok` is false.
/// Some drivers fail with the code 0.
struct Status {
  bool ok = true;
  std::uint32_t code = 0;

  explicit operator bool() const { return ok; }
  static Status Failure(std::uint32_t code) { return {false, code}; }
};

/// Outcome of a call that opens a device. `remark` is the system's remark on it for the log, such
/// as which file this process has no permission to open: one line without its end, or empty.
struct OpenStatus : Status {
  OpenStatus() = default;
  OpenStatus(const Status& status) : Status(status) {}
  OpenStatus(const Status& status, std::string text) : Status(status), remark(std::move(text)) {}

  std::string remark;
};

/// Number of a present device node, never 0. A node that comes back has the same number on Windows
/// if its device id is the same, and never on Linux.
using DevInst = std::uint32_t;

/// Identifier of a device-interface class, in the order of its text form's fields.
struct Guid {
  std::uint32_t data1 = 0;
  std::uint16_t data2 = 0;
  std::uint16_t data3 = 0;
  std::uint8_t data4[8] = {};
};

// ---- Device nodes of an interface class --------------------------------------------------------

struct NodeSetData;
struct NodeSetCloser {
  void operator()(NodeSetData* data) const noexcept;
};
/// Owner of a snapshot of present nodes.
using NodeSet = std::unique_ptr<NodeSetData, NodeSetCloser>;

/// One interface of one node in a NodeSet; valid as long as the set.
struct DeviceInterface {
  std::uint32_t node = 0;  ///< the node's index in the set
  DevInst devInst = 0;
};

/// The class of HID device interfaces.
Guid HidClassGuid();

/// Takes a snapshot of the present nodes that expose interfaces of the class. An empty set is a
/// success.
Status OpenNodeSet(const Guid& interfaceClass, NodeSet& set);

/// The node at `index` (0, 1, 2 ...) in the system's order; fails after the last one.
Status EnumNode(const NodeSet& set, std::uint32_t index, DevInst& devInst);

/// The first interface of the set's class that the node at `index` exposes.
Status FirstInterface(const NodeSet& set, std::uint32_t index, DeviceInterface& found);

/// The path under which the interface can be opened.
Status InterfacePath(const NodeSet& set, const DeviceInterface& deviceInterface,
                     std::wstring& path);

/// Releases the snapshot early and returns the system's result; the owner is empty afterwards.
Status CloseNodeSet(NodeSet& set);

// ---- HID class ---------------------------------------------------------------------------------

struct HidDeviceData;
struct HidDeviceCloser {
  void operator()(HidDeviceData* data) const noexcept;
};
/// Owner of one opened HID device.
using HidDevice = std::unique_ptr<HidDeviceData, HidDeviceCloser>;

struct EventData;
struct EventCloser {
  void operator()(EventData* data) const noexcept;
};
/// Owner of one auto-reset event.
using Event = std::unique_ptr<EventData, EventCloser>;

struct PreparsedDataBlock;
struct PreparsedDataCloser {
  void operator()(PreparsedDataBlock* data) const noexcept;
};
/// Owner of a device's parsed report descriptor.
using PreparsedData = std::unique_ptr<PreparsedDataBlock, PreparsedDataCloser>;

/// Sizes in bytes of a device's longest reports, including the report ID byte; 0 when the device
/// has no report of that kind.
struct HidCaps {
  std::uint16_t outputReportLength = 0;
  std::uint16_t inputReportLength = 0;
};

/// Opens a HID device for reading and writing, shared with other users.
OpenStatus OpenHidDevice(const std::wstring& path, HidDevice& device);

/// Creates an unnamed auto-reset event, not signalled.
Status CreateReportEvent(Event& event);

/// Reads and parses the device's report descriptor.
Status GetPreparsedData(const HidDevice& device, PreparsedData& preparsed);

/// The report lengths that a parsed report descriptor declares.
Status GetCaps(const PreparsedData& preparsed, HidCaps& caps);

/// The device's USB string descriptor of that index. `capacity` is the size in bytes, terminator
/// included, of the UTF-16 buffer that the string must fit.
OpenStatus GetIndexedString(const HidDevice& device, std::uint32_t index, std::size_t capacity,
                            std::wstring& text);

/// Sends one output report of `length` bytes; byte 0 is the report ID. Any thread can call this.
Status SetOutputReport(const HidDevice& device, const std::uint8_t* report, std::uint32_t length);

/// Reads one input report of at most `length` bytes; byte 0 names the report ID wanted. Bytes
/// after a shorter report stay as they are. Any thread can call this.
Status GetInputReport(const HidDevice& device, std::uint8_t* report, std::uint32_t length);

// ---- Device tree -------------------------------------------------------------------------------

enum class TextProperty {
  HardwareIds,    ///< string list
  LocationInfo,   ///< string
  LocationPaths,  ///< string list
};

/// The node's parent; fails at the top of the tree.
Status GetParent(DevInst node, DevInst& parent);

/// The node's device id as narrow or wide text. `capacity` counts characters, terminator included;
/// a longer id is a failure.
Status GetDeviceIdA(DevInst node, std::size_t capacity, std::string& id);
Status GetDeviceIdW(DevInst node, std::size_t capacity, std::wstring& id);

/// A text property, with the terminators that the system stores: a string ends with one NUL; in a
/// list each string ends with a NUL, and one more NUL follows. `capacity` is the size in bytes of
/// the UTF-16 buffer that all of it must fit; a longer value is a failure.
Status GetTextProperty(DevInst node, TextProperty property, std::size_t capacity,
                       std::wstring& text);

/// The node's address on its bus: for a USB device the port number on its hub.
Status GetAddressProperty(DevInst node, std::uint32_t& address);

// ---- Kernel services; any thread can call these ------------------------------------------------

enum class Architecture { Unknown, X86, X64, Arm64 };

/// Calendar time in the local time zone, as people write it (month and day from 1).
struct LocalTime {
  int year = 1970, month = 1, day = 1, hour = 0, minute = 0, second = 0;
};

/// The system's description of itself. A field without a value could not be read.
struct HostDescription {
  bool hasVersionStore = false;  ///< false: the store of version facts could not be opened
  std::optional<std::string> productName;
  std::uint32_t major = 0, minor = 0, build = 0;
  std::optional<std::uint32_t> updateRevision;
  Architecture architecture = Architecture::Unknown;
};

/// Suspends the calling thread for that many milliseconds.
void SleepMs(std::uint32_t milliseconds);

/// Milliseconds of a steady clock since some fixed moment.
std::uint64_t ClockMs();

LocalTime GetLocalTime();

/// Full path of the file that holds the library's own code, as narrow text; read once, while the
/// library was being loaded.
Status GetLibraryPath(std::string& path);

/// Architecture of the processor that the system runs on, whatever this process was built for.
Architecture NativeArchitecture();

HostDescription DescribeHost();

/// Writes one text to an attached debugger, if the system has such a channel.
void DebugOutput(const std::wstring& text);

/// Narrow form of a wide text in the system's own encoding: the ANSI code page on Windows, where
/// what has no narrow form becomes the page's default character, and UTF-8 on Linux.
std::string ToNarrow(const std::wstring& text);

/// The separator of path components: '\' or '/'.
char PathSeparator();

/// A narrow path in the form for the standard library's streams, which can open it at any length.
std::filesystem::path FilePath(const std::string& path);

bool PathExists(const char* path);
bool IsDirectory(const char* path);

/// Whether the path exists and this process can read and write it. False for an empty path.
bool IsReadableAndWritable(const char* path);

struct TextFileData;
struct TextFileCloser {
  void operator()(TextFileData* data) const noexcept;
};
/// Owner of one text file for writing. Child processes do not inherit it.
using TextFile = std::unique_ptr<TextFileData, TextFileCloser>;

/// Creates the file or empties it. Does not wait: a pipe without a reader is a failure.
Status CreateTextFile(const char* path, TextFile& file);

/// Appends text whose lines end in "\n"; the system has it when this returns. Text that cannot be
/// written is dropped and raises no signal.
void WriteTextFile(const TextFile& file, std::string_view text);

/// Closes the file early and returns the system's result; the owner is empty afterwards.
Status CloseTextFile(TextFile& file);

/// Reads a whole regular file into `bytes`, which a failure leaves unchanged. Fails for anything
/// else without opening it, so that nothing blocks, and when the file grows or shrinks while it is
/// read.
Status ReadRegularFile(const char* path, std::vector<std::uint8_t>& bytes);

/// Makes the process write a crash record to its current directory when an unhandled exception or a
/// fatal signal ends it; the system's own handling follows. Returns the handler that was installed
/// before, null when there was none.
QZ_ExceptionFilter InstallCrashHandler();

/// Reserves the memory that a crash record needs when the calling thread's stack has overflowed;
/// does nothing before a crash handler is installed, or a second time.
void CoverThread() noexcept;

/// Removes the crash handler when the library is unloaded, and restores what was installed before.
/// If another handler was installed since, it can continue to call this one, which then calls what
/// was installed before.
void RemoveCrashHandler() noexcept;

// ---- The calling thread ------------------------------------------------------------------------

/// While it lives, the calling thread is not cancelled, on systems that can do that: a thread that
/// ends between any two steps could leave a hub without firmware.
class CCancellationShield {
 public:
  CCancellationShield() noexcept;
  ~CCancellationShield();
  CCancellationShield(const CCancellationShield&) = delete;
  CCancellationShield& operator=(const CCancellationShield&) = delete;

 private:
  [[maybe_unused]] const int
      m_nOuter;  // the host's state of the outer shield, on systems that have one
};

/// While it lives, inside a shield, the calling thread runs code of the host and can be cancelled
/// as the host has chosen. Throws what a cancelled thread unwinds with.
class CCancellationWindow {
 public:
  CCancellationWindow();
  ~CCancellationWindow();
  CCancellationWindow(const CCancellationWindow&) = delete;
  CCancellationWindow& operator=(const CCancellationWindow&) = delete;
};

// ---- Events of the system; defined by the library above the seam -------------------------------
//
// The system calls these, perhaps under a lock of its own loader, so they wait for no other thread.

/// A thread of the process starts.
void OnThreadAttach() noexcept;

/// The library is being unloaded or the process ends; its other threads may be gone already.
void OnProcessDetach() noexcept;

// Around a fork of the process, on the thread that forks. The child can continue to use the
// library, whatever the other threads of the process were doing.
void OnForkBegin() noexcept;
void OnForkEnd(bool isChild) noexcept;

}  // namespace qzhid::platform
