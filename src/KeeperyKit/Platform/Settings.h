#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace keepery {

// The settings shared with the companion capture app: a JSON object in the file `settings.json` of the
// directory named by the app's defaults domain under the user's configuration directory. The file is read
// once, when the object is made; later changes are not seen. Values are immutable; any thread may read.
class Settings {
public:
    // The app's defaults domain, shared with the companion app.
    static constexpr const char* domain = "app.keepery.Keepery";

    // The settings file of the current user.
    [[nodiscard]] static std::filesystem::path defaultFile();

    // Reads the settings at `file`. Absent when the file is missing, unreadable, not JSON, or not an object:
    // then there are no stored settings. Never throws.
    [[nodiscard]] static std::optional<Settings> load(const std::filesystem::path& file = defaultFile());

    // The value under `key` when it is a string; absent when missing or of another type.
    [[nodiscard]] std::optional<std::string> string(const std::string& key) const;

    ~Settings();
    Settings(const Settings&);
    Settings& operator=(const Settings&);
    Settings(Settings&&) noexcept;
    Settings& operator=(Settings&&) noexcept;

private:
    struct Values;
    explicit Settings(std::unique_ptr<Values> values);
    std::unique_ptr<Values> values_;
};

} // namespace keepery
