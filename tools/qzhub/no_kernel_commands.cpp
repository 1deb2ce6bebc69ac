#include "qzhub/kernel_commands.h"

namespace qzhub {

void AddServeCommand(CLI::App&) {}
void AddRedirectCommand(CLI::App&) {}
void AddAttachCommand(CLI::App&) {}

}  // namespace qzhub
