#include "Agents/MCPServer.h"

#include "Library/Library.h"
#include "Library/ToolTexts.h"
#include "Model/CaptureKind.h"
#include "Platform/Dates.h"
#include "Platform/JSONReader.h"
#include "Platform/Text.h"
#include "Store/LibraryStore.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>
#include <unordered_map>

namespace keepery {

using nlohmann::json;

namespace {

json property(const char* type, std::string description) {
    return json{{"type", type}, {"description", std::move(description)}};
}

// Whether a tool's text is its answer or the failure the assistant should read ("isError").
enum class ToolOutcome : bool { answered, failed };

json textContent(const std::string& text, ToolOutcome outcome) {
    return json{{"content", json::array({json{{"type", "text"}, {"text", text}}})},
                {"isError", outcome == ToolOutcome::failed}};
}

// Text another program stored may hold bytes that are not UTF-8; they are written as U+FFFD, as a string
// read from the database would show them, rather than losing the reply.
std::optional<std::string> serialise(const json& reply) {
    try {
        return reply.dump(-1, ' ', false, json::error_handler_t::replace);
    } catch (const json::exception&) {
        return std::nullopt;
    }
}

// A whole JSON number that fits in 64 bits; a fraction, a number out of range, a string or any other type
// counts as absent.
std::optional<std::int64_t> integerArgument(const json& arguments, const char* key) {
    const auto it = arguments.find(key);
    if (it == arguments.end()) {
        return std::nullopt;
    }
    if (it->is_number_unsigned()) {
        const auto value = it->get<std::uint64_t>();
        if (value > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
            return std::nullopt;
        }
        return static_cast<std::int64_t>(value);
    }
    if (it->is_number_integer()) {
        return it->get<std::int64_t>();
    }
    if (it->is_number_float()) {
        const double value = it->get<double>();
        // 2^63 is the first double above the int64 range; every whole double below it converts exactly.
        constexpr double limit = 9223372036854775808.0;
        if (std::isfinite(value) && value == std::trunc(value) && value >= -limit && value < limit) {
            return static_cast<std::int64_t>(value);
        }
    }
    return std::nullopt;
}

std::optional<std::string> stringArgument(const json& arguments, const char* key) {
    const auto it = arguments.find(key);
    if (it == arguments.end() || !it->is_string()) {
        return std::nullopt;
    }
    return it->get<std::string>();
}

std::int64_t limitArgument(const json& arguments, std::int64_t fallback, std::int64_t most) {
    return std::clamp<std::int64_t>(integerArgument(arguments, "limit").value_or(fallback), 1, most);
}

} // namespace

MCPServer::MCPServer(Library& library, LibraryStore& store, std::string version)
    : library_(library), store_(store), version_(std::move(version)) {}

const json& MCPServer::tools() {
    static const json list = json::array({
        json{{"name", "search_keepery"},
             {"description",
              "Search what the user kept in Keepery (windows, photos, videos) by meaning and by "
              "words. Returns the best matches, newest information first within equal relevance."},
             {"inputSchema",
              {{"type", "object"},
               {"properties",
                {{"query", property("string", "What to look for, in plain words")},
                 {"limit", property("integer", "At most this many results (default 8, at most 25)")}}},
               {"required", json::array({"query"})}}}},
        json{{"name", "recent_captures"},
             {"description",
              "What the user kept most recently, newest first; optionally only one collection or "
              "kind."},
             {"inputSchema",
              {{"type", "object"},
               {"properties",
                {{"limit", property("integer", "At most this many (default 10, at most 50)")},
                 {"collection", property("string", "A collection's name or id (list_collections)")},
                 {"kind", property("string", "One of: " + CaptureKind::rawValueList())}}}}}},
        json{{"name", "get_capture"},
             {"description",
              "One capture in full: title, summary, passages worth keeping, the user's note, tags, "
              "links, its collection, and the text on it or said in it."},
             {"inputSchema",
              {{"type", "object"},
               {"properties", {{"id", property("string", "The capture's id, from a search or listing")}}},
               {"required", json::array({"id"})}}}},
        json{{"name", "list_collections"},
             {"description",
              "The collections Keepery formed (and the user named), with how many captures each "
              "holds."},
             {"inputSchema", {{"type", "object"}, {"properties", json::object()}}}},
    });
    return list;
}

std::optional<std::string> MCPServer::result(const json& id, json result) {
    return serialise(json{{"jsonrpc", "2.0"}, {"id", id}, {"result", std::move(result)}});
}

std::optional<std::string> MCPServer::error(const json* id, int code, const std::string& message) {
    return serialise(json{{"jsonrpc", "2.0"},
                          {"id", id != nullptr ? *id : json(nullptr)},
                          {"error", {{"code", code}, {"message", message}}}});
}

std::optional<std::string> MCPServer::handle(std::string_view line) {
    // Text the reader refuses (not JSON, anything but blanks after the value, a NUL byte, nesting past
    // its bound) is not a message: echoing or copying an unbounded id or params would recurse per level.
    std::optional<json> read = JSONReader::read(line);
    if (!read || !read->is_object()) {
        return error(nullptr, -32700, "Parse error");
    }
    json& message = *read;
    const auto idIt = message.find("id");
    const json* id = idIt != message.end() ? &*idIt : nullptr;
    const auto methodIt = message.find("method");
    if (methodIt == message.end() || !methodIt->is_string()) {
        return id != nullptr ? error(id, -32600, "Invalid request") : std::nullopt;
    }
    if (id == nullptr) {
        return std::nullopt;
    }
    const auto paramsIt = message.find("params");
    const json params = paramsIt != message.end() && paramsIt->is_object() ? *paramsIt : json::object();
    const std::string& method = methodIt->get_ref<const std::string&>();

    if (method == "initialize") {
        const auto requested = params.find("protocolVersion");
        return result(*id, json{{"protocolVersion", requested != params.end() && requested->is_string()
                                                        ? *requested
                                                        : json(protocolVersion)},
                                {"capabilities", {{"tools", {{"listChanged", false}}}}},
                                {"serverInfo", {{"name", name}, {"version", version_}}},
                                {"instructions", instructions}});
    }
    if (method == "ping") {
        return result(*id, json::object());
    }
    if (method == "tools/list") {
        return result(*id, json{{"tools", tools()}});
    }
    if (method == "tools/call") {
        return result(*id, toolResult(params));
    }
    return error(id, -32601, "Method not found: " + method);
}

json MCPServer::toolResult(const json& params) {
    const auto nameIt = params.find("name");
    const std::string toolName =
        nameIt != params.end() && nameIt->is_string() ? nameIt->get<std::string>() : "";
    const auto argumentsIt = params.find("arguments");
    const json arguments =
        argumentsIt != params.end() && argumentsIt->is_object() ? *argumentsIt : json::object();
    try {
        return textContent(call(toolName, arguments), ToolOutcome::answered);
    } catch (const ToolFailure& failure) {
        return textContent(failure.message, ToolOutcome::failed);
    } catch (const std::exception& failure) {
        return textContent(std::string("Keepery could not answer: ") + failure.what(), ToolOutcome::failed);
    }
}

std::string MCPServer::call(const std::string& toolName, const json& arguments) {
    if (toolName == "search_keepery") {
        return searchKeepery(arguments);
    }
    if (toolName == "recent_captures") {
        return recentCaptures(arguments);
    }
    if (toolName == "get_capture") {
        return getCapture(arguments);
    }
    if (toolName == "list_collections") {
        return listCollections();
    }
    throw ToolFailure("Unknown tool " + toolName + ".");
}

std::string MCPServer::searchKeepery(const json& arguments) {
    const std::string query = ToolTexts::searchQuery(stringArgument(arguments, "query").value_or(""));
    const std::vector<Capture> found = ToolTexts::searchResults(
        library_, query, limitArgument(arguments, ToolTexts::searchLimit, ToolTexts::mostSearchResults));
    return ToolTexts::searchText(query, found, ToolTexts::labels(store_, found));
}

std::string MCPServer::recentCaptures(const json& arguments) {
    const std::int64_t limit = limitArgument(arguments, ToolTexts::recentLimit, ToolTexts::mostRecent);
    const LibraryFilter filter = ToolTexts::recentFilter(store_, stringArgument(arguments, "collection"),
                                                         stringArgument(arguments, "kind"));
    const std::vector<Capture> found = store_.captures(filter, limit);
    return ToolTexts::recentText(found, ToolTexts::labels(store_, found));
}

std::string MCPServer::getCapture(const json& arguments) {
    return full(ToolTexts::capture(store_, stringArgument(arguments, "id")));
}

std::string MCPServer::listCollections() {
    return ToolTexts::collectionsText(store_.collections());
}

std::string MCPServer::listing(const Capture& capture) {
    return ToolTexts::listing(capture, ToolTexts::labels(store_, std::span(&capture, 1)));
}

std::string MCPServer::full(const Capture& capture) {
    return ToolTexts::full(capture, ToolTexts::labels(store_, std::span(&capture, 1)));
}

} // namespace keepery
