#pragma once

#include <chrono>
#include <cstdint>
#include <exception>
#include <functional>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace keepery {

// The one way to the local model service: its version and installed models, pulling a model, answering a
// prompt and embedding texts and images, over plain HTTP with JSON bodies. A value: it holds only the
// service's address, opens one connection per operation and keeps nothing between calls, so copies may be
// used from any number of threads at once. Every operation blocks its caller until the service answers or
// the operation's time-out passes; a time-out is the longest wait for the next bytes of the exchange.
class OllamaClient {
public:
    // The longest wait for the next bytes of one exchange.
    using Timeout = std::chrono::milliseconds;

    // The client's error. Its text form is what reaches a capture's last error and the user.
    class Failure : public std::exception {
    public:
        enum class Kind {
            // The transport failed: nothing listens, the connection was refused or dropped, or the time-out
            // passed. `message` is the transport's description.
            unreachable,
            // The service answered with an error status, or a pull stream reported an error.
            server,
            // The service answered with success, but not with what the operation needs.
            badReply,
        };

        [[nodiscard]] static Failure unreachable(std::string message);
        [[nodiscard]] static Failure server(int status, std::string message);
        [[nodiscard]] static Failure badReply(std::string message);

        [[nodiscard]] Kind kind() const { return kind_; }
        // The HTTP status of a `server` failure; 0 for the other kinds.
        [[nodiscard]] int status() const { return status_; }
        [[nodiscard]] const std::string& message() const { return message_; }
        // "Ollama is not reachable (<message>)", "Ollama answered <status>: <message>" or
        // "Unexpected reply from Ollama: <message>".
        [[nodiscard]] const std::string& description() const { return description_; }
        [[nodiscard]] const char* what() const noexcept override { return description_.c_str(); }

        bool operator==(const Failure& other) const {
            return kind_ == other.kind_ && status_ == other.status_ && message_ == other.message_;
        }

    private:
        Failure(Kind kind, int status, std::string message);
        Kind kind_;
        int status_;
        std::string message_;
        std::string description_;
    };

    // The transport's own error during a pull (the connection failed or the stream broke off). Unlike the
    // other operations, a pull does not turn it into `Failure::unreachable`.
    class TransportError : public std::runtime_error {
    public:
        using std::runtime_error::runtime_error;
    };

    // One thing to embed: a text, an encoded image (PNG or JPEG bytes), both, or neither. The image bytes
    // are borrowed and must outlive the call.
    struct EmbedInput {
        std::optional<std::string> text{};
        std::optional<std::span<const std::uint8_t>> image{};
    };

    // What `generate` asks for. The images are borrowed and must outlive the call.
    struct GenerateRequest {
        std::string model{};
        std::string prompt{};
        std::optional<std::string> system{};
        std::vector<std::span<const std::uint8_t>> images{};
        // Asks the service to answer with JSON only.
        bool json = false;
        std::int64_t maxTokens = 0;
        Timeout timeout{0};
    };

    // Progress of a pull: bytes completed and total of the current step (0 when the line gives none) and
    // the service's status text. Called on the thread that runs the pull, once per progress line, in order.
    using PullProgress =
        std::function<void(std::int64_t completed, std::int64_t total, const std::string& status)>;

    // A client for the service at `host`: "scheme://host:port", optionally followed by a base path, as
    // ModelService::host() gives it. No I/O.
    explicit OllamaClient(std::string host);

    [[nodiscard]] const std::string& host() const { return host_; }
    void setHost(std::string host) { host_ = std::move(host); }

    // The service's version text (GET /api/version, 3 s). Throws Failure; `badReply("no version")` when the
    // reply has no string "version".
    [[nodiscard]] std::string version() const;

    // The installed model names in the service's order (GET /api/tags, 5 s); empty when the reply has no
    // usable "models" list. Throws Failure.
    [[nodiscard]] std::vector<std::string> models() const;

    // True when `installed` holds `model` as given, or, for a name without a tag, its ":latest" form.
    // Exact comparison. No request.
    [[nodiscard]] static bool has(std::string_view model, const std::vector<std::string>& installed);

    // Downloads `model` (POST /api/pull, streamed, 3600 s), calling `progress` for every progress line.
    // Returns when the stream ends. Throws Failure::server(status, "pull <model>") for a status other than
    // 200, Failure::server(200, <error>) for a line with an "error" text (no later line is read), and
    // TransportError when the transport fails.
    void pull(std::string_view model, const PullProgress& progress) const;

    // The model's answer to the prompt (POST /api/generate), returned as it stands. Throws Failure;
    // `badReply("no response text")` when the reply has no string "response".
    [[nodiscard]] std::string generate(const GenerateRequest& request) const;

    // One vector per input, in input order, each scaled to unit length (POST /api/embed, waiting up to
    // `timeout`). Throws Failure; `badReply("expected <n> embeddings")` when the reply does not hold n lists
    // of numbers.
    [[nodiscard]] std::vector<std::vector<float>>
    embed(std::string_view model, std::span<const EmbedInput> inputs, Timeout timeout) const;

private:
    std::string host_;
};

} // namespace keepery
