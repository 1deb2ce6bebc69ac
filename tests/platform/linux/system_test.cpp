// Files of a Linux system, as both backends use them. tests/log has more on the files of a log.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <csignal>

#include "platform/seam_calls.h"
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

}  // namespace

}  // namespace qzhid::platform::test
