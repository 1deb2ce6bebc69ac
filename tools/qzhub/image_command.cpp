#include "qzhub/image_command.h"

#include <CLI/CLI.hpp>
#include <memory>
#include <optional>
#include <stdexcept>

#include "common/files.h"
#include "common/options.h"
#include "common/texts.h"
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

// "2.10" or "0210", as hubs have it: 0x0210.
std::optional<std::uint16_t> ParseVersion(const std::string& text) {
  const std::size_t dot = text.find('.');
  if (dot == std::string::npos) return tools::ParseHexNumber(text);
  const std::string major = text.substr(0, dot), minor = text.substr(dot + 1);
  const auto high = tools::ParseHexNumber(major), low = tools::ParseHexNumber(minor);
  if (!high || !low || major.size() > 2 || minor.size() != 2) return std::nullopt;
  return static_cast<std::uint16_t>(*high << 8 | *low);
}

void AddVersion(CLI::App& command, std::uint16_t& version) {
  const auto check = [](const std::string& text) {
    return ParseVersion(text) ? std::string()
                              : "'" + text + "' is not a version such as 2.10 or 0210";
  };
  const auto take = [&version](const std::string& text) { version = *ParseVersion(text); };
  command
      .add_option_function<std::string>("--version", take,
                                        "firmware version, such as 2.10 or 0210, default 1.02")
      ->check(CLI::Validator(check, "VERSION"))
      ->option_text("VERSION");
}

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
  command
      ->add_option("--out", options->out, "the file to write, required; it is replaced as a whole")
      ->required()
      ->option_text("FILE");
  command->add_option("--size", options->size, "bytes, default 65536")
      ->check(CLI::Range(virtualhub::kIdentityEnd, kLargestSize))
      ->option_text("N");
  tools::AddHexNumber(*command, "--vid", options->identity.vid, "vendor id, default 2E7C");
  tools::AddHexNumber(*command, "--pid", options->identity.pid, "product id, default 0818");
  tools::AddHexNumber(*command, "--chip", options->identity.chip, "chip code, default 4A17")
      ->option_text("CODE");
  AddVersion(*command, options->identity.version);
  command->callback([options] { WriteImage(*options); });
  command->footer(
      "Examples:\n  qzhub image --out new.bin --version 2.10\n"
      "  qzhub image --out other.bin --size 98304 --pid 0820 --chip 93E5");
}

}  // namespace qzhub
