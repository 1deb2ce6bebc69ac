#include "qzhub/image_command.h"

#include <CLI/CLI.hpp>
#include <memory>
#include <stdexcept>

#include "virtualhub/base/atomic_file.h"
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

// An identity field as one to four hexadecimal digits, with or without "0x".
void AddField(CLI::App& command, const std::string& name, std::uint16_t& field,
              const std::string& meaning) {
  const CLI::Validator digits(
      [](std::string& text) {
        const std::string plain = text.starts_with("0x") ? text.substr(2) : text;
        const bool good = !plain.empty() && plain.size() <= 4 &&
                          plain.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
        return good ? std::string() : "'" + text + "' is not one to four hexadecimal digits";
      },
      "HEX");
  command
      .add_option_function<std::string>(
          name,
          [&field](const std::string& text) {
            field = static_cast<std::uint16_t>(std::stoul(text, nullptr, 16));
          },
          meaning)
      ->check(digits);
}

void WriteImage(const ImageOptions& options) {
  const virtualhub::Bytes image = virtualhub::BuildImage(options.identity, options.size);
  const std::string problem = virtualhub::WriteFileAtomically(options.out, image);
  if (!problem.empty()) throw std::runtime_error(options.out + ": " + problem);
}

}  // namespace

void AddImageCommand(CLI::App& app) {
  CLI::App* command = app.add_subcommand("image", "make a firmware image file for virtual hubs");
  const auto options = std::make_shared<ImageOptions>();
  command->add_option("--out", options->out, "file to write; replaced as a whole")->required();
  command->add_option("--size", options->size, "bytes, default 65536")
      ->check(CLI::Range(virtualhub::kIdentityEnd, kLargestSize));
  AddField(*command, "--vid", options->identity.vid, "vendor id, default 2E7C");
  AddField(*command, "--pid", options->identity.pid, "product id, default 0818");
  AddField(*command, "--chip", options->identity.chip, "chip code, default 4A17");
  AddField(*command, "--version", options->identity.version,
           "firmware version, two digits major and two minor, default 0102");
  command->callback([options] { WriteImage(*options); });
}

}  // namespace qzhub
