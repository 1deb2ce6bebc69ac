// The machine that this process runs on.
#pragma once

#include <memory>
#include <string>

#include "virtualhub/bus/machine.h"

namespace virtualhub {

/// The current machine. On first use it is made from the scenario file that the environment
/// variable QZ_VIRTUAL_HUB names, or from DefaultScenario() when it is not set; time is real unless
/// the scenario says otherwise. When the file is rejected, one line on standard error says why, and
/// the machine has no devices.
Machine& CurrentMachine();

/// The same, shared: a machine lives as long as someone holds it.
std::shared_ptr<Machine> HoldCurrentMachine();

/// Makes a new machine and makes it the current one; its time is virtual unless the scenario says
/// otherwise. Throws ScenarioError for JSON text that is rejected.
Machine& InstallMachine(const Scenario& scenario);
Machine& InstallMachine(const std::string& json);

/// Drops the current machine after saving its hubs' flash; the next use makes a new one.
void UninstallMachine();

/// Around a fork of the process, on the thread that forks: no other thread has a lock of the
/// machine meanwhile. The parent and the child both unlock.
void LockCurrentMachine();
void UnlockCurrentMachine();

}  // namespace virtualhub
