#pragma once

namespace CLI {
class App;
}

namespace qzhub {

/// Adds "image", which makes firmware image files for virtual hubs. When it fails it throws
/// std::runtime_error with a text for the user.
void AddImageCommand(CLI::App& app);

}  // namespace qzhub
