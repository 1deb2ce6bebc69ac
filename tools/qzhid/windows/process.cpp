#include "qzhid/process.h"

#include <windows.h>

#include <array>

#include "qzhid/windows/waitable.h"

namespace qzhid {

namespace {

constexpr DWORD kPollEveryMs = 20;

[[noreturn]] void Fail() { throw NotStarted("system error " + std::to_string(GetLastError())); }

}  // namespace

struct Process::Data {
  class Handle {
   public:
    Handle() = default;
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    ~Handle() { Close(); }
    HANDLE Get() const { return handle_; }
    HANDLE* Place() { return &handle_; }
    void Close() {
      if (handle_ != nullptr) CloseHandle(handle_);
      handle_ = nullptr;
    }

   private:
    HANDLE handle_ = nullptr;
  };

  /// Both ends stay in this process unless they are passed on.
  struct Pipe {
    Handle readEnd, writeEnd;
    Pipe() {
      if (CreatePipe(readEnd.Place(), writeEnd.Place(), nullptr, 0) == 0) Fail();
    }
  };

  Pipe input, output;
  Handle process;
};

Process::Process(const std::string& command) : data_(std::make_unique<Data>()) {
  std::wstring file(32768, L'\0');
  file.resize(GetModuleFileNameW(nullptr, file.data(), static_cast<DWORD>(file.size())));
  std::wstring line = L"qzhid " + std::wstring(command.begin(), command.end());

  STARTUPINFOW start{};
  start.cb = sizeof(start);
  start.dwFlags = STARTF_USESTDHANDLES;
  start.hStdInput = data_->input.readEnd.Get();
  start.hStdOutput = data_->output.writeEnd.Get();
  for (HANDLE handle : {start.hStdInput, start.hStdOutput}) {
    SetHandleInformation(handle, HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT);
  }
  PROCESS_INFORMATION started{};
  if (CreateProcessW(file.c_str(), line.data(), nullptr, nullptr, TRUE, CREATE_NO_WINDOW, nullptr,
                     nullptr, &start, &started) == 0) {
    Fail();
  }
  CloseHandle(started.hThread);
  *data_->process.Place() = started.hProcess;
  data_->input.readEnd.Close();
  data_->output.writeEnd.Close();
}

Process::Process(Process&&) noexcept = default;
Process::~Process() = default;

void Process::Write(const std::string& text) {
  // When it has ended, the end of its output shows that.
  DWORD written = 0;
  WriteFile(data_->input.writeEnd.Get(), text.data(), static_cast<DWORD>(text.size()), &written,
            nullptr);
}

void Process::CloseInput() { data_->input.writeEnd.Close(); }

bool Process::Read(std::string& text) {
  const HANDLE pipe = data_->output.readEnd.Get();
  std::array<char, 4096> part{};
  DWORD size = 0;
  for (;;) {
    if (PeekNamedPipe(pipe, nullptr, 0, nullptr, &size, nullptr) == 0) return false;
    if (size == 0) return true;
    if (ReadFile(pipe, part.data(), static_cast<DWORD>(part.size()), &size, nullptr) == 0) {
      return false;
    }
    text.append(part.data(), size);
  }
}

std::string Process::Ending() {
  DWORD status = 0;
  WaitForSingleObject(data_->process.Get(), INFINITE);
  GetExitCodeProcess(data_->process.Get(), &status);
  return "it ended with status " + std::to_string(status);
}

void Process::AwaitOutput(const std::vector<const Process*>& processes) {
  AwaitOutput(processes, {}, std::chrono::milliseconds(100));
}

void Process::AwaitOutput(const std::vector<const Process*>& processes,
                          const std::vector<Waitable>& objects, std::chrono::milliseconds time) {
  // Pipes cannot be waited for, and a thread that read them would switch the library's log on.
  std::vector<HANDLE> ready;
  ready.reserve(objects.size());
  for (const Waitable& object : objects) ready.push_back(object.handle);
  const DWORD patience = static_cast<DWORD>(time.count());
  const DWORD step = processes.empty() ? patience : kPollEveryMs;
  for (DWORD waited = 0; waited < patience; waited += step) {
    for (const Process* process : processes) {
      DWORD size = 0;
      const HANDLE pipe = process->data_->output.readEnd.Get();
      if (PeekNamedPipe(pipe, nullptr, 0, nullptr, &size, nullptr) == 0 || size > 0) return;
    }
    if (ready.empty()) {
      Sleep(step);
    } else if (WaitForMultipleObjects(static_cast<DWORD>(ready.size()), ready.data(), FALSE,
                                      step) != WAIT_TIMEOUT) {
      return;
    }
  }
}

}  // namespace qzhid
