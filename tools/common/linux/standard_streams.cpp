#include "common/standard_streams.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace tools {

void OpenStandardStreams() {
  for (int number = STDIN_FILENO; number <= STDERR_FILENO; ++number) {
    // The lowest number that is free is that one, because those below it are open by now.
    if (fcntl(number, F_GETFD) < 0 && errno == EBADF) open("/dev/null", O_RDWR);
  }
}

}  // namespace tools
