// Feeds the server what the line loop would: the input split at line feeds, blank lines skipped. Every
// request line must get exactly one reply line that echoes its id, a notification none, and a line that
// is not a JSON object a parse error; the sanitizers catch the rest.
#include "Agents/MCPServer.h"
#include "Library/Library.h"
#include "Platform/JSONReader.h"
#include "Platform/Text.h"
#include "Store/LibraryStore.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <string_view>

using namespace keepery;
using nlohmann::json;

namespace {

// Stops the run with the line that broke the rule, so that libFuzzer saves the input.
void require(bool holds, const char* rule, std::string_view line) {
    if (!holds) {
        std::fprintf(stderr, "broken: %s\nline: %.*s\n", rule,
                     static_cast<int>(std::min<std::size_t>(line.size(), 2000)), line.data());
        std::abort();
    }
}

// One library for the whole run, in a directory of its own, with a few captures for the tools to find.
// Nothing listens on port 1, so a search ranks by words alone without waiting.
struct Fixture {
    std::filesystem::path root;
    std::unique_ptr<LibraryStore> store;
    std::unique_ptr<Library> library;
    std::unique_ptr<MCPServer> server;

    Fixture() {
        char pattern[] = "/tmp/keepery-fuzz-XXXXXX";
        root = ::mkdtemp(pattern);
        store = std::make_unique<LibraryStore>(root / "Keepery");
        const char* words[] = {"ramen shop in kyoto", "invoice for the bike", "notes on sqlite fts5"};
        for (int i = 0; i < 3; ++i) {
            Capture capture;
            capture.id = "capture-" + std::to_string(i);
            capture.createdAt = 1'700'000'000 + i;
            capture.app = "Browser";
            capture.windowTitle = words[i];
            capture.url = "https://example.com/" + std::to_string(i);
            capture.width = 800;
            capture.height = 600;
            store->insert(capture);
        }
        library = std::make_unique<Library>(
            Library::Services{.store = *store, .client = OllamaClient("http://127.0.0.1:1")},
            Library::Options{.visionModel = "vision", .embeddingModel = "embedding"});
        server = std::make_unique<MCPServer>(*library, *store, "0.1.0");
    }
    ~Fixture() {
        server.reset();
        library.reset();
        store.reset();
        std::error_code ignored;
        std::filesystem::remove_all(root, ignored);
    }
};

void checkLine(MCPServer& server, std::string_view line) {
    const std::optional<std::string> reply = server.handle(line);
    const std::optional<json> request = JSONReader::read(line);
    const bool isObject = request && request->is_object();
    const bool isRequest = !isObject || request->contains("id");
    require(reply.has_value() == isRequest, isRequest ? "a request gets a reply" : "a notification gets none",
            line);
    if (!reply) {
        return;
    }
    require(reply->find('\n') == std::string::npos && reply->find('\r') == std::string::npos,
            "a reply is one line", line);
    const std::optional<json> answer = JSONReader::read(*reply);
    require(answer && answer->is_object() && answer->value("jsonrpc", "") == "2.0",
            "a reply is a JSON-RPC object", line);
    require(answer->contains("result") != answer->contains("error"), "a reply holds a result or an error",
            line);
    if (!isObject) {
        require((*answer)["id"].is_null() && (*answer)["error"]["code"] == -32700,
                "not an object: parse error", line);
        return;
    }
    // Numbers beyond a double's range come back as the library writes them; every other id is echoed.
    const json& id = (*request)["id"];
    if (!id.is_number_float()) {
        require(answer->contains("id") && (*answer)["id"] == id, "the reply echoes the id", line);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Fixture fixture;
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    std::size_t start = 0;
    while (start <= input.size()) {
        std::size_t end = input.find('\n', start);
        if (end == std::string_view::npos) {
            end = input.size();
        }
        std::string_view line = input.substr(start, end - start);
        if (!line.empty() && line.back() == '\r') {
            line.remove_suffix(1);
        }
        if (!Text::trimWhitespace(line).empty()) {
            checkLine(*fixture.server, line);
        }
        start = end + 1;
    }
    return 0;
}
