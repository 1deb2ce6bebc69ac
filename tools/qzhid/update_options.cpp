#include "qzhid/update_options.h"

#include "common/texts.h"
#include "qzhid/failure.h"
#include "qzhid/location.h"

namespace qzhid {

namespace {

constexpr std::size_t kLargestFlash = 0xFFFFFFFF;  // requests address flash with 32 bits

std::string CheckHexDigest(const std::string& text) {
  constexpr std::size_t kDigits = 64;
  const auto bytes = tools::ParseHexBytes(text);
  const bool isDigest = bytes && 2 * bytes->size() == kDigits && text.size() == kDigits;
  return isDigest ? "" : "'" + text + "' is not 64 hexadecimal digits";
}

}  // namespace

void AddWriteOptions(CLI::App& command, WriteOptions& options) {
  command.add_option("-i,--image", options.image, "the firmware image file, required")
      ->required()
      ->option_text("FILE");
  command.add_option("--sha256", options.sha256, "reject an image with another SHA-256")
      ->check(CLI::Validator(CheckHexDigest, "HEX"))
      ->option_text("HEX");
  command
      .add_option("--flash-size", options.flashSize,
                  "reject an image that is longer than the hub's flash")
      ->check(CLI::Range(std::size_t{1}, kLargestFlash))
      ->option_text("BYTES");
  command
      .add_option("--retries", options.retries,
                  "tries after one that failed, default " + std::to_string(options.retries))
      ->check(CLI::Range(0, 100))
      ->option_text("N");
  command.add_option("--wait", options.patience, "seconds to wait for a hub that left, default 30")
      ->check(CLI::Range(0, 3600))
      ->option_text("SECONDS");
}

void AddRuleOptions(CLI::App& command, UpdateRules& rules) {
  command.add_flag("--force", rules.isForced,
                   "also if the hub runs this version, or is another product of the vendor");
  command.add_flag("--allow-older", rules.allowsOlder, "also if the hub runs a newer version");
}

Image ReadWantedImage(const WriteOptions& options) {
  Image image = ReadImage(options.image);
  const std::size_t size = image.bytes.size();
  if (size > options.flashSize.value_or(size)) {
    throw Failure(Exit::Refused,
                  "image " + image.path + " is longer than the flash: " + std::to_string(size) +
                      " bytes of at most " + std::to_string(*options.flashSize),
                  "", "use the image for this hub");
  }
  const std::string wanted = Upper(options.sha256);
  if (wanted.empty() || wanted == Upper(image.sha256)) return image;
  throw Failure(Exit::Refused, "image " + image.path + " has the SHA-256 " + image.sha256, "",
                "use the image that has " + options.sha256);
}

}  // namespace qzhid
