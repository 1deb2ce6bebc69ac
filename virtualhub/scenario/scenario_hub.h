// The part of a scenario that describes one hub; for the scenario reader only.
#pragma once

#include <filesystem>

#include "virtualhub/hub/hub_config.h"
#include "virtualhub/scenario/json_reader.h"

namespace virtualhub {

/// Reads the hub's members of a device object. Relative image paths start at `folder`.
HubConfig ReadHub(const JsonReader& in, const std::filesystem::path& folder);

/// Reads report lengths, and for a hub its channels.
ReportConfig ReadReports(const JsonReader& in);

}  // namespace virtualhub
