// Files and threads of a Linux system, as both backends use them. tests/log has more on log files.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/stat.h>

#include <cerrno>
#include <csignal>

#include "platform/seam_calls.h"
#include "platform/system/linux/signal_stack.h"
#include "support/temp_file.h"

namespace qzhid::platform::test {

namespace {

class SystemTest : public ::testing::Test {
 protected:
  SystemTest() { EXPECT_EQ(0, mkfifo(fifo.c_str(), 0600)); }

  const qzhid::test::ScratchFolder folder;
  const std::string fifo = folder.At("fifo"), regular = folder.At("file");
};

TEST_F(SystemTest, OnlyARegularFileIsReadAndNothingElseIsOpened) {
  qzhid::test::WriteText(regular, "abc");
  std::filesystem::create_symlink(regular, folder.At("link"));
  ASSERT_EQ(0, mknod(folder.At("socket").c_str(), S_IFSOCK | 0600, 0));
  const std::pair<std::string, int> rows[] = {
      {regular, 0},     {folder.At("link"), 0},        {folder.path, EISDIR},
      {fifo, EINVAL},   {folder.At("socket"), EINVAL}, {"/dev/zero", EINVAL},
      {"none", ENOENT}, {regular + "/x", ENOTDIR},     {"/proc/self/status", EBUSY}};
  for (const auto& [path, code] : rows) {
    std::vector<std::uint8_t> bytes = {1};
    EXPECT_EQ(code, CodeOf(ReadRegularFile(path.c_str(), bytes))) << path;
    EXPECT_EQ(code == 0 ? "abc" : "\1", std::string(bytes.begin(), bytes.end())) << path;
  }
}

TEST_F(SystemTest, WhatCannotBeWrittenRaisesNoSignalAndKeepsTheSignalsOfTheHost) {
  const auto isPending = [] {
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, SIGPIPE) == 1;
  };
  TextFile file;
  const int reader = open(fifo.c_str(), O_RDONLY | O_NONBLOCK);
  ASSERT_EQ(0, CodeOf(CreateTextFile(fifo.c_str(), file)));
  close(reader);
  WriteTextFile(file, "nobody reads this\n");  // SIGPIPE would end the process

  sigset_t pipes, before, mask;
  sigemptyset(&pipes);
  sigaddset(&pipes, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &pipes, &before);
  WriteTextFile(file, "nor this\n");
  EXPECT_FALSE(isPending()) << "one of the library's";
  pthread_kill(pthread_self(), SIGPIPE);
  WriteTextFile(file, "nor this\n");
  EXPECT_TRUE(isPending()) << "one of the host's";
  const timespec noTime{};
  sigtimedwait(&pipes, nullptr, &noTime);
  pthread_sigmask(SIG_SETMASK, &before, &mask);
  EXPECT_EQ(1, sigismember(&mask, SIGPIPE)) << "as the host has it";
  EXPECT_EQ(0, sigismember(&mask, SIGXFSZ));
}

TEST(Cancellation, AThreadCanBeCancelledAsTheHostHasChosenOutsideTheShieldAndInItsWindow) {
  for (const int chosen : {PTHREAD_CANCEL_ENABLE, PTHREAD_CANCEL_DISABLE}) {
    std::vector<int> states;
    const auto look = [&] {
      int state = 0;
      pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
      pthread_setcancelstate(state, nullptr);
      states.push_back(state);
    };
    pthread_setcancelstate(chosen, nullptr);
    {
      const CCancellationShield shield;
      look();
      {
        const CCancellationWindow window;
        look();
        const CCancellationShield inner;
        look();
      }
      look();
    }
    look();
    constexpr int kOff = PTHREAD_CANCEL_DISABLE;
    EXPECT_EQ((std::vector{kOff, chosen, kOff, kOff, chosen}), states);
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
  }
}

TEST(SignalStack, AThreadKeepsThatOfTheHostOrGetsOneUntilTheEnd) {
  static char s_room[0x10000];
  stack_t before{}, host{}, none{}, now{};
  host.ss_sp = s_room;
  host.ss_size = sizeof(s_room);
  none.ss_flags = SS_DISABLE;
  sigaltstack(nullptr, &before);
  for (const stack_t& own : {host, none}) {
    sigaltstack(&own, nullptr);
    StartSignalStacks();
    CoverThread();
    sigaltstack(nullptr, &now);
    EXPECT_EQ(std::pair(0, own.ss_sp == s_room), std::pair(now.ss_flags, now.ss_sp == s_room));
    EndSignalStacks();
    sigaltstack(nullptr, &now);
    EXPECT_EQ(own.ss_flags, now.ss_flags);
  }
  sigaltstack(&before, nullptr);
}

}  // namespace

}  // namespace qzhid::platform::test
