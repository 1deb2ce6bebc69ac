#include "virtualhub/bus/current_machine.h"

#include <cstddef>
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <new>

namespace virtualhub {

namespace {

struct Current {
  std::mutex mutex;
  std::shared_ptr<Machine> machine;
};

Current& TheCurrent() {
  // Never destroyed: threads may use the machine to the end of the process, which saves it.
  alignas(Current) static std::byte room[sizeof(Current)];
  static Current& current = *new (room) Current;
  return current;
}

struct SavesAtExit {
  SavesAtExit() = default;
  ~SavesAtExit() {
    if (const auto machine = TheCurrent().machine) machine->Save();
  }
  SavesAtExit(const SavesAtExit&) = delete;
  SavesAtExit& operator=(const SavesAtExit&) = delete;
};

Scenario ScenarioOfEnvironment() {
  const char* file = std::getenv(kScenarioVariable);
  if (file == nullptr) return DefaultScenario();
  try {
    return ReadScenarioFile(file);
  } catch (const std::exception& error) {
    std::cerr << "virtualhub: " << file << ": " << error.what() << std::endl;
    return {};
  }
}

}  // namespace

std::shared_ptr<Machine> HoldCurrentMachine() {
  Current& current = TheCurrent();
  const std::lock_guard<std::mutex> guard(current.mutex);
  if (!current.machine) {
    static const SavesAtExit saves;
    current.machine = std::make_shared<Machine>(ScenarioOfEnvironment());
  }
  return current.machine;
}

Machine& CurrentMachine() { return *HoldCurrentMachine(); }

Machine& InstallMachine(const Scenario& scenario) {
  Scenario timed = scenario;
  if (!timed.time) timed.time = Clock::Mode::Virtual;
  // The old machine saves its hubs' flash before the new one loads it.
  UninstallMachine();
  Current& current = TheCurrent();
  const std::lock_guard<std::mutex> guard(current.mutex);
  current.machine = std::make_shared<Machine>(timed);
  return *current.machine;
}

Machine& InstallMachine(const std::string& json) { return InstallMachine(ReadScenario(json)); }

void UninstallMachine() {
  Current& current = TheCurrent();
  std::shared_ptr<Machine> old;
  const std::lock_guard<std::mutex> guard(current.mutex);
  old.swap(current.machine);
}

void LockCurrentMachine() {
  Current& current = TheCurrent();
  current.mutex.lock();
  if (current.machine) current.machine->forkLock().lock();
}

void UnlockCurrentMachine() {
  Current& current = TheCurrent();
  if (current.machine) current.machine->forkLock().unlock();
  current.mutex.unlock();
}

}  // namespace virtualhub
