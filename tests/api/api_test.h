// The frame of tests that reach the library through its exports.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <regex>
#include <string>

#include "support/machine_test.h"
#include "test_system.h"
#include "virtualhub/hub/image.h"

namespace qzhid::test {

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
  Fault fault{.on = on, .count = 0, .code = code};
  fault.requestType = static_cast<std::uint8_t>(key >> 8);
  fault.request = static_cast<std::uint8_t>(key);
  return fault;
}

/// What was logged, line by line behind its level, which may be unknown ('*').
struct Transcript {
  std::string text;

  bool operator==(const std::string& expected) const {
    return std::equal(text.begin(), text.end(), expected.begin(), expected.end(),
                      [](char a, char b) { return a == b || (a == '*' && b >= '0' && b <= '9'); });
  }
};
inline std::ostream& operator<<(std::ostream& out, const Transcript& said) {
  return out << said.text;
}

class ApiTest : public MachineTest {
 protected:
  ~ApiTest() override { QZ_CloseDev(handle); }

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
    handle = QZ_OpenHid(machine->HidInstance(device));
    EXPECT_NE(nullptr, handle);
    ClearRecords();
  }
  /// The same with a machine that has only this hub, with more JSON members.
  void OpenHub(const std::string& more) {
    Install(virtualhub::ReadScenario(
        R"({"record": true, "devices": [{"name": "hub", "port": "3.1")" + more + "}]}"));
    Open();
  }

  /// How many handles of the system the library holds.
  int OpenHandles() const {
    using enum virtualhub::HandleKind;
    return machine->openHandles(HidDevice) + machine->openHandles(Event) +
           machine->openHandles(NodeSet) + machine->openHandles(PreparsedData);
  }

  /// What was logged under a tag, with the levels; without a tag: all that was logged. "HANDLE"
  /// stands for the open handle.
  Transcript Said(const std::string& tag = "") const {
    std::string said;
    for (const LogLine& line : log.Lines()) {
      const std::string level = line.level == kAnyLevel ? "*" : std::to_string(line.level);
      if (tag.empty()) said += level + ' ' + line.tag + ": " + line.text;
      if (line.tag == tag) said += level + ' ' + line.text;
    }
    return {Named(said)};
  }
  /// What a debugger was told in the same way, each text followed by "|".
  std::string DebugTexts() const {
    std::string texts;
    for (const std::string& text : machine->recorder().DebugTexts()) texts += text + "|";
    return Named(texts);
  }

  virtualhub::Hub& hub() { return machine->hub("hub"); }

  void* handle = nullptr;

 private:
  std::string Named(const std::string& text) const {
    return std::regex_replace(text, std::regex(Text("%p", handle)), "HANDLE");
  }
};

}  // namespace qzhid::test
