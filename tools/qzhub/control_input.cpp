#include "qzhub/control_input.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>

namespace qzhub {

namespace {

constexpr int kInterval = 50;  // milliseconds
constexpr int kForever = -1;
constexpr int kNone = -1;  // a descriptor that poll does not look at
constexpr std::size_t kLongestLine = 0x10000;

// A program in the background of a terminal would be stopped if it read what is typed there.
bool IsOurs(int descriptor) {
  return isatty(descriptor) == 0 || tcgetpgrp(descriptor) == getpgrp();
}

}  // namespace

ControlInput::ControlInput(virtualhub::Machine& machine, bool hasFile, const StopEvent& stop,
                           EventLog& log)
    : machine_(machine), hasFile_(hasFile), stop_(stop), log_(log), thread_([this] { Run(); }) {}

ControlInput::~ControlInput() {
  stop_.Request();
  thread_.join();
}

void ControlInput::Run() {
  bool isOpen = true;
  for (;;) {
    const bool isOurs = isOpen && IsOurs(STDIN_FILENO);
    std::array<pollfd, 2> watched{
        {{stop_.fd(), POLLIN, 0}, {isOurs ? STDIN_FILENO : kNone, POLLIN, 0}}};
    poll(watched.data(), watched.size(), hasFile_ || isOpen != isOurs ? kInterval : kForever);
    if (watched[0].revents != 0) return;
    if (watched[1].revents != 0) isOpen = Read();
    machine_.FollowControl();
  }
}

// False when nothing more will come.
bool ControlInput::Read() {
  std::array<char, 4096> bytes;
  const ssize_t count = read(STDIN_FILENO, bytes.data(), bytes.size());
  if (count < 0) return errno == EINTR || errno == EAGAIN;
  rest_.append(bytes.data(), static_cast<std::size_t>(count));
  std::size_t at = 0;
  for (std::size_t end; (end = rest_.find('\n', at)) != std::string::npos; at = end + 1) {
    Take(rest_.substr(at, end - at));
  }
  rest_.erase(0, at);
  if (rest_.size() <= kLongestLine) return count > 0;
  log_.Remark("standard input: a line has more than " + std::to_string(kLongestLine) +
              " bytes; it is read no more");
  return false;
}

void ControlInput::Take(const std::string& line) try {
  ++lines_;
  machine_.Control(line);
} catch (const virtualhub::ControlError& error) {
  log_.Remark("standard input:" + std::to_string(lines_) + ": " + error.what());
}

}  // namespace qzhub
