#include "qzhub/usbip_commands.h"

namespace qzhub {

void AddUsbipCommands(CLI::App&) {}

}  // namespace qzhub
