#include "qzhid/port_lock.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>

#include "common/descriptor.h"

namespace qzhid {

struct PortLock::Data {
  tools::Descriptor socket;
};

// A name without a file: all users share these names, they need no folder, and nothing of them is
// left when the process ends.
PortLock::PortLock(const std::string& name)
    : data_(new Data{tools::Descriptor(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0))}) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::size_t size = std::min(name.size(), sizeof(address.sun_path) - 1);
  std::copy_n(name.begin(), size, address.sun_path + 1);
  const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + size);
  const int status = bind(data_->socket.get(), reinterpret_cast<const sockaddr*>(&address), length);
  // A system without such sockets has no lock; that is no reason not to write.
  isHeld_ = status == 0 || errno != EADDRINUSE;
}

PortLock::~PortLock() = default;

}  // namespace qzhid
