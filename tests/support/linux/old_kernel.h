// The kernel's answer to a request that it does not know.
#pragma once

#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <cstddef>
#include <thread>

namespace qzhid::test {

/// Runs the task on a thread of its own, for which HIDIOCGINPUT and HIDIOCSOUTPUT fail with that
/// code before the kernel looks at them.
template <class Task>
void WithReportRequestsFailing(unsigned code, const Task& task) {
  constexpr auto kRequest = offsetof(seccomp_data, args) + sizeof(seccomp_data::args[0]);
  sock_filter program[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_ioctl, 0, 4),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kRequest),
      BPF_STMT(BPF_ALU | BPF_AND | BPF_K, 0xFFFE),  // type, and number but for its last bit
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0x480A, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | code),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  std::thread([&] {
    const sock_fprog filter{std::size(program), program};
    ASSERT_EQ(0, prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0));
    ASSERT_EQ(0, prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter));
    task();
  }).join();
}

}  // namespace qzhid::test
