// Work in a process of its own.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include "rows.h"

namespace qzhid::bench {

/// The number that `work` returns in a child process.
template <class Work>
double InChild(const Work& work) {
  int ends[2];
  if (pipe(ends) != 0) Fail("no pipe");
  const pid_t child = fork();
  if (child == 0) {
    const double value = work();
    _exit(write(ends[1], &value, sizeof(value)) == sizeof(value) ? 0 : 1);
  }
  close(ends[1]);
  double value = 0;
  const bool isRead = child > 0 && read(ends[0], &value, sizeof(value)) == sizeof(value);
  close(ends[0]);
  waitpid(child, nullptr, 0);
  if (!isRead) Fail("a child process has measured nothing");
  return value;
}

}  // namespace qzhid::bench
