// Absurdly long search queries through the assistant server: a library of 10,000 sample captures, the
// fake model service answering in process (or nothing listening), and `search_keepery` asked with an
// ordinary query, 16,000 and 32,000 matching words, and 1 MB and 10 MB of them. Prints the time from the
// request line to the reply line for each.
//
//   build/release/bench/HostileQueryBench [captures]   (default 10000)
#include "Agents/MCPServer.h"
#include "Library/Library.h"
#include "Store/LibraryStore.h"
#include "support/FakeModelService.h"
#include "support/SampleLibrary.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>

using namespace keepery;
using Steady = std::chrono::steady_clock;

namespace {

// `words` taken in turn until the text holds `count` of them, or `bytes` bytes when that is not 0.
std::string repeated(const std::string& words, std::size_t count, std::size_t bytes = 0) {
    const auto perCopy = static_cast<std::size_t>(1 + std::count(words.begin(), words.end(), ' '));
    std::string text;
    std::size_t n = 0;
    while (bytes != 0 ? text.size() < bytes : n < count) {
        text += words;
        text += ' ';
        n += perCopy;
    }
    return text;
}

std::string searchLine(const std::string& query) {
    return nlohmann::json{{"jsonrpc", "2.0"},
                          {"id", 1},
                          {"method", "tools/call"},
                          {"params", {{"name", "search_keepery"}, {"arguments", {{"query", query}}}}}}
        .dump();
}

} // namespace

int main(int argc, char** argv) {
    const std::size_t captures = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 10'000;
    keepery::testing::TemporaryDirectory directory;
    LibraryStore store(directory.path() / "Keepery");
    keepery::testing::SampleLibraryOptions options;
    options.captures = captures;
    options.embeddingModel = "embed-bench";
    const keepery::testing::SampleLibrary sample(options);
    sample.write(store);
    const std::string words = sample.topicQuery(0);
    std::printf("library: %zu captures; query words \"%s\"\n", captures, words.c_str());

    keepery::testing::FakeModelService service;
    for (const bool serviceUp : {true, false}) {
        Library library(
            {.store = store, .client = OllamaClient(serviceUp ? service.host() : "http://127.0.0.1:1")},
            {.visionModel = "vision", .embeddingModel = "embed-bench"});
        MCPServer server(library, store, "bench");
        (void)server.handle(searchLine(words)); // warms the kept vectors
        const struct {
            const char* name;
            std::string query;
        } cases[] = {
            {"ordinary", words},
            {"16,000 words", repeated(words, 16'000)},
            {"32,000 words", repeated(words, 32'000)},
            {"1 MB", repeated(words, 0, 1'000'000)},
            {"10 MB", repeated(words, 0, 10'000'000)},
        };
        for (const auto& c : cases) {
            const std::string line = searchLine(c.query);
            const auto start = Steady::now();
            const std::optional<std::string> reply = server.handle(line);
            const double ms = std::chrono::duration<double, std::milli>(Steady::now() - start).count();
            std::printf("model service %-4s %-13s %9zu bytes: %8.1f ms, reply %zu bytes\n",
                        serviceUp ? "up" : "down", c.name, line.size(), ms, reply ? reply->size() : 0);
        }
    }
    return 0;
}
