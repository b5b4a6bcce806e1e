#pragma once

#include "Library/ToolTexts.h"

#include <exception>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace keepery {

class Library;
class LibraryStore;
struct Capture;

// The Model Context Protocol server: JSON-RPC 2.0, one compact JSON object per line. It keeps nothing
// from one message to the next; every method is answered at any time. One line at a time, on the thread
// that runs the line loop.
class MCPServer {
public:
    static constexpr const char* name = "keepery";
    static constexpr const char* protocolVersion = "2025-06-18";
    static constexpr const char* instructions =
        "Keepery is the user's keepery book: windows, photos and videos they chose to keep, each described, "
        "tagged and filed into collections. Search it (search_keepery) before asking the user about "
        "something "
        "they saw, read or saved; open a result with get_capture for its full text.";

    // The error a tool throws; its message reaches the assistant unchanged, as a result marked isError.
    using ToolFailure = ToolTexts::Failure;

    // Searches go through `library`; every other tool reads `store` directly.
    MCPServer(Library& library, LibraryStore& store, std::string version);

    // The reply line (without its line ending) to one input line, or nothing when no reply is due (a
    // notification, or a reply that cannot be serialised). The whole line must be one JSON object: text
    // after it other than blanks, a NUL byte anywhere, or nesting deeper than 64 levels makes it a parse
    // error. Never throws.
    [[nodiscard]] std::optional<std::string> handle(std::string_view line);

    // Runs one tool and returns its text. Throws ToolFailure for the failures the assistant should read,
    // and passes any other error (a database failure) on.
    [[nodiscard]] std::string call(const std::string& toolName, const nlohmann::json& arguments);

    // The short form of one capture: title and kind; id, address or source, date and collection; summary;
    // note; tags. Reads the collections for the label.
    [[nodiscard]] std::string listing(const Capture& capture);
    // The long form: the listing, then the duration, passages, links, what was said and the text on it
    // (both cut at 4000 characters), and a note while the capture is still being read.
    [[nodiscard]] std::string full(const Capture& capture);

    // The four tool descriptions, in the order they are listed; built once.
    [[nodiscard]] static const nlohmann::json& tools();

    // Serialised success and error replies; nothing when serialisation fails. An absent id becomes null.
    [[nodiscard]] static std::optional<std::string> result(const nlohmann::json& id, nlohmann::json result);
    [[nodiscard]] static std::optional<std::string> error(const nlohmann::json* id, int code,
                                                          const std::string& message);

private:
    [[nodiscard]] nlohmann::json toolResult(const nlohmann::json& params);
    [[nodiscard]] std::string searchKeepery(const nlohmann::json& arguments);
    [[nodiscard]] std::string recentCaptures(const nlohmann::json& arguments);
    [[nodiscard]] std::string getCapture(const nlohmann::json& arguments);
    [[nodiscard]] std::string listCollections();

    Library& library_;
    LibraryStore& store_;
    std::string version_;
};

} // namespace keepery
