#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace keepery::testing {

// A stand-in for the local model service: a real HTTP server on a loopback port that speaks the endpoints
// the engine uses (/api/version, /api/tags, /api/pull as a line stream, /api/generate, /api/embed with
// text and image inputs) and records every request it receives.
//
// Embeddings are deterministic and not normalised: each word of a text (lower-cased, letters and digits)
// adds a fixed signed pattern to a 768-dimensional vector, and an image adds one from a hash of its bytes,
// so texts that share words point in similar directions. The prompt forms of the default embedding model
// ("task: search result | query: ", "title: … | text: ") are left out first. Generate answers come from
// the queue of `answerNext`, then a default that reads the prompt: a
// description for a describer prompt, a name for a collection-naming prompt.
//
// It can be told to answer one path with a fixed reply (`failWith`), to hold requests past a client's
// time-out (`stall`), to stream chosen pull lines and break the stream off (`cutPullAfter`), and to stop
// listening (`refuseConnections`).
// All methods may be called from any thread while the server runs.
class FakeModelService {
public:
    static constexpr int dimension = 768;

    // A fixed reply: status, body and content type.
    struct Reply {
        int status = 200;
        std::string body;
        std::string contentType = "application/json";

        // {"error": <message>} with `status`.
        static Reply error(int status, std::string_view message);
        // An HTML page of exactly `bytes` bytes with `status`.
        static Reply html(int status, std::size_t bytes);
        // `body` as it stands, sent as JSON.
        static Reply json(int status, std::string body);
        // `body` as plain text.
        static Reply text(int status, std::string body);
        // No body at all (for 204).
        static Reply empty(int status);
    };

    // One request as received.
    struct Request {
        std::string method;
        std::string path;
        std::string contentType;
        bool hasContentType = false;
        std::string body;
    };

    // Listens on 127.0.0.1 at `port`, or at a port the system chooses when it is 0. Throws
    // std::runtime_error when it cannot listen.
    explicit FakeModelService(int port = 0);
    ~FakeModelService();
    FakeModelService(const FakeModelService&) = delete;
    FakeModelService& operator=(const FakeModelService&) = delete;

    [[nodiscard]] int port() const;
    // "http://127.0.0.1:<port>".
    [[nodiscard]] std::string host() const;

    void setVersion(std::string version);
    void setModels(std::vector<std::string> names);
    // The lines a pull streams, each followed by a line feed; an {"error": …} line among them makes the
    // service stop the pull as the real one does.
    void setPullLines(std::vector<std::string> lines);
    // Pulls break off after `lines` lines: half of the next line is sent, then the connection is closed
    // without the end of the stream, as when the service dies midway. Until clearFailures().
    void cutPullAfter(std::size_t lines);

    // The response text of the next generate request (queued, used once each, in order).
    void answerNext(std::string response);
    // The vector returned for an input whose whole text is `text` (before any prompt form is removed).
    void setEmbedding(std::string text, std::vector<double> vector);

    // Every request to `path` gets `reply` from now on, until clearFailures().
    void failWith(std::string path, Reply reply);
    // Every generate or embed request for `model` gets `reply` from now on, until clearFailures().
    void failModel(std::string model, Reply reply);
    // `model` is not installed: generate and embed requests for it get the service's 404,
    // {"error": "model \"<model>\" not found, try pulling it first"}, until clearFailures().
    void removeModel(const std::string& model);
    // Every request to `path` waits `seconds` before it is answered (or until the service stops).
    void stall(std::string path, double seconds);
    void clearFailures();

    // Stops listening for good: later connections to the port are refused.
    void refuseConnections();

    // Scripts the service from a JSON object whose "embeddings" key, when present, lists
    // {"text": text, "vector": numbers} as setEmbedding takes them. Throws std::runtime_error for text that
    // is not such an object.
    void applyScript(std::string_view scriptJSON);

    // Every request received so far, in order of arrival; or only those to `path`.
    [[nodiscard]] std::vector<Request> requests() const;
    [[nodiscard]] std::vector<Request> requests(std::string_view path) const;

    // The unnormalised vector the service gives an input of `text` with an optional image, given by its
    // base64 text as it travels.
    [[nodiscard]] static std::vector<double> embedding(std::string_view text,
                                                       std::string_view imageBase64 = {});

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace keepery::testing
