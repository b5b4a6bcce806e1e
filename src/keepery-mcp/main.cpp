// keepery-mcp: the Model Context Protocol server an AI assistant starts as a child process. It opens the
// user's library, then answers one protocol line at a time from standard input until the input ends.
#include "Agents/MCPServer.h"
#include "Library/Library.h"
#include "Organizing/Organizer.h"
#include "Platform/ModelService.h"
#include "Platform/Settings.h"
#include "Platform/SystemInfo.h"
#include "Platform/Text.h"
#include "Store/LibraryStore.h"
#include "Understanding/Models.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <iostream>
#include <memory>
#include <string>
#include <unistd.h>

using namespace keepery;

namespace {

// One unbuffered write of the whole text, so the assistant sees each reply at once.
void writeAll(int fd, const std::string& text) {
    std::size_t written = 0;
    while (written < text.size()) {
        const ssize_t n = ::write(fd, text.data() + written, text.size() - written);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return;
        }
        written += static_cast<std::size_t>(n);
    }
}

std::string chooseVisionModel() {
    if (auto settings = Settings::load()) {
        if (auto stored = settings->string("visionModel")) {
            return *stored;
        }
    }
    constexpr std::uint64_t gibibyte = 1ULL << 30;
    return Models::vision(static_cast<std::int64_t>(SystemInfo::physicalMemory() / gibibyte));
}

} // namespace

int main(int argc, char** /*argv*/) {
    (void)argc;
    // A closed output pipe must not kill the server; the next read tells it the assistant has gone.
    std::signal(SIGPIPE, SIG_IGN);

    const auto root = LibraryStore::defaultRoot();
    std::unique_ptr<LibraryStore> store;
    try {
        store = std::make_unique<LibraryStore>(root);
    } catch (const std::exception& failure) {
        // The failing statement it quotes may span lines; the failure is still one line.
        std::string message =
            "keepery-mcp: cannot open the library at " + root.string() + ": " + failure.what();
        std::replace_if(
            message.begin(), message.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
        writeAll(STDERR_FILENO, message + "\n");
        return 1;
    }

    // The server only reads and searches and drains no queue of jobs, so it gives the library none.
    Library library({.store = *store, .client = OllamaClient(ModelService::host())},
                    {.visionModel = chooseVisionModel(),
                     .embeddingModel = std::string(Models::embedding),
                     .organizer = Organizer()});
    // The first search would otherwise read every vector itself; the reading starts now, beside the
    // replies.
    library.preload();
    MCPServer server(library, *store, SystemInfo::version());

    std::ios::sync_with_stdio(false);
    std::string line;
    while (std::getline(std::cin, line)) {
        // A line feed was found unless the input ended first; only then is a carriage return part of CRLF.
        if (!std::cin.eof() && !line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        if (Text::trimWhitespace(line).empty()) {
            continue;
        }
        if (auto reply = server.handle(line)) {
            writeAll(STDOUT_FILENO, *reply + "\n");
        }
    }
    return 0;
}
