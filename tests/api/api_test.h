// The fixture of tests that reach the library through its exports. They know nothing else of it,
// and run on Linux with its code inside the program and on Windows with the DLL.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

#include "support/machine_test.h"
#include "test_system.h"
#include "virtualhub/hub/image.h"

namespace qzhid::test {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Lines = std::vector<LogLine>;
using Keys16 = std::vector<std::uint16_t>;

/// What most exports return when they reject their arguments.
inline constexpr std::uint32_t kRejected = 0xFFFFFFFF;

/// A text as printf makes it.
inline std::string Text(const char* format, ...) {
  char text[1024] = {};
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof(text), format, arguments);
  va_end(arguments);
  return text;
}

/// Lists the devices as a host does that only wants them counted.
inline std::uint32_t List() {
  HidDevRecord* list = nullptr;
  std::uint32_t count = 0;
  QZ_ListAllHidDev(&list, &count);
  QZ_FreeDevList(list);
  return count;
}

class ApiTest : public MachineTest {
 protected:
  ~ApiTest() override { QZ_CloseDev(handle); }

  /// Lists and opens the named device in place of the one before; forgets the records of that.
  void Open(const char* device = "hub") {
    QZ_CloseDev(handle);
    List();
    handle = QZ_OpenHid(machine->HidInstance(device));
    EXPECT_NE(nullptr, handle);
    ClearRecords();
  }
  /// The same on a machine that has only this hub, with more JSON members.
  void OpenHub(const std::string& members = "") {
    InstallJson(R"({"devices": [{"name": "hub", "port": "3.1")" + members + "}]}");
    Open();
  }
  /// The same on a machine with two hubs.
  void OpenFirstOfTwo() {
    InstallJson(R"({"devices": [{"name": "hub", "port": "1"}, {"name": "other", "port": "2"}]})");
    Open();
  }

  virtualhub::Hub& hub(const char* name = "hub") { return machine->hub(name); }

  /// Whether a bank of the hub begins with these bytes.
  bool Holds(const Bytes& expected, std::size_t bank = 0, const char* name = "hub") {
    const auto contents = hub(name).bank(bank).contents();
    return std::equal(expected.begin(), expected.end(), contents.begin());
  }

  std::vector<std::string> DebugTexts() const { return machine->recorder().DebugTexts(); }

  void* handle = nullptr;
};

}  // namespace qzhid::test
