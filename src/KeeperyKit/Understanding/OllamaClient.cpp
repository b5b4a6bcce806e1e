#include "Understanding/OllamaClient.h"

#include "Platform/Text.h"
#include "Understanding/VectorMath.h"

#include <chrono>
#include <cmath>
#include <httplib.h>
#include <limits>
#include <memory>
#include <nlohmann/json.hpp>

namespace keepery {

using nlohmann::json;

namespace {

using Timeout = OllamaClient::Timeout;
using std::chrono::seconds;

constexpr Timeout versionTimeout = seconds(3);
constexpr Timeout modelsTimeout = seconds(5);
constexpr Timeout pullTimeout = seconds(3600);
constexpr std::size_t errorExcerptBytes = 200;

std::string base64(std::span<const std::uint8_t> bytes) {
    static constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    out.reserve((bytes.size() + 2) / 3 * 4);
    std::size_t i = 0;
    for (; i + 3 <= bytes.size(); i += 3) {
        const std::uint32_t n =
            (std::uint32_t{bytes[i]} << 16) | (std::uint32_t{bytes[i + 1]} << 8) | bytes[i + 2];
        out += alphabet[(n >> 18) & 63];
        out += alphabet[(n >> 12) & 63];
        out += alphabet[(n >> 6) & 63];
        out += alphabet[n & 63];
    }
    if (const std::size_t rest = bytes.size() - i; rest > 0) {
        const std::uint32_t n =
            (std::uint32_t{bytes[i]} << 16) | (rest == 2 ? std::uint32_t{bytes[i + 1]} << 8 : 0);
        out += alphabet[(n >> 18) & 63];
        out += alphabet[(n >> 12) & 63];
        out += rest == 2 ? alphabet[(n >> 6) & 63] : '=';
        out += '=';
    }
    return out;
}

// Strings that are not valid UTF-8 are written with U+FFFD in their place, so writing a body never fails.
std::string compact(const json& value) {
    return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

// The parts of a base address that the HTTP library takes separately: "scheme://host:port" and a path.
struct Endpoint {
    std::string origin;
    std::string basePath;
};

Endpoint endpoint(const std::string& host) {
    const auto schemeEnd = host.find("://");
    const auto pathStart = host.find('/', schemeEnd == std::string::npos ? 0 : schemeEnd + 3);
    if (pathStart == std::string::npos) {
        return {host, ""};
    }
    std::string path = host.substr(pathStart);
    while (!path.empty() && path.back() == '/') {
        path.pop_back();
    }
    return {host.substr(0, pathStart), path};
}

void setTimeouts(httplib::Client& client, Timeout timeout) {
    const auto duration =
        std::chrono::duration_cast<std::chrono::microseconds>(std::max(timeout, Timeout(1)));
    client.set_connection_timeout(duration);
    client.set_read_timeout(duration);
    client.set_write_timeout(duration);
}

// The transport's failure in words; a read that gave up at about the time-out is a time-out.
std::string describe(httplib::Error error, std::chrono::steady_clock::duration waited, Timeout timeout) {
    const bool timedOut =
        std::chrono::duration<double>(waited) >= std::chrono::duration<double>(timeout) * 0.9;
    switch (error) {
    case httplib::Error::Connection:
        return "Could not connect to the server.";
    case httplib::Error::ConnectionTimeout:
        return "The request timed out.";
    case httplib::Error::Read:
    case httplib::Error::Write:
        return timedOut ? "The request timed out." : "The network connection was lost.";
    default:
        return httplib::to_string(error);
    }
}

// A client for one exchange with the service at `host`.
std::unique_ptr<httplib::Client> connectTo(const Endpoint& where, Timeout timeout) {
    std::unique_ptr<httplib::Client> client;
    try {
        client = std::make_unique<httplib::Client>(where.origin);
    } catch (const std::exception& error) {
        // The HTTP library rejects schemes it cannot speak when the client is made.
        throw OllamaClient::Failure::unreachable(error.what());
    }
    if (!client->is_valid()) {
        throw OllamaClient::Failure::unreachable("unsupported address " + where.origin);
    }
    setTimeouts(*client, timeout);
    return client;
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

// The request routine shared by every operation but pull: one exchange, the whole body read, and the
// reply's object or the failure the status and body call for.
json requestObject(const std::string& host, const std::string& method, std::string_view path,
                   const json* body, Timeout timeout) {
    const Endpoint where = endpoint(host);
    auto client = connectTo(where, timeout);

    httplib::Request exchange;
    exchange.method = method;
    exchange.path = where.basePath + std::string(path);
    if (body != nullptr) {
        exchange.set_header("Content-Type", "application/json");
        exchange.body = compact(*body);
    }

    const auto started = std::chrono::steady_clock::now();
    const httplib::Result result = client->send(exchange);
    if (!result) {
        throw OllamaClient::Failure::unreachable(
            describe(result.error(), std::chrono::steady_clock::now() - started, timeout));
    }

    const int status = result->status;
    const std::string& text = result->body;
    json reply = json::parse(text, nullptr, false);
    const bool isObject = reply.is_object();
    if (status >= 200 && status <= 299) {
        if (!isObject) {
            throw OllamaClient::Failure::badReply("not a JSON object");
        }
        return reply;
    }
    if (isObject) {
        if (auto error = reply.find("error"); error != reply.end() && error->is_string()) {
            throw OllamaClient::Failure::server(status, error->get<std::string>());
        }
    }
    throw OllamaClient::Failure::server(status, Text::utf8(Text::codePoints(std::string_view(text).substr(
                                                    0, std::min(text.size(), errorExcerptBytes)))));
}

} // namespace

OllamaClient::Failure::Failure(Kind kind, int status, std::string message)
    : kind_(kind), status_(status), message_(std::move(message)) {
    switch (kind_) {
    case Kind::unreachable:
        description_ = "Ollama is not reachable (" + message_ + ")";
        break;
    case Kind::server:
        description_ = "Ollama answered " + std::to_string(status_) + ": " + message_;
        break;
    case Kind::badReply:
        description_ = "Unexpected reply from Ollama: " + message_;
        break;
    }
}

OllamaClient::Failure OllamaClient::Failure::unreachable(std::string message) {
    return Failure(Kind::unreachable, 0, std::move(message));
}

OllamaClient::Failure OllamaClient::Failure::server(int status, std::string message) {
    return Failure(Kind::server, status, std::move(message));
}

OllamaClient::Failure OllamaClient::Failure::badReply(std::string message) {
    return Failure(Kind::badReply, 0, std::move(message));
}

OllamaClient::OllamaClient(std::string host) : host_(std::move(host)) {}

std::string OllamaClient::version() const {
    const json reply = requestObject(host_, "GET", "/api/version", nullptr, versionTimeout);
    if (auto version = reply.find("version"); version != reply.end() && version->is_string()) {
        return version->get<std::string>();
    }
    throw Failure::badReply("no version");
}

std::vector<std::string> OllamaClient::models() const {
    const json reply = requestObject(host_, "GET", "/api/tags", nullptr, modelsTimeout);
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
        if (auto name = model.find("name"); name != model.end() && name->is_string()) {
            names.push_back(name->get<std::string>());
        }
    }
    return names;
}

bool OllamaClient::has(std::string_view model, const std::vector<std::string>& installed) {
    const std::string wanted =
        model.find(':') != std::string_view::npos ? std::string(model) : std::string(model) + ":latest";
    for (const std::string& name : installed) {
        if (name == wanted || name == model) {
            return true;
        }
    }
    return false;
}

void OllamaClient::pull(std::string_view model, const PullProgress& progress) const {
    const Endpoint where = endpoint(host_);
    auto client = connectTo(where, pullTimeout);

    httplib::Request exchange;
    exchange.method = "POST";
    exchange.path = where.basePath + "/api/pull";
    exchange.set_header("Content-Type", "application/json");
    exchange.body = compact(json{{"model", model}, {"stream", true}});

    std::optional<Failure> failure;
    std::exception_ptr callbackError;
    std::string pending;

    // One line of the stream; false once the pull must stop.
    const auto handleLine = [&](std::string_view line) {
        const json status = json::parse(line, nullptr, false);
        if (!status.is_object()) {
            return true;
        }
        if (auto error = status.find("error"); error != status.end() && error->is_string()) {
            failure = Failure::server(200, error->get<std::string>());
            return false;
        }
        const auto text = status.find("status");
        try {
            progress(integer(status.value("completed", json())), integer(status.value("total", json())),
                     text != status.end() && text->is_string() ? text->get<std::string>() : std::string());
        } catch (...) {
            callbackError = std::current_exception();
            return false;
        }
        return true;
    };

    exchange.response_handler = [&](const httplib::Response& response) {
        if (response.status != 200) {
            failure = Failure::server(response.status, "pull " + std::string(model));
            return false;
        }
        return true;
    };
    exchange.content_receiver = [&](const char* data, std::size_t length, std::uint64_t, std::uint64_t) {
        pending.append(data, length);
        std::size_t start = 0;
        for (auto end = pending.find('\n'); end != std::string::npos; end = pending.find('\n', start)) {
            if (!handleLine(std::string_view(pending).substr(start, end - start))) {
                return false;
            }
            start = end + 1;
        }
        pending.erase(0, start);
        return true;
    };

    const auto started = std::chrono::steady_clock::now();
    const httplib::Result result = client->send(exchange);
    if (failure) {
        throw *failure;
    }
    if (callbackError) {
        std::rethrow_exception(callbackError);
    }
    if (!result) {
        throw TransportError(
            describe(result.error(), std::chrono::steady_clock::now() - started, pullTimeout));
    }
    if (!pending.empty()) {
        // The last line may end without a line feed.
        handleLine(pending);
        if (failure) {
            throw *failure;
        }
        if (callbackError) {
            std::rethrow_exception(callbackError);
        }
    }
}

std::string OllamaClient::generate(const GenerateRequest& request) const {
    json body = {
        {"model", request.model},
        {"prompt", request.prompt},
        {"stream", false},
        {"think", false},
        {"keep_alive", "10m"},
        {"options", {{"temperature", 0.2}, {"num_predict", request.maxTokens}, {"num_ctx", 8192}}},
    };
    if (request.system) {
        body["system"] = *request.system;
    }
    if (!request.images.empty()) {
        json images = json::array();
        for (const auto& image : request.images) {
            images.push_back(base64(image));
        }
        body["images"] = std::move(images);
    }
    if (request.json) {
        body["format"] = "json";
    }

    const json reply = requestObject(host_, "POST", "/api/generate", &body, request.timeout);
    if (auto response = reply.find("response"); response != reply.end() && response->is_string()) {
        return response->get<std::string>();
    }
    throw Failure::badReply("no response text");
}

std::vector<std::vector<float>>
OllamaClient::embed(std::string_view model, std::span<const EmbedInput> inputs, Timeout timeout) const {
    json list = json::array();
    for (const EmbedInput& input : inputs) {
        if (input.text && !input.image) {
            list.push_back(*input.text);
            continue;
        }
        json object = json::object();
        if (input.text) {
            object["text"] = *input.text;
        }
        if (input.image) {
            object["image"] = base64(*input.image);
        }
        list.push_back(std::move(object));
    }
    const json body = {{"model", model}, {"input", std::move(list)}, {"keep_alive", "10m"}};

    const json reply = requestObject(host_, "POST", "/api/embed", &body, timeout);
    const auto expected = [&] {
        return Failure::badReply("expected " + std::to_string(inputs.size()) + " embeddings");
    };
    const auto embeddings = reply.find("embeddings");
    if (embeddings == reply.end() || !embeddings->is_array() || embeddings->size() != inputs.size()) {
        throw expected();
    }
    std::vector<std::vector<float>> vectors;
    vectors.reserve(inputs.size());
    for (const json& numbers : *embeddings) {
        if (!numbers.is_array()) {
            throw expected();
        }
        std::vector<float> vector;
        vector.reserve(numbers.size());
        for (const json& number : numbers) {
            if (!number.is_number()) {
                throw expected();
            }
            vector.push_back(static_cast<float>(number.get<double>()));
        }
        vectors.push_back(VectorMath::unit(vector));
    }
    return vectors;
}

} // namespace keepery
