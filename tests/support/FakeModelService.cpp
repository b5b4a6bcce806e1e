#include "support/FakeModelService.h"

#include "Platform/Text.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <httplib.h>
#include <nlohmann/json.hpp>
#include <set>
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
    for (std::string_view form : {"task: search result | query: ", "title: "}) {
        if (text.starts_with(form)) {
            return text.substr(form.size());
        }
    }
    return text;
}

std::vector<std::string> words(std::string_view text) {
    static const std::set<std::string> ignored{"a",  "an", "the", "of", "and",  "or",   "to",   "in",   "on",
                                               "at", "by", "for", "is", "with", "from", "none", "text", "it"};
    std::vector<std::string> out;
    std::u32string current;
    for (char32_t c : Text::codePoints(std::string(text) + " ")) {
        if (Text::isAlphanumeric(c)) {
            current.push_back(c);
        } else if (!current.empty()) {
            std::string word = Text::lowercased(Text::utf8(std::exchange(current, {})));
            if (!ignored.contains(word)) {
                out.push_back(std::move(word));
            }
        }
    }
    return out;
}

std::string between(std::string_view text, std::string_view open, std::string_view close) {
    const auto start = text.find(open);
    if (start == std::string_view::npos) {
        return {};
    }
    const auto from = start + open.size();
    const auto end = text.find(close, from);
    return std::string(text.substr(from, end == std::string_view::npos ? end : end - from));
}

std::string dumped(const JSON& json) {
    return json.dump(-1, ' ', false, JSON::error_handler_t::replace);
}

// A describer answer made only of what the prompt says: the window or file name as title, the text read as
// summary and highlight, and its longer words as tags.
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
    JSON tags = JSON::array();
    for (const std::string& word : words(read)) {
        if (tags.size() < 3 && Text::characterCount(word) >= 4 &&
            !std::count(tags.begin(), tags.end(), word)) {
            tags.push_back(word);
        }
    }
    return dumped({{"title", title.empty() ? firstLine : title},
                   {"summary", Text::prefix(read, 200)},
                   {"kind", "other"},
                   {"tags", tags},
                   {"highlights", firstLine.empty() ? JSON::array() : JSON::array({firstLine})},
                   {"links", JSON::array()}});
}

// A collection name from the words of the first item's title.
std::string namedFromPrompt(std::string_view prompt) {
    std::string name;
    for (const std::string& word : words(between(prompt, "\n- ", ": "))) {
        name += (name.empty() ? "" : " ") + Text::uppercasingFirstCharacter(word);
    }
    return dumped({{"name", name.empty() ? "Saved Things" : name}, {"emoji", "\U0001F5C2\uFE0F"}});
}

} // namespace

struct FakeModelService::State {
    httplib::Server server;
    std::thread thread;
    int port = 0;
    std::mutex lock;
    std::condition_variable stopped;
    bool stopping = false;
    Settings settings;

    // Records the request, waits out a stall, and gives the fixed reply for its path or, when the request
    // must name a model, the reply for a missing or failing one.
    std::optional<Reply> admit(const httplib::Request& request, bool namesModel) {
        std::unique_lock guard(lock);
        settings.received.push_back({request.method, request.path, request.get_header_value("Content-Type"),
                                     request.has_header("Content-Type"), request.body});
        if (auto stall = settings.stalls.find(request.path); stall != settings.stalls.end()) {
            stopped.wait_for(guard, std::chrono::duration<double>(stall->second),
                             [this] { return stopping; });
        }
        if (auto failure = settings.failures.find(request.path); failure != settings.failures.end()) {
            return failure->second;
        }
        if (!namesModel) {
            return std::nullopt;
        }
        const JSON body = JSON::parse(request.body, nullptr, false);
        const JSON model = body.is_object() ? body.value("model", JSON()) : JSON();
        if (!model.is_string()) {
            return Reply::error(400, "model is required");
        }
        if (auto failure = settings.modelFailures.find(model.get<std::string>());
            failure != settings.modelFailures.end()) {
            return failure->second;
        }
        return std::nullopt;
    }

    std::string answer(const std::string& prompt) {
        std::lock_guard guard(lock);
        if (!settings.queuedAnswers.empty()) {
            std::string next = std::move(settings.queuedAnswers.front());
            settings.queuedAnswers.pop_front();
            return next;
        }
        return prompt.find("Name the collection they form.") != std::string::npos
                   ? namedFromPrompt(prompt)
                   : describedFromPrompt(prompt);
    }

    std::vector<double> vectorFor(const JSON& input) {
        std::string text = input.is_string() ? input.get<std::string>() : "";
        std::string image;
        if (input.is_object()) {
            text = input.value("text", "");
            image = input.value("image", "");
        }
        std::lock_guard guard(lock);
        if (auto fixed = settings.embeddings.find(text);
            fixed != settings.embeddings.end() && image.empty()) {
            return fixed->second;
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

FakeModelService::FakeModelService(int port) : state_(std::make_unique<State>()) {
    State& state = *state_;
    const auto respond = [](httplib::Response& response, const Reply& reply) {
        response.status = reply.status;
        if (!reply.body.empty() || !reply.contentType.empty()) {
            response.set_content(reply.body, reply.contentType.empty() ? "text/plain" : reply.contentType);
        }
    };
    // An endpoint that answers its request's body with JSON, unless a fixed reply comes first.
    const auto serve = [&state, respond](bool namesModel, auto answer) {
        return [&state, respond, namesModel, answer](const httplib::Request& request,
                                                     httplib::Response& response) {
            if (auto fixed = state.admit(request, namesModel)) {
                return respond(response, *fixed);
            }
            response.set_content(dumped(answer(JSON::parse(request.body, nullptr, false))),
                                 "application/json");
        };
    };

    state.server.Get("/api/version", serve(false, [&state](const JSON&) {
                         std::lock_guard guard(state.lock);
                         return JSON{{"version", state.settings.version}};
                     }));
    state.server.Get("/api/tags", serve(false, [&state](const JSON&) {
                         std::lock_guard guard(state.lock);
                         JSON list = JSON::array();
                         for (const std::string& name : state.settings.models) {
                             list.push_back({{"name", name}, {"model", name}, {"size", 1000000}});
                         }
                         return JSON{{"models", list}};
                     }));
    state.server.Post("/api/generate", serve(true, [&state](const JSON& body) {
                          return JSON{{"model", body["model"]},
                                      {"created_at", "2024-03-03T17:14:00Z"},
                                      {"response", state.answer(body.value("prompt", ""))},
                                      {"done", true},
                                      {"done_reason", "stop"}};
                      }));
    state.server.Post("/api/embed", serve(true, [&state](const JSON& body) {
                          const JSON input = body.value("input", JSON::array());
                          JSON vectors = JSON::array();
                          for (const JSON& item : input.is_array() ? input : JSON::array({input})) {
                              vectors.push_back(state.vectorFor(item));
                          }
                          return JSON{{"model", body["model"]}, {"embeddings", vectors}};
                      }));
    state.server.Post(
        "/api/pull", [&state, respond](const httplib::Request& request, httplib::Response& response) {
            if (auto fixed = state.admit(request, false)) {
                return respond(response, *fixed);
            }
            std::lock_guard guard(state.lock);
            // One chunk per line, so that the client reads the stream as it arrives.
            response.set_chunked_content_provider(
                "application/x-ndjson",
                [lines = state.settings.pullLines, cut = state.settings.pullCut,
                 next = std::make_shared<std::size_t>(0)](std::size_t, httplib::DataSink& sink) {
                    if (*next == cut) {
                        // Half a line, then the connection closes without the stream's last chunk.
                        const std::string half = *next < lines.size()
                                                     ? lines[*next].substr(0, lines[*next].size() / 2)
                                                     : "{\"status\":";
                        sink.write(half.data(), half.size());
                        return false;
                    }
                    if (*next >= lines.size()) {
                        sink.done();
                        return true;
                    }
                    const std::string line = lines[(*next)++] + "\n";
                    if (!sink.write(line.data(), line.size())) {
                        return false;
                    }
                    if (JSON::parse(line, nullptr, false).contains("error")) {
                        sink.done();
                    }
                    return true;
                });
        });

    state.port = port == 0 ? state.server.bind_to_any_port("127.0.0.1")
                           : (state.server.bind_to_port("127.0.0.1", port) ? port : -1);
    if (state.port <= 0) {
        throw std::runtime_error("the fake model service cannot listen on 127.0.0.1:" + std::to_string(port));
    }
    state.thread = std::thread([&state] { state.server.listen_after_bind(); });
    // stop() only takes effect on a running loop.
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

FakeModelService::Locked FakeModelService::locked() const {
    return {std::unique_lock(state_->lock), &state_->settings};
}

void FakeModelService::clearFailures() {
    const Locked settings = locked();
    settings->failures.clear();
    settings->stalls.clear();
    settings->modelFailures.clear();
    settings->pullCut.reset();
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

std::vector<FakeModelService::Request> FakeModelService::requests(std::string_view path) const {
    std::vector<Request> out = requests();
    std::erase_if(out, [path](const Request& request) { return request.path != path; });
    return out;
}

std::vector<double> FakeModelService::embedding(std::string_view text, std::string_view imageBase64) {
    std::vector<double> vector(dimension, 0.0);
    const std::vector<std::string> found = words(content(text));
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
