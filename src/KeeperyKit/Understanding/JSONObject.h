#pragma once

// Internal to the engine: only source files include this header, so that the JSON library stays out of the
// public ones. Describer.h names JSONObject without defining it.

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace keepery {

// A JSON object read leniently from a model's reply: a field of the wrong type reads as absent.
struct JSONObject {
    nlohmann::json fields = nlohmann::json::object();

    // The field under `key` when it is a string.
    [[nodiscard]] std::optional<std::string> string(std::string_view key) const {
        const auto found = fields.find(key);
        if (found == fields.end() || !found->is_string()) {
            return std::nullopt;
        }
        return found->get<std::string>();
    }

    // The string elements of the list under `key`, in order, other elements skipped; empty when the field
    // is missing or not a list.
    [[nodiscard]] std::vector<std::string> strings(std::string_view key) const {
        std::vector<std::string> out;
        const auto found = fields.find(key);
        if (found == fields.end() || !found->is_array()) {
            return out;
        }
        for (const auto& element : *found) {
            if (element.is_string()) {
                out.push_back(element.get<std::string>());
            }
        }
        return out;
    }
};

} // namespace keepery
