// Files of a Linux system, as both backends use them.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "platform/code_of.h"
#include "platform/platform.h"
#include "support/temp_file.h"

namespace qzhid::platform::test {

namespace {

namespace fs = std::filesystem;
using qzhid::test::ReadText;
using qzhid::test::WriteText;

class SystemTest : public ::testing::Test {
 protected:
  TextFile Create(const std::string& path) const {
    TextFile file;
    EXPECT_EQ(0, CodeOf(CreateTextFile(path.c_str(), file)));
    return file;
  }

  const qzhid::test::ScratchFolder folder;
  const std::string log = folder.At("log"), fifo = folder.At("fifo");
};

TEST_F(SystemTest, OnlyARegularFileIsReadAndNothingElseIsOpened) {
  WriteText(folder.At("file"), "abc");
  fs::create_symlink(folder.At("file"), folder.At("link"));
  ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));  // opening it would wait
  ASSERT_EQ(0, mknod(folder.At("socket").c_str(), S_IFSOCK | 0600, 0));
  const std::pair<std::string, int> rows[] = {
      {folder.At("file"), 0},
      {folder.At("link"), 0},
      {folder.path, EISDIR},
      {"/dev/zero", EINVAL},
      {fifo, EINVAL},
      {folder.At("socket"), EINVAL},
      {folder.At("none"), ENOENT},
      {folder.At("file/x"), ENOTDIR},
      {"/proc/self/status", EBUSY}};  // its size is 0, but it is not empty
  for (const auto& [path, code] : rows) {
    std::vector<std::uint8_t> bytes = {1};
    EXPECT_EQ(code, CodeOf(ReadRegularFile(path.c_str(), bytes))) << path;
    EXPECT_EQ(code == 0 ? "abc" : "\1", std::string(bytes.begin(), bytes.end())) << path;
  }
}

TEST_F(SystemTest, ATextFileReplacesWhatWasThereUntilItIsClosed) {
  WriteText(log, "a longer earlier text");
  TextFile file = Create(log);
  for (const char* text : {"one\n", "", "two\n"}) WriteTextFile(file, text);
  EXPECT_EQ("one\ntwo\n", ReadText(log));
  EXPECT_EQ(0, CodeOf(CloseTextFile(file)));
  EXPECT_EQ(EBADF, CodeOf(CloseTextFile(file)));
  WriteTextFile(file, "three\n");
  EXPECT_EQ("one\ntwo\n", ReadText(log));
  ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
  EXPECT_EQ(ENXIO, CodeOf(CreateTextFile(fifo.c_str(), file))) << "without a reader, at once";
  EXPECT_EQ(EISDIR, CodeOf(CreateTextFile(folder.path.c_str(), file)));
  EXPECT_FALSE(file);
}

TEST_F(SystemTest, WhatCannotBeWrittenRaisesNoSignalAndKeepsTheSignalsOfTheHost) {
  const auto isPending = [] {
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, SIGPIPE) == 1;
  };
  ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
  const int reader = open(fifo.c_str(), O_RDONLY | O_NONBLOCK);
  const TextFile file = Create(fifo);
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

TEST_F(SystemTest, AFileThatReachesItsLimitKeepsWhatFits) {
  const TextFile file = Create(log);
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  const rlimit small{10, before.rlim_max};
  setrlimit(RLIMIT_FSIZE, &small);
  WriteTextFile(file, "12345678\n");
  WriteTextFile(file, "12345678\n");  // SIGXFSZ would end the process
  setrlimit(RLIMIT_FSIZE, &before);
  EXPECT_EQ("12345678\n1", ReadText(log));
}

}  // namespace

}  // namespace qzhid::platform::test
