#include "qzhub/capture_option.h"

#include <CLI/CLI.hpp>
#include <stdexcept>

#include "virtualhub/base/files.h"

namespace qzhub {

void AddCaptureOption(CLI::App& command, std::string& file) {
  command
      .add_option("--capture", file,
                  "write what passes on the wire to this file (pcapng, for Wireshark); it is "
                  "replaced")
      ->option_text("FILE");
}

void CaptureTo(const std::string& file, virtualhub::Scenario& scenario) {
  if (file.empty()) return;
  try {
    virtualhub::WriteFile(file, {});
  } catch (const virtualhub::FileError& error) {
    throw std::runtime_error(file + ' ' + error.what());
  }
  scenario.captureFile = file;
  scenario.replacesCapture = true;
}

}  // namespace qzhub
