// What tests in the virtual machine share: programs, attached devices, the kernel's view of them.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace qzhid::vm {

/// Polls until it holds, for at most that time.
bool Eventually(const std::function<bool()>& condition,
                std::chrono::seconds limit = std::chrono::seconds(20));

/// Empty when there is none.
std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::string& text);

/// The names in a folder, sorted.
std::vector<std::string> NamesIn(const std::string& folder);

/// A running command of the shell. Ended with SIGTERM at the latest when this goes.
class Program {
 public:
  /// Runs as that user, who then has no other groups either.
  explicit Program(const std::string& command, uid_t user = 0);
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  /// What it has written so far.
  std::string Output() const { return ReadFile(outputFile_); }
  bool HasWritten(const std::string& text) const {
    return Output().find(text) != std::string::npos;
  }

  pid_t Id() const { return process_; }

  /// Waits for its end; returns the exit status, 128 and more for a signal.
  int Wait();
  /// Asks it to end and waits.
  int Stop();

 private:
  std::string outputFile_;
  pid_t process_;
};

/// Runs a command to its end; its exit status and its output.
std::pair<int, std::string> RunProgram(const std::string& command, uid_t user = 0);

/// Devices that qzhub attaches to the kernel, as long as this lives; at first they are ready.
class Attached {
 public:
  /// `devices` are the devices of the scenario that are there from the start.
  explicit Attached(const std::string& scenario, std::size_t devices = 1);
  /// Detaches the devices; returns when the kernel has forgotten them.
  ~Attached() { Detach(); }

  /// The ports on the kernel's root hub (1, 2, ...) that the device of that name was attached to,
  /// or all devices, one after the other.
  std::vector<std::uint32_t> Ports(const std::string& name = "\\S+") const;
  std::uint32_t PortOf(const std::string& name) const { return Ports(name).back(); }
  /// The device file of its HID node. Empty until the kernel has taken in its last arrival: what
  /// was there before has then left, and the device files are what they will be.
  std::string HidFile(const std::string& name) const;

  std::string Output() const { return qzhub_.Output(); }

  /// What the destructor does, before it; the exit status of qzhub.
  int Detach();

 private:
  Program qzhub_;
};

/// The folder of the USB device on that port of the first root hub.
std::string UsbFolder(std::uint32_t port);

/// The names of the present hidraw devices.
std::vector<std::string> HidrawDevices();

}  // namespace qzhid::vm
