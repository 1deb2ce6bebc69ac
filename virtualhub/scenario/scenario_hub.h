// The part of a scenario that describes one hub; for the scenario reader only.
#pragma once

#include <filesystem>
#include <map>
#include <tuple>

#include "virtualhub/hub/hub_config.h"
#include "virtualhub/hub/image.h"
#include "virtualhub/scenario/json_reader.h"

namespace virtualhub {

/// The images of a scenario. Hubs with the same image share it.
class ScenarioImages {
 public:
  /// Relative paths of image files start at `folder`.
  explicit ScenarioImages(std::filesystem::path folder) : folder_(std::move(folder)) {}

  const std::filesystem::path& folder() const { return folder_; }

  /// The file that the reader is at.
  SharedBytes Load(const JsonReader& in);
  SharedBytes Build(const ImageIdentity& identity, std::size_t size);

 private:
  const std::filesystem::path folder_;
  std::map<std::filesystem::path, SharedBytes> loaded_;
  std::map<std::tuple<std::uint16_t, std::uint16_t, std::uint16_t, std::uint16_t, std::size_t>,
           SharedBytes>
      built_;
};

/// Reads the hub's members of a device object.
HubConfig ReadHub(const JsonReader& in, ScenarioImages& images);

/// Reads report lengths, and for a hub its channels.
ReportConfig ReadReports(const JsonReader& in);

}  // namespace virtualhub
