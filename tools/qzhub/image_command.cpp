#include "qzhub/image_command.h"

#include <CLI/CLI.hpp>
#include <memory>
#include <stdexcept>

#include "common/files.h"
#include "common/options.h"
#include "virtualhub/hub/image.h"

namespace qzhub {

namespace {

constexpr std::size_t kDefaultSize = 0x10000;
constexpr std::size_t kLargestSize = 0x1000000;

struct ImageOptions {
  std::string out;
  std::size_t size = kDefaultSize;
  virtualhub::ImageIdentity identity;
};

void WriteImage(const ImageOptions& options) {
  const virtualhub::Bytes image = virtualhub::BuildImage(options.identity, options.size);
  try {
    tools::WriteFile(options.out, image);
  } catch (const tools::FileError& error) {
    throw std::runtime_error(options.out + " " + error.what());
  }
}

}  // namespace

void AddImageCommand(CLI::App& app) {
  CLI::App* command = app.add_subcommand("image", "make a firmware image file for virtual hubs");
  const auto options = std::make_shared<ImageOptions>();
  command->add_option("--out", options->out, "the file to write; it is replaced as a whole")
      ->required();
  command->add_option("--size", options->size, "bytes, default 65536")
      ->check(CLI::Range(virtualhub::kIdentityEnd, kLargestSize));
  tools::AddHexNumber(*command, "--vid", options->identity.vid, "vendor id, default 2E7C");
  tools::AddHexNumber(*command, "--pid", options->identity.pid, "product id, default 0818");
  tools::AddHexNumber(*command, "--chip", options->identity.chip, "chip code, default 4A17");
  tools::AddHexNumber(*command, "--version", options->identity.version,
                      "firmware version, two digits major and two minor, default 0102");
  command->callback([options] { WriteImage(*options); });
}

}  // namespace qzhub
