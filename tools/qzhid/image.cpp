#include "qzhid/image.h"

#include <filesystem>

#include "qzhid/hubs.h"
#include "qzhid/sha256.h"
#include "virtualhub/hub/image.h"

namespace qzhid {

namespace {

constexpr std::size_t kLongestImage = 0x1000000;  // larger than any flash

[[noreturn]] void Reject(const std::string& path, const std::string& why) {
  throw Failure(Exit::Refused, "image " + path + " " + why, "", "give the complete image file");
}

void CheckSize(const std::string& path, std::uintmax_t size) {
  const std::string bytes = std::to_string(size) + " bytes of at ";
  if (size < virtualhub::kIdentityEnd) {
    Reject(path, "is too short: " + bytes + "least " + std::to_string(virtualhub::kIdentityEnd));
  }
  if (size > kLongestImage) {
    Reject(path, "is too long: " + bytes + "most " + std::to_string(kLongestImage));
  }
}

// Only regular files are opened: anything else may have no end.
tools::Bytes ReadContents(const std::string& path) {
  std::error_code error;
  const std::filesystem::file_status file = std::filesystem::status(path, error);
  if (file.type() == std::filesystem::file_type::not_found) Reject(path, "does not exist");
  if (!std::filesystem::is_regular_file(file)) Reject(path, "is not a regular file");
  const std::uintmax_t size = std::filesystem::file_size(path, error);
  if (!error) CheckSize(path, size);
  try {
    tools::Bytes bytes = tools::ReadFile(path, kLongestImage);
    CheckSize(path, bytes.size());
    return bytes;
  } catch (const tools::FileError& failure) {
    Reject(path, failure.what());
  }
}

}  // namespace

Image ReadImage(const std::string& path) {
  Image image;
  image.path = path;
  image.bytes = ReadContents(path);
  // Of images that hold their own length and checksum, as those that qzhub makes.
  if (virtualhub::CheckSeal(image.bytes) == virtualhub::Seal::Broken) {
    Reject(path, "is damaged: its length or checksum is wrong");
  }
  const virtualhub::ImageIdentity identity = *virtualhub::ReadIdentity(image.bytes);
  image.vid = identity.vid;
  image.pid = identity.pid;
  image.chip = identity.chip;
  image.version = identity.version;
  image.sha256 = Sha256(image.bytes);
  return image;
}

nlohmann::ordered_json ToJson(const Image& image) {
  return {{"file", image.path},
          {"vid", IdText(image.vid)},
          {"pid", IdText(image.pid)},
          {"chip", IdText(image.chip)},
          {"version", VersionText(image.version)},
          {"size", image.bytes.size()},
          {"sha256", image.sha256}};
}

}  // namespace qzhid
