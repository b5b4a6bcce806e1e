#include "Understanding/OllamaReplies.h"

#include "Platform/JSONReader.h"
#include "Platform/Text.h"
#include "Understanding/VectorMath.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>

namespace keepery::OllamaReplies {
namespace {

using nlohmann::json;
using Failure = OllamaClient::Failure;

constexpr std::size_t errorExcerptBytes = 200;

// The reply's object, or the failure the status and body call for.
json object(int status, std::string_view body) {
    std::optional<json> reply = JSONReader::read(body);
    const bool isObject = reply && reply->is_object();
    if (status >= 200 && status <= 299) {
        if (!isObject) {
            throw Failure::badReply("not a JSON object");
        }
        return std::move(*reply);
    }
    if (isObject) {
        if (auto error = reply->find("error"); error != reply->end() && error->is_string()) {
            throw Failure::server(status, error->get<std::string>());
        }
    }
    throw Failure::server(status, Text::utf8(Text::codePoints(body.substr(0, errorExcerptBytes))));
}

// A number as a 64-bit integer: integers exactly, other numbers truncated toward zero and held in range;
// 0 for anything that is not a number.
std::int64_t integer(const json& value) {
    if (value.is_number_integer() && !value.is_number_unsigned()) {
        return value.get<std::int64_t>();
    }
    if (value.is_number_unsigned()) {
        const auto n = value.get<std::uint64_t>();
        return n > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())
                   ? std::numeric_limits<std::int64_t>::max()
                   : static_cast<std::int64_t>(n);
    }
    if (value.is_number_float()) {
        const double d = value.get<double>();
        if (std::isnan(d)) {
            return 0;
        }
        if (d >= 9.2e18) {
            return std::numeric_limits<std::int64_t>::max();
        }
        if (d <= -9.2e18) {
            return std::numeric_limits<std::int64_t>::min();
        }
        return static_cast<std::int64_t>(d);
    }
    return 0;
}

std::int64_t integerField(const json& object, const char* key) {
    const auto found = object.find(key);
    return found == object.end() ? 0 : integer(*found);
}

std::optional<std::string> stringField(const json& object, const char* key) {
    const auto found = object.find(key);
    if (found == object.end() || !found->is_string()) {
        return std::nullopt;
    }
    return found->get<std::string>();
}

} // namespace

std::string version(int status, std::string_view body) {
    if (auto text = stringField(object(status, body), "version")) {
        return std::move(*text);
    }
    throw Failure::badReply("no version");
}

std::vector<std::string> models(int status, std::string_view body) {
    const json reply = object(status, body);
    std::vector<std::string> names;
    const auto list = reply.find("models");
    if (list == reply.end() || !list->is_array()) {
        return names;
    }
    // A list with anything but objects in it is not the list of models at all.
    for (const json& model : *list) {
        if (!model.is_object()) {
            return {};
        }
    }
    for (const json& model : *list) {
        if (auto name = stringField(model, "name")) {
            names.push_back(std::move(*name));
        }
    }
    return names;
}

std::string response(int status, std::string_view body) {
    if (auto text = stringField(object(status, body), "response")) {
        return std::move(*text);
    }
    throw Failure::badReply("no response text");
}

std::vector<std::vector<float>> embeddings(int status, std::string_view body, std::size_t count) {
    const json reply = object(status, body);
    const auto expected = [&] {
        return Failure::badReply("expected " + std::to_string(count) + " embeddings");
    };
    const auto lists = reply.find("embeddings");
    if (lists == reply.end() || !lists->is_array() || lists->size() != count) {
        throw expected();
    }
    std::vector<std::vector<float>> vectors;
    vectors.reserve(count);
    for (const json& numbers : *lists) {
        if (!numbers.is_array()) {
            throw expected();
        }
        std::vector<float> vector;
        vector.reserve(numbers.size());
        for (const json& number : numbers) {
            if (!number.is_number()) {
                throw expected();
            }
            // A number no float can hold would become infinity, and infinity NaN once divided by the
            // norm; a NaN score compares false both ways and lets any other vector stand out.
            const double value = number.get<double>();
            if (!(std::fabs(value) <= std::numeric_limits<float>::max())) {
                throw expected();
            }
            vector.push_back(static_cast<float>(value));
        }
        vector = VectorMath::unit(vector);
        if (!std::all_of(vector.begin(), vector.end(), [](float x) { return std::isfinite(x); })) {
            throw expected();
        }
        vectors.push_back(std::move(vector));
    }
    return vectors;
}

std::optional<PullLine> pullLine(std::string_view line) {
    const std::optional<json> status = JSONReader::read(line);
    if (!status || !status->is_object()) {
        return std::nullopt;
    }
    PullLine read;
    read.error = stringField(*status, "error");
    read.completed = integerField(*status, "completed");
    read.total = integerField(*status, "total");
    read.status = stringField(*status, "status").value_or("");
    return read;
}

} // namespace keepery::OllamaReplies
