#include "qzhid/process.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "common/descriptor.h"
#include "qzhid/linux/waitable.h"

namespace qzhid {

namespace {

[[noreturn]] void Fail(int error) { throw NotStarted(std::strerror(error)); }

}  // namespace

struct Process::Data {
  /// Both ends stay in this process unless they are passed on.
  struct Pipe {
    tools::Descriptor readEnd, writeEnd;
    Pipe() {
      std::array<int, 2> ends{};
      if (pipe2(ends.data(), O_CLOEXEC) != 0) Fail(errno);
      readEnd = tools::Descriptor(ends[0]);
      writeEnd = tools::Descriptor(ends[1]);
    }
  };

  Pipe input, output;
  pid_t id = 0;
};

Process::Process(const std::string& command) : data_(std::make_unique<Data>()) {
  std::string name = "qzhid", argument = command;
  char* words[] = {name.data(), argument.data(), nullptr};

  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_adddup2(&files, data_->input.readEnd.get(), STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&files, data_->output.writeEnd.get(), STDOUT_FILENO);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
  posix_spawnattr_setpgroup(&attributes, 0);
  const int error = posix_spawn(&data_->id, "/proc/self/exe", &files, &attributes, words, environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&files);
  if (error != 0) Fail(error);
  data_->input.readEnd.Close();
  data_->output.writeEnd.Close();
  fcntl(data_->output.readEnd.get(), F_SETFL, O_NONBLOCK);
}

Process::Process(Process&&) noexcept = default;
Process::~Process() = default;

void Process::Write(const std::string& text) {
  // When it has ended, the end of its output shows that.
  [[maybe_unused]] const auto written =
      write(data_->input.writeEnd.get(), text.data(), text.size());
}

void Process::CloseInput() { data_->input.writeEnd.Close(); }

bool Process::Read(std::string& text) {
  std::array<char, 4096> part{};
  for (;;) {
    const ssize_t size = read(data_->output.readEnd.get(), part.data(), part.size());
    if (size == 0) return false;
    if (size < 0 && errno == EINTR) continue;
    if (size < 0) return errno == EAGAIN;
    text.append(part.data(), static_cast<std::size_t>(size));
  }
}

std::string Process::Ending() {
  int status = 0;
  while (waitpid(data_->id, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFSIGNALED(status)) return "it was killed by signal " + std::to_string(WTERMSIG(status));
  return "it ended with status " + std::to_string(WEXITSTATUS(status));
}

void Process::AwaitOutput(const std::vector<const Process*>& processes) {
  AwaitOutput(processes, {}, std::chrono::milliseconds(100));
}

void Process::AwaitOutput(const std::vector<const Process*>& processes,
                          const std::vector<Waitable>& objects, std::chrono::milliseconds time) {
  std::vector<pollfd> files;
  files.reserve(processes.size() + objects.size());
  for (const Process* process : processes) {
    files.push_back({process->data_->output.readEnd.get(), POLLIN, 0});
  }
  for (const Waitable& object : objects) files.push_back({object.descriptor, POLLIN, 0});
  poll(files.data(), files.size(), static_cast<int>(time.count()));
}

}  // namespace qzhid
