#include "Platform/Settings.h"

#include "Platform/JSONReader.h"
#include "Platform/Paths.h"

#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>

namespace keepery {

struct Settings::Values {
    nlohmann::json object;
};

Settings::Settings(std::unique_ptr<Values> values) : values_(std::move(values)) {}
Settings::~Settings() = default;
Settings::Settings(const Settings& other) : values_(std::make_unique<Values>(*other.values_)) {}
Settings& Settings::operator=(const Settings& other) {
    values_ = std::make_unique<Values>(*other.values_);
    return *this;
}
Settings::Settings(Settings&&) noexcept = default;
Settings& Settings::operator=(Settings&&) noexcept = default;

std::filesystem::path Settings::defaultFile() {
    return Paths::configDirectory() / domain / "settings.json";
}

std::optional<Settings> Settings::load(const std::filesystem::path& file) {
    std::string text;
    try {
        std::ifstream in(file, std::ios::binary);
        if (!in) {
            return std::nullopt;
        }
        text.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
        if (in.bad()) {
            return std::nullopt;
        }
    } catch (const std::exception&) {
        // A directory or a device in place of the file: no settings.
        return std::nullopt;
    }
    std::optional<nlohmann::json> object = JSONReader::read(text);
    if (!object || !object->is_object()) {
        return std::nullopt;
    }
    return Settings(std::make_unique<Values>(Values{std::move(*object)}));
}

std::optional<std::string> Settings::string(const std::string& key) const {
    auto it = values_->object.find(key);
    if (it == values_->object.end() || !it->is_string()) {
        return std::nullopt;
    }
    return it->get<std::string>();
}

} // namespace keepery
