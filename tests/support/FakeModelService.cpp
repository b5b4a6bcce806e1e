#include "support/FakeModelService.h"

#include "Platform/Text.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <httplib.h>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <thread>

namespace keepery::testing {

using JSON = nlohmann::json;

namespace {

std::uint64_t fnv1a(std::string_view text) {
    std::uint64_t hash = 14695981039346656037ULL;
    for (char c : text) {
        hash ^= static_cast<unsigned char>(c);
        hash *= 1099511628211ULL;
    }
    return hash;
}

// Four signed unit entries at places chosen by the feature's hash.
void addFeature(std::vector<double>& vector, std::string_view feature) {
    std::uint64_t hash = fnv1a(feature);
    for (int k = 0; k < 4; ++k) {
        const auto place = static_cast<std::size_t>(hash % FakeModelService::dimension);
        hash /= FakeModelService::dimension;
        vector[place] += (hash & 1) != 0 ? 1.0 : -1.0;
        hash = hash * 6364136223846793005ULL + 1442695040888963407ULL;
    }
}

// The text without the prompt forms of the default embedding model, which every text would share.
std::string_view content(std::string_view text) {
    constexpr std::string_view query = "task: search result | query: ";
    constexpr std::string_view title = "title: ";
    if (text.starts_with(query)) {
        return text.substr(query.size());
    }
    if (text.starts_with(title)) {
        return text.substr(title.size());
    }
    return text;
}

std::vector<std::string> words(std::string_view text) {
    static const std::vector<std::string> ignored{"a",  "an", "the",  "of",   "and",  "or",
                                                  "to", "in", "on",   "at",   "by",   "for",
                                                  "is", "it", "with", "from", "none", "text"};
    std::vector<std::string> out;
    std::u32string current;
    const auto flush = [&] {
        if (!current.empty()) {
            std::string word = Text::lowercased(Text::utf8(current));
            if (std::find(ignored.begin(), ignored.end(), word) == ignored.end()) {
                out.push_back(std::move(word));
            }
            current.clear();
        }
    };
    for (char32_t c : Text::codePoints(text)) {
        if (Text::isAlphanumeric(c)) {
            current.push_back(c);
        } else {
            flush();
        }
    }
    flush();
    return out;
}

std::string between(std::string_view text, std::string_view open, std::string_view close) {
    const auto start = text.find(open);
    if (start == std::string_view::npos) {
        return {};
    }
    const auto from = start + open.size();
    const auto end = text.find(close, from);
    return std::string(
        text.substr(from, end == std::string_view::npos ? std::string_view::npos : end - from));
}

std::string titleCased(std::string_view text) {
    std::string out;
    for (const std::string& word : words(text)) {
        if (!out.empty()) {
            out += ' ';
        }
        out += Text::uppercasingFirstCharacter(word);
    }
    return out;
}

// A plausible describer answer made only of what the prompt says: the window or file name as title, the
// text read as summary and highlight, and its longer words as tags.
std::string describedFromPrompt(std::string_view prompt) {
    std::string title = between(prompt, "Window: ", "\n");
    if (title.empty() || title == "(untitled)") {
        title = between(prompt, "(file \"", "\")");
    }
    std::string read = Text::trimWhitespaceAndNewlines(between(prompt, "\"\"\"\n", "\n\"\"\""));
    if (read == "(none)") {
        read.clear();
    }
    const std::string firstLine = read.substr(0, read.find('\n'));
    if (title.empty()) {
        title = firstLine;
    }
    JSON tags = JSON::array();
    for (const std::string& word : words(read)) {
        if (tags.size() < 3 && Text::characterCount(word) >= 4 &&
            std::find(tags.begin(), tags.end(), word) == tags.end()) {
            tags.push_back(word);
        }
    }
    JSON answer = {{"title", title},
                   {"summary", Text::prefix(read, 200)},
                   {"kind", "other"},
                   {"tags", tags},
                   {"highlights", firstLine.empty() ? JSON::array() : JSON::array({firstLine})},
                   {"links", JSON::array()}};
    return answer.dump(-1, ' ', false, JSON::error_handler_t::replace);
}

// A collection name from the words of the first item's title.
std::string namedFromPrompt(std::string_view prompt) {
    std::string name = titleCased(between(prompt, "\n- ", ": "));
    JSON answer = {{"name", name.empty() ? "Saved Things" : name}, {"emoji", "\U0001F5C2\uFE0F"}};
    return answer.dump(-1, ' ', false, JSON::error_handler_t::replace);
}

} // namespace

struct FakeModelService::State {
    httplib::Server server;
    std::thread thread;
    int port = 0;

    mutable std::mutex lock;
    std::condition_variable stopped;
    bool stopping = false;
    std::string version = "0.41.0";
    std::vector<std::string> models{"embeddinggemma-2:440m", "qwen3.5:4b", "qwen3.5:2b-q4_K_M"};
    std::vector<std::string> pullLines{
        R"({"status":"pulling manifest"})",
        R"({"status":"pulling 1a2b3c","digest":"sha256:1a2b3c","total":1000,"completed":500})",
        R"({"status":"pulling 1a2b3c","digest":"sha256:1a2b3c","total":1000,"completed":1000})",
        R"({"status":"verifying sha256 digest"})",
        R"({"status":"success"})",
    };
    std::deque<std::string> queuedAnswers;
    std::map<std::string, std::vector<double>> embeddings;
    std::map<std::string, Reply, std::less<>> failures;
    std::map<std::string, double, std::less<>> stalls;
    std::map<std::string, Reply, std::less<>> modelFailures;
    std::optional<std::size_t> pullCut;
    std::vector<Request> received;

    // Records the request, waits out a stall, and gives the fixed reply for its path when there is one.
    std::optional<Reply> admit(const httplib::Request& request) {
        std::unique_lock guard(lock);
        Request copy{request.method, request.path, request.get_header_value("Content-Type"),
                     request.has_header("Content-Type"), request.body};
        received.push_back(std::move(copy));
        if (auto stall = stalls.find(request.path); stall != stalls.end()) {
            stopped.wait_for(guard, std::chrono::duration<double>(stall->second),
                             [this] { return stopping; });
        }
        if (auto failure = failures.find(request.path); failure != failures.end()) {
            return failure->second;
        }
        return std::nullopt;
    }

    std::string answer(const std::string& prompt) {
        std::lock_guard guard(lock);
        if (!queuedAnswers.empty()) {
            std::string next = std::move(queuedAnswers.front());
            queuedAnswers.pop_front();
            return next;
        }
        if (prompt.find("Name the collection they form.") != std::string::npos) {
            return namedFromPrompt(prompt);
        }
        return describedFromPrompt(prompt);
    }

    std::vector<double> vectorFor(const JSON& input) {
        std::string text;
        std::string image;
        if (input.is_string()) {
            text = input.get<std::string>();
        } else if (input.is_object()) {
            text = input.value("text", "");
            image = input.value("image", "");
        }
        if (image.empty()) {
            std::lock_guard guard(lock);
            if (auto fixed = embeddings.find(text); fixed != embeddings.end()) {
                return fixed->second;
            }
        }
        return embedding(text, image);
    }

    void stop() {
        {
            std::lock_guard guard(lock);
            stopping = true;
        }
        stopped.notify_all();
        server.stop();
        if (thread.joinable()) {
            thread.join();
        }
    }
};

FakeModelService::Reply FakeModelService::Reply::error(int status, std::string_view message) {
    return {status, JSON{{"error", message}}.dump(), "application/json"};
}

FakeModelService::Reply FakeModelService::Reply::html(int status, std::size_t bytes) {
    std::string page = "<!DOCTYPE html><html><head><title>Internal Server Error</title></head><body>";
    while (page.size() < bytes) {
        page += "<p>The server failed.</p>";
    }
    page.resize(bytes);
    return {status, page, "text/html"};
}

FakeModelService::Reply FakeModelService::Reply::json(int status, std::string body) {
    return {status, std::move(body), "application/json"};
}

FakeModelService::Reply FakeModelService::Reply::text(int status, std::string body) {
    return {status, std::move(body), "text/plain"};
}

FakeModelService::Reply FakeModelService::Reply::empty(int status) {
    return {status, "", ""};
}

FakeModelService::FakeModelService(int port) : state_(std::make_unique<State>()) {
    State& state = *state_;
    const auto respond = [](httplib::Response& response, const Reply& reply) {
        response.status = reply.status;
        if (!reply.body.empty() || !reply.contentType.empty()) {
            response.set_content(reply.body, reply.contentType.empty() ? "text/plain" : reply.contentType);
        }
    };
    const auto sendJSON = [](httplib::Response& response, const JSON& body) {
        response.set_content(body.dump(-1, ' ', false, JSON::error_handler_t::replace), "application/json");
    };

    state.server.Get("/api/version", [&state, respond, sendJSON](const httplib::Request& request,
                                                                 httplib::Response& response) {
        if (auto fixed = state.admit(request)) {
            return respond(response, *fixed);
        }
        std::lock_guard guard(state.lock);
        sendJSON(response, {{"version", state.version}});
    });

    state.server.Get("/api/tags", [&state, respond, sendJSON](const httplib::Request& request,
                                                              httplib::Response& response) {
        if (auto fixed = state.admit(request)) {
            return respond(response, *fixed);
        }
        std::lock_guard guard(state.lock);
        JSON list = JSON::array();
        for (const std::string& name : state.models) {
            list.push_back({{"name", name}, {"model", name}, {"size", 1000000}});
        }
        sendJSON(response, {{"models", list}});
    });

    state.server.Post(
        "/api/pull", [&state, respond](const httplib::Request& request, httplib::Response& response) {
            if (auto fixed = state.admit(request)) {
                return respond(response, *fixed);
            }
            std::vector<std::string> lines;
            std::optional<std::size_t> cut;
            {
                std::lock_guard guard(state.lock);
                lines = state.pullLines;
                cut = state.pullCut;
            }
            // One chunk per line, so that the client reads the stream as it arrives.
            auto next = std::make_shared<std::size_t>(0);
            response.set_chunked_content_provider(
                "application/x-ndjson",
                [lines = std::move(lines), cut, next](std::size_t, httplib::DataSink& sink) {
                    if (cut && *next == *cut) {
                        // Half a line, then the connection closes without the stream's last chunk.
                        const std::string half = *next < lines.size()
                                                     ? lines[*next].substr(0, lines[*next].size() / 2)
                                                     : std::string("{\"status\":");
                        sink.write(half.data(), half.size());
                        return false;
                    }
                    if (*next >= lines.size()) {
                        sink.done();
                        return true;
                    }
                    const std::string line = lines[(*next)++] + "\n";
                    const bool isError = JSON::parse(line, nullptr, false).contains("error");
                    if (!sink.write(line.data(), line.size())) {
                        return false;
                    }
                    if (isError) {
                        sink.done();
                    }
                    return true;
                });
        });

    // The body of a generate or embed request, or nothing when the request has been answered already (a
    // fixed reply, or a body without a model).
    const auto modelRequest = [&state, respond](const httplib::Request& request,
                                                httplib::Response& response) -> std::optional<JSON> {
        if (auto fixed = state.admit(request)) {
            respond(response, *fixed);
            return std::nullopt;
        }
        JSON body = JSON::parse(request.body, nullptr, false);
        if (!body.is_object() || !body.contains("model") || !body["model"].is_string()) {
            respond(response, Reply::error(400, "model is required"));
            return std::nullopt;
        }
        std::optional<Reply> modelFailure;
        {
            std::lock_guard guard(state.lock);
            if (auto found = state.modelFailures.find(body["model"].get<std::string>());
                found != state.modelFailures.end()) {
                modelFailure = found->second;
            }
        }
        if (modelFailure) {
            respond(response, *modelFailure);
            return std::nullopt;
        }
        return body;
    };

    state.server.Post("/api/generate", [&state, modelRequest, sendJSON](const httplib::Request& request,
                                                                        httplib::Response& response) {
        const std::optional<JSON> parsed = modelRequest(request, response);
        if (!parsed) {
            return;
        }
        const JSON& body = *parsed;
        const std::string prompt = body.value("prompt", "");
        sendJSON(response, {{"model", body["model"]},
                            {"created_at", "2024-03-03T17:14:00Z"},
                            {"response", state.answer(prompt)},
                            {"done", true},
                            {"done_reason", "stop"}});
    });

    state.server.Post("/api/embed", [&state, respond, modelRequest, sendJSON](const httplib::Request& request,
                                                                              httplib::Response& response) {
        const std::optional<JSON> parsed = modelRequest(request, response);
        if (!parsed) {
            return;
        }
        const JSON& body = *parsed;
        const JSON input = body.value("input", JSON::array());
        JSON vectors = JSON::array();
        if (input.is_array()) {
            for (const JSON& item : input) {
                vectors.push_back(state.vectorFor(item));
            }
        } else {
            vectors.push_back(state.vectorFor(input));
        }
        sendJSON(response, {{"model", body["model"]}, {"embeddings", vectors}});
    });

    if (port == 0) {
        state.port = state.server.bind_to_any_port("127.0.0.1");
    } else if (state.server.bind_to_port("127.0.0.1", port)) {
        state.port = port;
    } else {
        state.port = -1;
    }
    if (state.port <= 0) {
        throw std::runtime_error("the fake model service cannot listen on 127.0.0.1:" + std::to_string(port));
    }
    state.thread = std::thread([&state] { state.server.listen_after_bind(); });
    // Connections would wait in the listening queue anyway, but stop() only takes effect on a running loop.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!state.server.is_running() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

FakeModelService::~FakeModelService() {
    state_->stop();
}

int FakeModelService::port() const {
    return state_->port;
}

std::string FakeModelService::host() const {
    return "http://127.0.0.1:" + std::to_string(state_->port);
}

void FakeModelService::setVersion(std::string version) {
    std::lock_guard guard(state_->lock);
    state_->version = std::move(version);
}

void FakeModelService::setModels(std::vector<std::string> names) {
    std::lock_guard guard(state_->lock);
    state_->models = std::move(names);
}

void FakeModelService::setPullLines(std::vector<std::string> lines) {
    std::lock_guard guard(state_->lock);
    state_->pullLines = std::move(lines);
}

void FakeModelService::cutPullAfter(std::size_t lines) {
    std::lock_guard guard(state_->lock);
    state_->pullCut = lines;
}

void FakeModelService::answerNext(std::string response) {
    std::lock_guard guard(state_->lock);
    state_->queuedAnswers.push_back(std::move(response));
}

void FakeModelService::setEmbedding(std::string text, std::vector<double> vector) {
    std::lock_guard guard(state_->lock);
    state_->embeddings[std::move(text)] = std::move(vector);
}

void FakeModelService::failWith(std::string path, Reply reply) {
    std::lock_guard guard(state_->lock);
    state_->failures[std::move(path)] = std::move(reply);
}

void FakeModelService::failModel(std::string model, Reply reply) {
    std::lock_guard guard(state_->lock);
    state_->modelFailures[std::move(model)] = std::move(reply);
}

void FakeModelService::removeModel(const std::string& model) {
    failModel(model, Reply::error(404, "model \"" + model + "\" not found, try pulling it first"));
}

void FakeModelService::stall(std::string path, double seconds) {
    std::lock_guard guard(state_->lock);
    state_->stalls[std::move(path)] = seconds;
}

void FakeModelService::clearFailures() {
    std::lock_guard guard(state_->lock);
    state_->failures.clear();
    state_->stalls.clear();
    state_->modelFailures.clear();
    state_->pullCut.reset();
}

void FakeModelService::refuseConnections() {
    state_->stop();
}

void FakeModelService::applyScript(std::string_view scriptJSON) {
    const JSON script = JSON::parse(scriptJSON, nullptr, false);
    if (!script.is_object()) {
        throw std::runtime_error("a fake model service script is a JSON object");
    }
    try {
        for (const JSON& fixed : script.value("embeddings", JSON::array())) {
            setEmbedding(fixed.at("text").get<std::string>(), fixed.at("vector").get<std::vector<double>>());
        }
    } catch (const JSON::exception& error) {
        throw std::runtime_error(std::string("bad fake model service script: ") + error.what());
    }
}

std::vector<FakeModelService::Request> FakeModelService::requests() const {
    std::lock_guard guard(state_->lock);
    return state_->received;
}

std::vector<FakeModelService::Request> FakeModelService::requests(std::string_view path) const {
    std::lock_guard guard(state_->lock);
    std::vector<Request> out;
    for (const Request& request : state_->received) {
        if (request.path == path) {
            out.push_back(request);
        }
    }
    return out;
}

std::vector<double> FakeModelService::embedding(std::string_view text, std::string_view imageBase64) {
    std::vector<double> vector(dimension, 0.0);
    const auto found = words(content(text));
    for (const std::string& word : found) {
        addFeature(vector, word);
    }
    if (!imageBase64.empty()) {
        addFeature(vector, "image " + std::to_string(fnv1a(imageBase64)));
    }
    if (found.empty() && imageBase64.empty()) {
        addFeature(vector, " nothing");
    }
    return vector;
}

} // namespace keepery::testing
