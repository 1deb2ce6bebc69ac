// What users do to a machine while it runs.
#include <iostream>

#include "virtualhub/bus/machine.h"

namespace virtualhub {

void Machine::Control(const std::string& text) {
  const std::lock_guard<std::mutex> guard(mutex_);
  CatchUp();
  CarryOut(text);
}

void Machine::FollowControl() {
  const std::lock_guard<std::mutex> guard(mutex_);
  CatchUp();
}

// A file that cannot be read is looked at no more: one message is enough.
void Machine::ReadControl() try {
  if (!control_) return;
  for (const ControlFile::Line& line : control_->TakeNew()) {
    try {
      CarryOut(line.text);
    } catch (const ControlError& error) {
      std::cerr << "virtualhub: " << control_->path().string() << ':' << line.number << ": "
                << error.what() << std::endl;
    }
  }
} catch (const FileError& error) {
  std::cerr << "virtualhub: the control file " << control_->path().string() << ' ' << error.what()
            << std::endl;
  control_.reset();
}

void Machine::CarryOut(const std::string& text) {
  const auto line = ParseControlLine(text);
  if (!line) return;
  const auto device = std::find_if(devices_.begin(), devices_.end(), [&](const Device& candidate) {
    return candidate.config.name == line->device;
  });
  if (device == devices_.end()) {
    throw ControlError("there is no device \"" + line->device + "\"");
  }
  switch (line->action) {
    case ControlLine::Action::Plug:
      return PlugIn(*device, line->port);
    case ControlLine::Action::Unplug:
      return LosePlug(*device, {}, {});
    case ControlLine::Action::PowerLoss:
      if (!device->plugged()) throw ControlError("\"" + line->device + "\" is not plugged in");
      return LosePower(*device, line->returnMs, {});
  }
}

// A device that is away for a moment comes back by itself.
void Machine::PlugIn(Device& device, const std::string& port) {
  const PortPath place = port.empty() ? device.port : *PortPath::Parse(port);
  if (device.plugged() && place == device.port) return;
  if (device.plugged()) throw ControlError("\"" + device.config.name + "\" is plugged in already");
  if (tree_.HasHub(place)) throw ControlError("a hub is at this port");
  for (const Device& other : devices_) {
    if (other.plugged() && other.port.IsInTheWayOf(place)) {
      throw ControlError("the device \"" + other.config.name + "\" is in the way");
    }
  }
  device.port = place;
  LoadState(device);  // another process may have written to it
  Arrive(device, clock_.NowUs());
}

}  // namespace virtualhub
