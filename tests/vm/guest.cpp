#include "vm/guest.h"

#include <fcntl.h>
#include <grp.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <stdexcept>
#include <thread>

namespace qzhid::vm {

namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

std::string TempFile(const std::string& contents) {
  static int last = 0;
  std::string file = "/tmp/vm-" + std::to_string(getpid()) + '-' + std::to_string(++last);
  WriteFile(file, contents);
  return file;
}

// In the child; returns only when the command cannot be started.
void Execute(const std::string& command, uid_t user, const std::string& outputFile) {
  const int output = open(outputFile.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
  if (user != 0 && (setgroups(0, nullptr) != 0 || setgid(user) != 0 || setuid(user) != 0)) return;
  dup2(output, STDOUT_FILENO);
  dup2(output, STDERR_FILENO);
  execl("/bin/sh", "sh", "-c", ("exec " + command).c_str(), nullptr);
}

// The HID device's attribute appears when its device file has its owner and its mode; the device's
// folder is there before. While a port still has the device before, the new one has no address.
std::string ReadyHidFile(std::uint32_t port) {
  const std::regex hasAddress("hs +0*" + std::to_string(port - 1) + " +006 ");
  const std::string status = ReadFile("/sys/devices/platform/vhci_hcd.0/status");
  if (!std::regex_search(status, hasAddress)) return "";
  const std::string folder = "/1-" + std::to_string(port) + '/';
  std::error_code error;
  for (const std::string& name : HidrawDevices()) {
    const fs::path device = "/sys/class/hidraw/" + name;
    if (fs::canonical(device, error).string().find(folder) != std::string::npos &&
        fs::exists(device / "device/country", error)) {
      return "/dev/" + name;
    }
  }
  return "";
}

}  // namespace

bool Eventually(const std::function<bool()>& condition, std::chrono::seconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(10ms);
  }
  return true;
}

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void WriteFile(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

std::vector<std::string> NamesIn(const std::string& folder) {
  std::vector<std::string> names;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(folder, error)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

Program::Program(const std::string& command, uid_t user)
    : outputFile_(TempFile("")), process_(fork()) {
  if (process_ < 0) throw std::runtime_error("fork failed");
  if (process_ > 0) return;
  Execute(command, user, outputFile_);
  _exit(127);
}

Program::~Program() {
  Stop();
  unlink(outputFile_.c_str());
}

int Program::Wait() {
  int status = 0;
  if (process_ <= 0 || waitpid(process_, &status, 0) != process_) return -1;
  process_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int Program::Stop() {
  if (process_ > 0) kill(process_, SIGTERM);
  return Wait();
}

std::pair<int, std::string> RunProgram(const std::string& command, uid_t user) {
  Program program(command, user);
  const int status = program.Wait();
  return {status, program.Output()};
}

Attached::Attached(const std::string& scenario, std::size_t devices)
    : qzhub_("qzhub attach --scenario " + TempFile(scenario)) {
  const auto isReady = [](std::uint32_t port) { return !ReadyHidFile(port).empty(); };
  const auto areReady = [&] {
    const auto ports = Ports();
    return ports.size() >= devices && std::all_of(ports.begin(), ports.end(), isReady);
  };
  if (Eventually(areReady)) return;
  const std::string output = Output();
  Detach();
  throw std::runtime_error("not attached:\n" + output);
}

int Attached::Detach() {
  const int status = qzhub_.Stop();
  for (const std::uint32_t port : Ports()) {
    Eventually([&] { return !fs::exists(UsbFolder(port)); });
  }
  return status;
}

// qzhub counts the ports of the host controller from 0, the kernel from 1.
std::vector<std::uint32_t> Attached::Ports(const std::string& name) const {
  std::vector<std::uint32_t> ports;
  const std::string output = Output();
  const std::regex event("attached " + name + " port=(\\d+)");
  for (std::sregex_iterator found(output.begin(), output.end(), event), end; found != end;
       ++found) {
    ports.push_back(static_cast<std::uint32_t>(std::stoul((*found)[1])) + 1);
  }
  return ports;
}

std::string Attached::HidFile(const std::string& name) const { return ReadyHidFile(PortOf(name)); }

std::string UsbFolder(std::uint32_t port) {
  return "/sys/bus/usb/devices/1-" + std::to_string(port);
}

std::vector<std::string> HidrawDevices() { return NamesIn("/sys/class/hidraw"); }

}  // namespace qzhid::vm
