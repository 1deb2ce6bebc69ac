#include "common/process_start.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

namespace tools {

void PrepareProcess() {
  for (int number = STDIN_FILENO; number <= STDERR_FILENO; ++number) {
    // The lowest number that is free is that one, because those below it are open by now.
    if (fcntl(number, F_GETFD) < 0 && errno == EBADF) open("/dev/null", O_RDWR);
  }
  static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));
}

}  // namespace tools
