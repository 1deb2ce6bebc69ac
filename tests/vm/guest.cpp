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
#include <sstream>
#include <stdexcept>
#include <thread>

namespace qzhid::vm {

namespace {

using namespace std::chrono_literals;

std::string TempFile(const std::string& ending) {
  static int last = 0;
  return "/tmp/vm-" + std::to_string(getpid()) + '-' + std::to_string(++last) + ending;
}

// In the child; returns only when the program cannot be started.
void Execute(const std::vector<std::string>& command, uid_t user, int output) {
  if (user != 0 && (setgroups(0, nullptr) != 0 || setgid(user) != 0 || setuid(user) != 0)) return;
  dup2(output, STDOUT_FILENO);
  dup2(output, STDERR_FILENO);
  std::vector<char*> arguments;
  for (const std::string& argument : command) {
    arguments.push_back(const_cast<char*>(argument.c_str()));
  }
  arguments.push_back(nullptr);
  execvp(arguments[0], arguments.data());
}

const std::string kPortMark = " port=";

// qzhub counts the ports of the host controller from 0, the kernel from 1.
std::uint32_t PortAfterMark(const std::string& text) {
  return static_cast<std::uint32_t>(std::stoul(text)) + 1;
}

// Whether what is attached to the port has its address: the kernel has let go of what was there
// before.
bool HasAddress(std::uint32_t port) {
  constexpr unsigned kAddressed = 6;
  std::istringstream lines(ReadFile("/sys/devices/platform/vhci_hcd.0/status"));
  for (std::string line; std::getline(lines, line);) {
    std::istringstream fields(line);
    std::string hub;
    std::uint32_t number = 0;
    unsigned state = 0;
    if (fields >> hub >> number >> state && hub == "hs" && number + 1 == port) {
      return state == kAddressed;
    }
  }
  return false;
}

// The HID device's attribute appears when its device file has its owner and its mode; the device's
// folder is there before.
std::string ReadyHidFile(std::uint32_t port) {
  if (!HasAddress(port)) return "";
  std::error_code error;
  const std::string folder = std::filesystem::canonical(UsbFolder(port), error).string() + '/';
  if (error) return "";
  for (const std::string& name : HidrawDevices()) {
    const std::filesystem::path device = "/sys/class/hidraw/" + name;
    if (std::filesystem::canonical(device, error).string().starts_with(folder) &&
        std::filesystem::exists(device / "device/country", error)) {
      return "/dev/" + name;
    }
  }
  return "";
}

std::string WriteScenario(const std::string& scenario) {
  std::string file = TempFile(".json");
  WriteFile(file, scenario);
  return file;
}

}  // namespace

bool Eventually(const std::function<bool()>& condition, int seconds) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
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
  for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

Program::Program(const std::vector<std::string>& command, uid_t user)
    : outputFile_(TempFile(".txt")) {
  const int output =
      open(outputFile_.c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_APPEND | O_CLOEXEC, 0644);
  process_ = fork();
  if (process_ == 0) {
    Execute(command, user, output);
    _exit(127);
  }
  close(output);
  if (process_ < 0) throw std::runtime_error("fork failed");
}

Program::~Program() {
  Stop();
  unlink(outputFile_.c_str());
}

bool Program::HasWritten(const std::string& text) const {
  return Output().find(text) != std::string::npos;
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

Outcome RunProgram(const std::vector<std::string>& command, uid_t user) {
  Program program(command, user);
  const int status = program.Wait();
  return {status, program.Output()};
}

Attached::Attached(const std::string& scenario, std::size_t devices)
    : qzhub_({"qzhub", "attach", "--scenario", WriteScenario(scenario)}) {
  const auto areReady = [&] {
    const std::set<std::uint32_t> ports = Ports();
    return ports.size() == devices && std::none_of(ports.begin(), ports.end(), [](auto port) {
             return ReadyHidFile(port).empty();
           });
  };
  if (Eventually(areReady)) return;
  const std::string output = Output();
  Detach();
  throw std::runtime_error("not attached:\n" + output);
}

Attached::~Attached() { Detach(); }

std::set<std::uint32_t> Attached::Ports() const {
  std::set<std::uint32_t> ports;
  std::istringstream events(Output());
  for (std::string event; std::getline(events, event);) {
    const std::size_t port = event.find(kPortMark);
    if (port != std::string::npos)
      ports.insert(PortAfterMark(event.substr(port + kPortMark.size())));
  }
  return ports;
}

void Attached::Detach() {
  qzhub_.Stop();
  const std::set<std::uint32_t> ports = Ports();
  Eventually([&] {
    return std::none_of(ports.begin(), ports.end(),
                        [](auto port) { return std::filesystem::exists(UsbFolder(port)); });
  });
}

std::string Attached::HidFile(const std::string& name) const { return ReadyHidFile(PortOf(name)); }

std::uint32_t Attached::PortOf(const std::string& name) const {
  const std::string output = "\n" + Output(), line = "\nattached " + name + kPortMark;
  const std::size_t found = output.rfind(line);
  if (found == std::string::npos) throw std::runtime_error(name + " is not attached:\n" + output);
  return PortAfterMark(output.substr(found + line.size()));
}

std::size_t Attached::TimesAttached(const std::string& name) const {
  const std::string output = "\n" + Output(), line = "\nattached " + name + " ";
  std::size_t count = 0;
  for (std::size_t at = output.find(line); at != std::string::npos;
       at = output.find(line, at + 1)) {
    ++count;
  }
  return count;
}

std::string UsbFolder(std::uint32_t port) {
  return "/sys/bus/usb/devices/1-" + std::to_string(port);
}

std::vector<std::string> HidrawDevices() { return NamesIn("/sys/class/hidraw"); }

}  // namespace qzhid::vm
