#include "qzhub/usbip_commands.h"

#include "qzhub/attach_command.h"
#include "qzhub/serve_command.h"

namespace qzhub {

void AddUsbipCommands(CLI::App& app) {
  AddServeCommand(app);
  AddAttachCommand(app);
}

}  // namespace qzhub
