#include "qzhid/arrivals.h"

#include <linux/netlink.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <set>
#include <string_view>
#include <utility>

#include "common/descriptor.h"
#include "qzhid/arrivals_poll.h"
#include "qzhid/linux/waitable.h"

namespace qzhid {

namespace {

tools::Descriptor OpenEvents() {
  tools::Descriptor events(
      socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_KOBJECT_UEVENT));
  sockaddr_nl address{};
  address.nl_family = AF_NETLINK;
  address.nl_groups = 1;  // of the kernel itself; there need not be a udev
  const auto* const generic = reinterpret_cast<const sockaddr*>(&address);
  if (bind(events.get(), generic, sizeof(address)) != 0) events.Close();
  return events;
}

// The devices as links, which hold a number that is new at each arrival.
std::set<std::string> ReadNames() {
  std::set<std::string> names;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator("/sys/class/hidraw", error)) {
    names.insert(std::filesystem::read_symlink(entry.path(), error).string());
  }
  return names;
}

bool HasInput() {
  pollfd input{STDIN_FILENO, POLLIN, 0};
  return poll(&input, 1, 0) == 1;
}

}  // namespace

struct Arrivals::Data {
  bool isVirtual;
  bool hasLines;
  bool isChanged = false;
  // First the events, so that no change is between them and the names.
  tools::Descriptor events = isVirtual ? tools::Descriptor() : OpenEvents();
  ArrivalsPoll<std::set<std::string>> poll{isVirtual, ReadNames};
  std::string input{};

  void Hear() {
    std::array<char, 8192> message{};
    for (;;) {
      const ssize_t size = recv(events.get(), message.data(), message.size(), 0);
      if (size < 0 && errno == EINTR) continue;
      if (size < 0 && errno == ENOBUFS) isChanged = true;  // there were more than are kept
      if (size <= 0) return;
      const std::string_view text(message.data(), static_cast<std::size_t>(size));
      if (text.find("SUBSYSTEM=hidraw") != std::string_view::npos) isChanged = true;
    }
  }

  void ReadInput() {
    std::array<char, 1024> part{};
    const ssize_t size = read(STDIN_FILENO, part.data(), part.size());
    if (size > 0) input.append(part.data(), static_cast<std::size_t>(size));
    const std::size_t line = input.rfind('\n') + 1;  // npos + 1 is 0
    if (input.size() > line + kLongestLine) input.resize(line + kLongestLine);
    if (size == 0 || (size < 0 && errno != EINTR && errno != EAGAIN)) {
      if (!input.empty() && input.back() != '\n') input += '\n';
      hasLines = false;
    }
  }
};

Arrivals::Arrivals(bool isVirtual, bool hasLines) : data_(new Data{isVirtual, hasLines}) {}

Arrivals::~Arrivals() = default;

void Arrivals::Await(const std::vector<const Process*>& processes, std::chrono::milliseconds time) {
  std::vector<Waitable> objects;
  if (data_->events) objects.push_back({data_->events.get()});
  if (data_->hasLines) objects.push_back({STDIN_FILENO});
  if (data_->isVirtual) time = std::min(time, kVirtualChange);
  Process::AwaitOutput(processes, objects, time);
  if (data_->events) data_->Hear();
  if (data_->hasLines && HasInput()) data_->ReadInput();
  data_->isChanged = data_->poll.HasChanged(bool(data_->events), data_->isChanged);
}

bool Arrivals::TakeChange() { return std::exchange(data_->isChanged, false); }

std::optional<std::string> Arrivals::TakeLine() {
  const std::size_t end = data_->input.find('\n');
  if (end == std::string::npos) return std::nullopt;
  std::string line = data_->input.substr(0, end);
  data_->input.erase(0, end + 1);
  return line;
}

bool Arrivals::HasEnded() const { return !data_->hasLines && data_->input.empty(); }

}  // namespace qzhid
