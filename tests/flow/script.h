// What surrounds a flow in the tests of its steps.
#pragma once

#include <gtest/gtest.h>

#include <new>
#include <string>
#include <utility>
#include <vector>

#include "device/hid_dev.h"
#include "device/states.h"
#include "discovery/dev_finder.h"
#include "discovery/node_matchers.h"
#include "flow/gpio_driver.h"
#include "support/log_capture.h"
#include "virtualhub/bus/current_machine.h"
#include "virtualhub/hub/image.h"

namespace qzhid::test {

/// What happens in a job: "Write" or "Connect 20" for a call with its arguments, "progress 10", and
/// "log 3: text" or "print 1: text" for what is logged or printed at that level.
using Steps = std::vector<std::string>;

inline Steps operator+(Steps first, const Steps& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}
inline Steps operator+(Steps first, const std::string& last) {
  return std::move(first) + Steps{last};
}

/// The calls of a name that fail, or throw: from the nth on, `count` of them, 0 for all.
struct Failing {
  std::string call = {};
  int nth = 1, count = 1;
  bool isThrown = false;
};

/// What surrounds a flow, as it writes down what happens. The hub changes its state as a real one
/// does, unless a call is to fail.
class Script final : public IDev, public IDevFinder, public IGpioDriver, public SilentReceiver {
 public:
  Script() {
    CMsg::Instance().AddResponder(this);
    SetFwBuffer(virtualhub::BuildImage({}, virtualhub::kIdentityEnd));
    SetFlag(7);
  }
  ~Script() override { CMsg::Instance().RemoveResponder(this); }

  void OnLog(const char* raw, int level) override {
    const LogLine line = ParseLogLine(raw, level);
    EXPECT_EQ(tag, line.tag);
    steps.push_back("log " + std::to_string(level) + ": " + line.text);
  }
  void OnPrint(const char* text, int level) override {
    steps.push_back("print " + std::to_string(level) + ": " + text);
  }
  void OnProgress(int value) override { steps.push_back("progress " + std::to_string(value)); }

  CState* GetState() override { return GetStateById(state); }
  CState* GetStateById(int id) override { return m_States[id].get(); }
  bool JudgeCodeMode(IDev*) override {
    const bool isDone = Call("Judge");
    if (isDone && state == kStateUnknown) state = runs;
    return isDone;
  }
  bool Reset2Rom() override {
    return Call("ToRom") && (isDualBank || state == kStateRom || Reset(kStateRom));
  }
  bool ForceReset2Rom() override { return Call("ForceRom") && Reset(kStateRom); }
  bool Reset2Flash() override { return Call("ToFlash") && Reset(kStateFlash); }
  bool DevErase() override { return Call("Erase"); }
  bool WriteFlash() override { return Call("Write"); }
  bool CheckFlash() override { return Call("Check"); }
  bool DevReadVersion(std::uint16_t* version) override { return Call("Read", *version = 0x0210); }
  bool DveGetICStatus(std::uint8_t* status) override { return Call("Read", *status = 0x2E); }
  bool UnInit(std::uint8_t flag) override { return Call("UnInit", flag); }
  bool SetReconnectOption(std::uint8_t option) override { return Call("Option", option); }
  std::int32_t I2CConfigImpl(std::uint8_t slave, std::uint8_t len, std::uint8_t speed) override {
    return Call("I2C", slave, len, speed) ? 0 : 5;
  }
  bool SetGpio(std::uint8_t num, std::uint8_t level, std::uint8_t restore) override {
    return Call("Gpio", num, level, restore);
  }
  bool WaitDevConnect(IDev*, int timeout) override {
    virtualhub::CurrentMachine().clock().SleepUs(1500000);
    const bool isThere = Call("Connect", timeout);
    if (isThere && state == kStateOffline) state = kStateUnknown;
    return isThere;
  }
  bool WaitDevUnconnect(IDev*, int timeout) override {
    const bool isGone = Call("Leave", timeout);
    if (isGone) state = kStateOffline;
    return isGone;
  }
  int DummyRemove(IDev*) override {
    if (state == kStateWait) state = kStateOffline;
    return Call("Remove") ? 1 : 0;
  }
  bool SwitchOn() { return Call("SwitchOn") && switchFailures-- <= 0; }

  Steps steps;
  std::string tag;
  Failing failing;
  int state = kStateOffline, runs = kStateFlash, switchFailures = 0;
  bool isDualBank = false;

 private:
  /// Returns false when the call is to fail.
  template <class... Arguments>
  bool Call(std::string name, Arguments... arguments) {
    ((name += " " + std::to_string(arguments)), ...);
    steps.push_back(name);
    if (name != failing.call) return true;
    ++m_nSeen;
    if (m_nSeen < failing.nth) return true;
    if (failing.count != 0 && m_nSeen >= failing.nth + failing.count) return true;
    if (failing.isThrown) throw std::bad_alloc();
    return false;
  }
  bool Reset(int code) {
    if (state != kStateUnknown) state = kStateWait;
    runs = code;
    return true;
  }

  int m_nSeen = 0;
  CHidDev m_Owner{NodeMatchers()};
  StateTable m_States = MakeStates(m_Owner);
};

}  // namespace qzhid::test
