#include "Platform/Paths.h"

#include <cstdlib>
#include <pwd.h>
#include <string>
#include <unistd.h>

namespace keepery::Paths {
namespace {

std::filesystem::path home() {
    if (const char* value = std::getenv("HOME"); value != nullptr && value[0] != '\0') {
        return value;
    }
    if (const passwd* entry = getpwuid(getuid()); entry != nullptr && entry->pw_dir != nullptr) {
        return entry->pw_dir;
    }
    return "/";
}

// XDG: a relative path in one of these variables is invalid and must be ignored.
std::filesystem::path xdg(const char* variable, const char* fallbackUnderHome) {
    if (const char* value = std::getenv(variable); value != nullptr && value[0] == '/') {
        return value;
    }
    return home() / fallbackUnderHome;
}

} // namespace

std::filesystem::path applicationSupportDirectory() {
    return xdg("XDG_DATA_HOME", ".local/share");
}

std::filesystem::path configDirectory() {
    return xdg("XDG_CONFIG_HOME", ".config");
}

std::filesystem::path temporaryDirectory() {
    if (const char* value = std::getenv("TMPDIR"); value != nullptr && value[0] != '\0') {
        return value;
    }
    return "/tmp";
}

} // namespace keepery::Paths
