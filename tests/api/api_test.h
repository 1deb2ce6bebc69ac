// The frame of tests that reach the library through its exports.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <string>

#include "support/library_test.h"
#include "virtualhub/image.h"

namespace qzhid::test {

using virtualhub::Bytes;
using virtualhub::Fault;
using Lines = std::vector<LogLine>;
using Texts = std::vector<std::string>;

inline constexpr std::uint32_t kStatusRefused = 0xFFFFFFFF;

/// What a log line says when its values are these.
inline std::string Text(const char* format, ...) {
  char text[1024] = {};
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof(text), format, arguments);
  va_end(arguments);
  return text;
}

/// Events of one kind (requests of one key) fail for ever with that system code.
inline Fault Failing(Fault::On on, std::uint32_t code, std::uint16_t key = 0) {
  Fault fault;
  fault.on = on;
  fault.code = code;
  fault.requestType = static_cast<std::uint8_t>(key >> 8);
  fault.request = static_cast<std::uint8_t>(key & 0xFF);
  fault.count = 0;
  return fault;
}

class ApiTest : public LibraryTest {
 protected:
  ~ApiTest() override { QZ_CloseDev(handle); }

  /// Installs a recorded machine with these devices (members of a JSON array).
  void InstallDevices(const std::string& devices) {
    Install(virtualhub::ReadScenario(R"({"record": true, "devices": [)" + devices + "]}"));
  }

  /// Fills the library's list; the number of devices in it.
  static std::uint32_t List() {
    HidDevRecord* list = nullptr;
    std::uint32_t count = 0;
    QZ_ListAllHidDev(&list, &count);
    QZ_FreeDevList(list);
    return count;
  }

  /// Lists and opens the named device in place of the one before; forgets the records of that.
  void Open(const char* device = "hub") {
    QZ_CloseDev(handle);
    List();
    handle = QZ_OpenHid(world->HidInstance(device));
    EXPECT_NE(nullptr, handle);
    ClearRecords();
  }

  /// How many handles of the system the library holds.
  int OpenHandles() const {
    int count = 0;
    for (const int kind : {0, 1, 2, 3}) {
      count += world->openHandles(static_cast<virtualhub::HandleKind>(kind));
    }
    return count;
  }

  virtualhub::Hub& hub(const char* device = "hub") { return world->hub(device); }
  Texts DebugTexts() const { return world->recorder().DebugTexts(); }

  void* handle = nullptr;
};

}  // namespace qzhid::test
