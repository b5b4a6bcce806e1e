#include "Understanding/OllamaClient.h"

#include "Understanding/OllamaReplies.h"

#include <chrono>
#include <httplib.h>
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

// The request routine shared by every operation but pull: one exchange, the whole body read. Throws
// Failure::unreachable when the transport fails; the status and body are read by OllamaReplies.
httplib::Result exchange(const std::string& host, const std::string& method, std::string_view path,
                         const json* body, Timeout timeout) {
    const Endpoint where = endpoint(host);
    auto client = connectTo(where, timeout);

    httplib::Request request;
    request.method = method;
    request.path = where.basePath + std::string(path);
    if (body != nullptr) {
        request.set_header("Content-Type", "application/json");
        request.body = compact(*body);
    }

    const auto started = std::chrono::steady_clock::now();
    httplib::Result result = client->send(request);
    if (!result) {
        throw OllamaClient::Failure::unreachable(
            describe(result.error(), std::chrono::steady_clock::now() - started, timeout));
    }
    return result;
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
    const httplib::Result reply = exchange(host_, "GET", "/api/version", nullptr, versionTimeout);
    return OllamaReplies::version(reply->status, reply->body);
}

std::vector<std::string> OllamaClient::models() const {
    const httplib::Result reply = exchange(host_, "GET", "/api/tags", nullptr, modelsTimeout);
    return OllamaReplies::models(reply->status, reply->body);
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
        const std::optional<OllamaReplies::PullLine> status = OllamaReplies::pullLine(line);
        if (!status) {
            return true;
        }
        if (status->error) {
            failure = Failure::server(200, *status->error);
            return false;
        }
        try {
            progress(status->completed, status->total, status->status);
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

    const httplib::Result reply = exchange(host_, "POST", "/api/generate", &body, request.timeout);
    return OllamaReplies::response(reply->status, reply->body);
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

    const httplib::Result reply = exchange(host_, "POST", "/api/embed", &body, timeout);
    return OllamaReplies::embeddings(reply->status, reply->body, inputs.size());
}

} // namespace keepery
