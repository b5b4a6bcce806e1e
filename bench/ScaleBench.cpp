// The library as an assistant meets it: keepery-mcp on a generated library of N captures (realistic texts,
// tags, one collection per 50 captures, two 768-d vectors each), the model service a separate process that
// answers at once, every tool timed over standard input and output. Prints medians, 95th percentiles and
// the server's peak resident memory.
//
// Libraries are generated once and kept under the build directory (scale-libraries/N), so a rerun starts
// at once; delete that directory to make them again.
//
//   make bench                                  (all benchmarks; this one at 10,000 captures)
//   build/release/bench/ScaleBench [captures…]  (this one; for example 100000)
#include "BenchHarness.h"
#include "ScaleLibraries.h"
#include "Store/LibraryStore.h"
#include "Understanding/EmbeddingText.h"
#include "Understanding/Models.h"
#include "support/ChildProcess.h"
#include "support/SampleLibrary.h"
#include "support/TemporaryDirectory.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace keepery;
using nlohmann::json;

namespace {

using bench::Samples;
using bench::Stopwatch;
namespace fs = std::filesystem;

// A field of /proc/<pid>/status in MB ("VmRSS", "VmHWM").
double statusMB(int pid, const std::string& field) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.starts_with(field + ":")) {
            return std::strtod(line.c_str() + field.size() + 1, nullptr) / 1024.0;
        }
    }
    return 0;
}

// The processor time the process has used so far, in milliseconds (all its threads, user and system).
double cpuMilliseconds(int pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    // The fields after the command's closing parenthesis; utime and stime are the 12th and 13th of them.
    std::istringstream fields(text.substr(text.rfind(')') + 2));
    std::string field;
    double ticks = 0;
    for (int i = 1; i <= 13 && fields >> field; ++i) {
        if (i >= 12) {
            ticks += std::strtod(field.c_str(), nullptr);
        }
    }
    return ticks * 1000.0 / static_cast<double>(sysconf(_SC_CLK_TCK));
}

// The queries an assistant sends: one to three words, most about what the library holds, some matching
// nothing at all; topic queries get their topic's vector from the model service.
struct Queries {
    std::vector<std::string> texts;
    json script = json{{"embeddings", json::array()}};
};

Queries queriesFor(const keepery::testing::SampleLibrary& sample) {
    Queries queries;
    const std::vector<std::string> nothing{"zqxvor", "blorft quennix", "vexelmar drumbly oxtrel"};
    for (std::size_t t = 0; t < sample.topicCount(); ++t) {
        const std::string pair = sample.topicQuery(t);
        const std::string first = pair.substr(0, pair.find(' '));
        const std::string name = sample.topicName(t);
        std::string three = pair + " " + name.substr(0, name.find(' '));
        for (char& c : three) {
            c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        }
        const std::string text = t % 3 == 0 ? first : t % 3 == 1 ? pair : three;
        queries.texts.push_back(text);
        const std::vector<float> v =
            sample.topicVector(t, t % 2 == 0 ? VectorSpace::look : VectorSpace::meaning);
        queries.script["embeddings"].push_back(
            json{{"text", EmbeddingText::query(text)}, {"vector", std::vector<double>(v.begin(), v.end())}});
        if (t % 4 == 3) {
            queries.texts.push_back(nothing[(t / 4) % nothing.size()]);
        }
    }
    return queries;
}

class Server {
public:
    // The server built beside this program, or the one KEEPERY_MCP names (to time another build).
    explicit Server(const std::map<std::string, std::string>& environment)
        : child_(std::getenv("KEEPERY_MCP") != nullptr ? std::getenv("KEEPERY_MCP") : KEEPERY_MCP_PATH,
                 environment) {}

    // Sends one request and waits for its reply line.
    json call(const std::string& method, const json& params) {
        child_.send(json{{"jsonrpc", "2.0"}, {"id", ++id_}, {"method", method}, {"params", params}}.dump() +
                    "\n");
        const std::string line = child_.readLine();
        json reply = json::parse(line, nullptr, false);
        if (!reply.is_object() || !reply.contains("result")) {
            std::fprintf(stderr, "unexpected reply: %.200s\n", line.c_str());
            std::exit(1);
        }
        return reply;
    }
    json tool(const std::string& name, const json& arguments) {
        json reply = call("tools/call", json{{"name", name}, {"arguments", arguments}});
        if (reply["result"].value("isError", false)) {
            std::fprintf(stderr, "%s failed: %s\n", name.c_str(), reply.dump().substr(0, 300).c_str());
            std::exit(1);
        }
        return reply;
    }
    double timed(const std::string& name, const json& arguments) {
        return bench::milliseconds([&] { (void)tool(name, arguments); });
    }
    void initialize() {
        (void)call("initialize", json{{"protocolVersion", "2025-06-18"},
                                      {"capabilities", json::object()},
                                      {"clientInfo", {{"name", "bench"}, {"version", "1"}}}});
    }
    [[nodiscard]] int pid() const { return child_.pid(); }

private:
    keepery::testing::LineChild child_;
    std::int64_t id_ = 0;
};

// The machine's load average over the last minute: on a shared machine, figures taken under a load
// above the number of cores include time spent waiting for one.
std::string loadAverage() {
    std::ifstream file("/proc/loadavg");
    std::string first;
    file >> first;
    return first;
}

// Wall times of one tool, and the server's processor time per call (which a busy machine inflates less).
struct Timings {
    Samples wall;
    double cpu = 0;
};

void line(const char* what, const Timings& timings) {
    std::printf("  %-40s %8.2f ms median %8.2f ms p95 %7.2f ms cpu/call (%zu)\n", what, timings.wall.median(),
                timings.wall.quantile(0.95), timings.cpu / static_cast<double>(timings.wall.size()),
                timings.wall.size());
}

void run(std::size_t captures) {
    const keepery::testing::SampleLibrary sample(bench::scaleLibraryOptions(captures));
    std::printf("\n%zu captures, %zu collections, two 768-d vectors each\n", captures,
                sample.collections().size());
    const fs::path data = bench::cachedLibrary(sample);
    const Queries queries = queriesFor(sample);

    keepery::testing::TemporaryDirectory home;
    const fs::path script = home.path() / "service.json";
    std::ofstream(script) << queries.script.dump();
    keepery::testing::LineChild service(FAKE_MODEL_SERVICE_PATH, {{"PATH", "/usr/bin:/bin"}},
                                        {"--script", script.string()});
    const std::string port = service.readLine();
    if (port.empty()) {
        std::fprintf(stderr, "the fake model service did not start\n");
        std::exit(1);
    }
    const std::map<std::string, std::string> environment{{"HOME", home.path().string()},
                                                         {"XDG_DATA_HOME", data.string()},
                                                         {"PATH", "/usr/bin:/bin"},
                                                         {"OLLAMA_HOST", "http://127.0.0.1:" + port}};
    const auto search = [&](std::size_t i) {
        return json{{"query", queries.texts[i % queries.texts.size()]}, {"limit", 8}};
    };

    // The first search straight after start-up, timed from the start of the process, three times.
    Samples firstFromStart;
    Samples firstAfterPause;
    for (std::size_t round = 0; round < 3; ++round) {
        const Stopwatch sinceStart;
        Server server(environment);
        server.initialize();
        (void)server.tool("search_keepery", search(round));
        firstFromStart.add(sinceStart.milliseconds());
    }
    // The first search coming well after start-up.
    for (std::size_t round = 0; round < 3; ++round) {
        Server server(environment);
        server.initialize();
        std::this_thread::sleep_for(std::chrono::milliseconds(3500));
        firstAfterPause.add(server.timed("search_keepery", search(round + 3)));
    }

    Server server(environment);
    server.initialize();
    (void)server.tool("search_keepery", search(0));
    Timings warm;
    const auto timed = [&](Timings& into, const std::string& name, const json& arguments) {
        const double cpuBefore = cpuMilliseconds(server.pid());
        into.wall.add(server.timed(name, arguments));
        into.cpu += cpuMilliseconds(server.pid()) - cpuBefore;
    };
    for (std::size_t i = 0; i < 60; ++i) {
        timed(warm, "search_keepery", search(i));
    }
    std::set<std::string> kinds;
    for (std::size_t i = 0; i < std::min<std::size_t>(captures, 500); ++i) {
        kinds.emplace(sample.capture(i).description.kind.rawValue());
    }
    Timings recent, byKind, byCollectionID, byCollectionName, capture, collections;
    for (std::size_t i = 0; i < 30; ++i) {
        timed(recent, "recent_captures", json{{"limit", 10}});
        auto kind = kinds.begin();
        std::advance(kind, static_cast<std::ptrdiff_t>(i % kinds.size()));
        timed(byKind, "recent_captures", json{{"kind", *kind}, {"limit", 10}});
        const CaptureCollection& collection = sample.collections()[(i * 37) % sample.collections().size()];
        timed(byCollectionID, "recent_captures", json{{"collection", collection.id}, {"limit", 10}});
        timed(byCollectionName, "recent_captures", json{{"collection", collection.name}, {"limit", 10}});
        timed(capture, "get_capture", json{{"id", sample.captureID((i * 7919) % captures)}});
        timed(collections, "list_collections", json::object());
    }

    std::printf("  %-40s %8.2f ms median %8.2f ms max (%zu)\n", "first search, from process start",
                firstFromStart.median(), firstFromStart.quantile(1), firstFromStart.size());
    std::printf("  %-40s %8.2f ms median %8.2f ms max (%zu)\n", "first search, 3.5 s after start",
                firstAfterPause.median(), firstAfterPause.quantile(1), firstAfterPause.size());
    line("search_keepery, warm", warm);
    line("recent_captures", recent);
    line("recent_captures with a kind", byKind);
    line("recent_captures with a collection id", byCollectionID);
    line("recent_captures with a collection name", byCollectionName);
    line("get_capture", capture);
    line("list_collections", collections);
    std::printf("  keepery-mcp memory: %.0f MB resident, peak %.0f MB\n", statusMB(server.pid(), "VmRSS"),
                statusMB(server.pid(), "VmHWM"));
    std::printf("  load average %s on %u cores while timed\n", loadAverage().c_str(),
                std::thread::hardware_concurrency());
}

} // namespace

int main(int argc, char** argv) {
    for (const std::size_t size : bench::sizesFromArguments(argc, argv, {10000}, "ScaleBench",
                                                            "ScaleBench: keepery-mcp over standard input and "
                                                            "output, the model service a separate process")) {
        run(size);
    }
    return 0;
}
