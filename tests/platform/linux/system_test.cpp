// Files of a Linux system, as both backends use them.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>

#include "platform/code_of.h"
#include "platform/platform.h"

namespace qzhid::platform::test {

namespace {

namespace fs = std::filesystem;

bool IsPending(int signal) {
  sigset_t pending;
  sigpending(&pending);
  return sigismember(&pending, signal) == 1;
}

/// A folder that is removed again.
class SystemTest : public ::testing::Test {
 protected:
  ~SystemTest() override { fs::remove_all(folder); }

  std::string Path(const std::string& name) const { return folder + '/' + name; }
  std::string Contents(const std::string& name) const {
    std::ifstream file(Path(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  const std::string folder = [] {
    std::string name = ::testing::TempDir() + "system.XXXXXX";
    return std::string(mkdtemp(name.data()));
  }();
};

TEST_F(SystemTest, OnlyARegularFileIsReadAndNothingElseIsOpened) {
  std::ofstream(Path("file")) << "abc";
  fs::create_symlink(Path("file"), Path("link"));
  fs::create_symlink(folder, Path("folder"));
  fs::create_symlink("/dev/zero", Path("device"));
  ASSERT_EQ(0, mkfifo(Path("fifo").c_str(), 0600));  // opening it would wait
  ASSERT_EQ(0, mknod(Path("socket").c_str(), S_IFSOCK | 0600, 0));
  const std::pair<std::string, int> rows[] = {
      {Path("file"), 0},           {Path("link"), 0},
      {Path("folder"), EISDIR},    {Path("device"), EINVAL},
      {Path("fifo"), EINVAL},      {Path("socket"), EINVAL},
      {Path("none"), ENOENT},      {Path("file/x"), ENOTDIR},
      {"/proc/self/status", EBUSY}};  // says that it is empty, and is not
  for (const auto& [path, code] : rows) {
    std::vector<std::uint8_t> bytes = {1};
    EXPECT_EQ(code, CodeOf(ReadRegularFile(path.c_str(), bytes))) << path;
    EXPECT_EQ(code == 0 ? "abc" : "\1", std::string(bytes.begin(), bytes.end())) << path;
  }
}

TEST_F(SystemTest, ATextFileReplacesWhatWasThereAndIsNotInherited) {
  std::ofstream(Path("log")) << "a longer earlier text";
  TextFile file;
  EXPECT_EQ(0, CodeOf(CreateTextFile(Path("log").c_str(), file)));
  WriteTextFile(file, "one\n");
  WriteTextFile(file, "");
  WriteTextFile(file, "two\n");
  EXPECT_EQ("one\ntwo\n", Contents("log")) << "before it is closed";
  for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
    std::error_code none;
    if (fs::read_symlink(entry.path(), none) != Path("log")) continue;
    const int number = std::stoi(entry.path().filename().string());
    EXPECT_EQ(FD_CLOEXEC, fcntl(number, F_GETFD));
  }
  EXPECT_EQ(0, CodeOf(CloseTextFile(file)));
  EXPECT_EQ(EBADF, CodeOf(CloseTextFile(file)));
  WriteTextFile(file, "three\n");
  EXPECT_EQ("one\ntwo\n", Contents("log"));
}

TEST_F(SystemTest, ATextFileThatCannotBeCreatedFailsAtOnce) {
  ASSERT_EQ(0, mkfifo(Path("fifo").c_str(), 0600));
  TextFile file;
  EXPECT_EQ(ENXIO, CodeOf(CreateTextFile(Path("fifo").c_str(), file)));
  EXPECT_EQ(EISDIR, CodeOf(CreateTextFile(folder.c_str(), file)));
  EXPECT_FALSE(file);
}

TEST_F(SystemTest, WhatCannotBeWrittenRaisesNoSignalAndKeepsTheSignalsOfTheHost) {
  ASSERT_EQ(0, mkfifo(Path("fifo").c_str(), 0600));
  sigset_t pipes, before;
  sigemptyset(&pipes);
  sigaddset(&pipes, SIGPIPE);
  const int reader = open(Path("fifo").c_str(), O_RDONLY | O_NONBLOCK);
  TextFile file;
  ASSERT_EQ(0, CodeOf(CreateTextFile(Path("fifo").c_str(), file)));
  close(reader);
  WriteTextFile(file, "nobody reads this\n");  // SIGPIPE would end the process

  pthread_sigmask(SIG_BLOCK, &pipes, &before);
  WriteTextFile(file, "nor this\n");
  EXPECT_FALSE(IsPending(SIGPIPE)) << "one of the library's";
  pthread_kill(pthread_self(), SIGPIPE);
  WriteTextFile(file, "nor this\n");
  EXPECT_TRUE(IsPending(SIGPIPE)) << "one of the host's";
  const timespec noTime{};
  sigtimedwait(&pipes, nullptr, &noTime);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);

  sigset_t mask;
  pthread_sigmask(SIG_SETMASK, nullptr, &mask);
  EXPECT_EQ(0, sigismember(&mask, SIGPIPE));
  EXPECT_EQ(0, sigismember(&mask, SIGXFSZ));
}

TEST_F(SystemTest, AFileThatReachesItsLimitKeepsWhatFits) {
  TextFile file;
  ASSERT_EQ(0, CodeOf(CreateTextFile(Path("log").c_str(), file)));
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  rlimit small = before;
  small.rlim_cur = 10;
  setrlimit(RLIMIT_FSIZE, &small);
  WriteTextFile(file, "12345678\n");
  WriteTextFile(file, "12345678\n");  // SIGXFSZ would end the process
  setrlimit(RLIMIT_FSIZE, &before);
  EXPECT_EQ("12345678\n1", Contents("log"));
}

}  // namespace

}  // namespace qzhid::platform::test
