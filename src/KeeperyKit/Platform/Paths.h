#pragma once

#include <filesystem>

// Per-user directories, following the XDG base directory rules. Pure reads of the environment; any thread.
namespace keepery::Paths {

// $XDG_DATA_HOME when it is set to an absolute path, else $HOME/.local/share (the application-support
// directory of the current user).
[[nodiscard]] std::filesystem::path applicationSupportDirectory();

// $XDG_CONFIG_HOME when it is set to an absolute path, else $HOME/.config.
[[nodiscard]] std::filesystem::path configDirectory();

// $TMPDIR when it is set and not empty, else /tmp.
[[nodiscard]] std::filesystem::path temporaryDirectory();

} // namespace keepery::Paths
