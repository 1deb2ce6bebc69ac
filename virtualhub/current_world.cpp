#include "virtualhub/current_world.h"

#include <cstddef>
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <new>

namespace virtualhub {

namespace {

struct Current {
  std::mutex mutex;
  std::shared_ptr<World> world;
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
    if (const auto world = TheCurrent().world) world->Save();
  }
  SavesAtExit(const SavesAtExit&) = delete;
  SavesAtExit& operator=(const SavesAtExit&) = delete;
};

Scenario ScenarioOfEnvironment() {
  const char* file = std::getenv("QZ_VIRTUAL_HUB");
  if (file == nullptr) return DefaultScenario();
  try {
    return ReadScenarioFile(file);
  } catch (const std::exception& error) {
    std::cerr << "virtualhub: " << file << ": " << error.what() << std::endl;
    return {};
  }
}

}  // namespace

std::shared_ptr<World> HoldCurrentWorld() {
  Current& current = TheCurrent();
  const std::lock_guard<std::mutex> guard(current.mutex);
  if (!current.world) {
    static const SavesAtExit saves;
    current.world = std::make_shared<World>(ScenarioOfEnvironment());
  }
  return current.world;
}

World& CurrentWorld() { return *HoldCurrentWorld(); }

World& InstallWorld(const Scenario& scenario) {
  Scenario timed = scenario;
  if (!timed.time) timed.time = Clock::Mode::Virtual;
  // The old machine saves its hubs' flash before the new one loads it.
  UninstallWorld();
  Current& current = TheCurrent();
  const std::lock_guard<std::mutex> guard(current.mutex);
  current.world = std::make_shared<World>(timed);
  return *current.world;
}

World& InstallWorld(const std::string& json) { return InstallWorld(ReadScenario(json)); }

void UninstallWorld() {
  Current& current = TheCurrent();
  std::shared_ptr<World> old;
  const std::lock_guard<std::mutex> guard(current.mutex);
  old.swap(current.world);
}

void LockCurrentWorld() {
  Current& current = TheCurrent();
  current.mutex.lock();
  if (current.world) current.world->forkLock().lock();
}

void UnlockCurrentWorld() {
  Current& current = TheCurrent();
  if (current.world) current.world->forkLock().unlock();
  current.mutex.unlock();
}

}  // namespace virtualhub
