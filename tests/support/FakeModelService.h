#pragma once

#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace keepery::testing {

// A stand-in for the local model service: a real HTTP server on a loopback port that speaks the endpoints
// the engine uses (/api/version, /api/tags, /api/pull as a line stream, /api/generate, /api/embed) and
// records every request. Embeddings are deterministic (see `embedding`); generate answers come from the
// queue of `answerNext`, then a default read from the prompt (a description, or a collection name). Tests
// inject the service's failures: fixed replies, unknown models, stalls, cut pull streams, refused
// connections. Any thread while the server runs.
class FakeModelService {
public:
    static constexpr int dimension = 768;
    // The vision and embedding models the service has installed from the start.
    static constexpr const char* visionModel = "qwen3.5:4b";
    static constexpr const char* embeddingModel = "embeddinggemma-2:440m";

    struct Reply {
        int status = 200;
        std::string body;
        std::string contentType = "application/json";

        // {"error": <message>}.
        static Reply error(int status, std::string_view message);
        // An HTML error page of exactly `bytes` bytes.
        static Reply html(int status, std::size_t bytes);
        static Reply json(int status, std::string body) {
            return {status, std::move(body), "application/json"};
        }
        static Reply text(int status, std::string body) { return {status, std::move(body), "text/plain"}; }
        static Reply empty(int status) { return {status, "", ""}; }
    };

    struct Request {
        std::string method;
        std::string path;
        std::string contentType;
        bool hasContentType = false;
        std::string body;
    };

    // Listens on 127.0.0.1 at `port` (0: one the system chooses); throws std::runtime_error when it cannot.
    explicit FakeModelService(int port = 0);
    ~FakeModelService();
    FakeModelService(const FakeModelService&) = delete;
    FakeModelService& operator=(const FakeModelService&) = delete;

    [[nodiscard]] int port() const;
    // "http://127.0.0.1:<port>".
    [[nodiscard]] std::string host() const;

    void setVersion(std::string version) { locked()->version = std::move(version); }
    void setModels(std::vector<std::string> names) { locked()->models = std::move(names); }
    // The lines a pull streams; an {"error": …} line ends the stream as the real service does.
    void setPullLines(std::vector<std::string> lines) { locked()->pullLines = std::move(lines); }
    // Pulls send `lines` lines and half the next, then drop the connection mid-stream. Until clearFailures().
    void cutPullAfter(std::size_t lines) { locked()->pullCut = lines; }

    // The response text of the next generate request (queued, each used once).
    void answerNext(std::string response) { locked()->queuedAnswers.push_back(std::move(response)); }
    // The vector for an input whose whole text is `text`.
    void setEmbedding(std::string text, std::vector<double> vector) {
        locked()->embeddings[std::move(text)] = std::move(vector);
    }

    // Until clearFailures(): every request to `path` gets `reply`; every generate or embed for `model` gets
    // `reply`; `removeModel` answers with the service's 404 for a missing model; `stall` holds each request
    // to `path` for `seconds` (or until the service stops).
    void failWith(std::string path, Reply reply) { locked()->failures[std::move(path)] = std::move(reply); }
    void failModel(std::string model, Reply reply) {
        locked()->modelFailures[std::move(model)] = std::move(reply);
    }
    void removeModel(const std::string& model) {
        failModel(model, Reply::error(404, "model \"" + model + "\" not found, try pulling it first"));
    }
    void stall(std::string path, double seconds) { locked()->stalls[std::move(path)] = seconds; }
    void clearFailures();

    // Stops listening for good: later connections are refused.
    void refuseConnections();

    // Scripts the service from a JSON object whose "embeddings" lists {"text": …, "vector": […]}. Throws
    // std::runtime_error for anything else.
    void applyScript(std::string_view scriptJSON);

    // The requests received so far in order, or those to `path`.
    [[nodiscard]] std::vector<Request> requests() const { return locked()->received; }
    [[nodiscard]] std::vector<Request> requests(std::string_view path) const;

    // The unnormalised vector for `text` (and an image, as its base64 text): each word (lower-cased, common
    // words and the embedding model's prompt forms left out) adds a fixed signed pattern, so texts that share
    // words point alike.
    [[nodiscard]] static std::vector<double> embedding(std::string_view text,
                                                       std::string_view imageBase64 = {});

private:
    // What tests set and the service records.
    struct Settings {
        std::string version = "0.41.0";
        std::vector<std::string> models{embeddingModel, visionModel, "qwen3.5:2b-q4_K_M"};
        std::vector<std::string> pullLines{
            R"({"status":"pulling manifest"})",
            R"({"status":"pulling 1a2b3c","digest":"sha256:1a2b3c","total":1000,"completed":500})",
            R"({"status":"pulling 1a2b3c","digest":"sha256:1a2b3c","total":1000,"completed":1000})",
            R"({"status":"verifying sha256 digest"})",
            R"({"status":"success"})",
        };
        std::optional<std::size_t> pullCut;
        std::deque<std::string> queuedAnswers;
        std::map<std::string, std::vector<double>> embeddings;
        std::map<std::string, Reply, std::less<>> failures;
        std::map<std::string, Reply, std::less<>> modelFailures;
        std::map<std::string, double, std::less<>> stalls;
        std::vector<Request> received;
    };
    // The settings, locked until the end of the full expression that asks for them.
    struct Locked {
        std::unique_lock<std::mutex> guard;
        Settings* settings;
        Settings* operator->() const { return settings; }
    };
    [[nodiscard]] Locked locked() const;

    struct State;
    std::unique_ptr<State> state_;
};

} // namespace keepery::testing
