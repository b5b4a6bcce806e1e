#include "Agents/MCPServer.h"

#include "Library/Library.h"
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

using Text::joined;

// A long text as the full form shows it: whole up to 4000 characters, else its first 4000 and "…". A text
// that fits is passed on as stored, so that bytes which are not UTF-8 reach the serialiser's own
// replacement untouched.
std::string longText(const std::string& text) {
    constexpr std::size_t most = 4000;
    return Text::characterCount(text) <= most ? text : Text::cut(text, most);
}

// Collection id → "<emoji> <name>". A listing that cannot read the collections shows no label.
using Labels = std::unordered_map<std::string, std::string>;

// The labels of the collections `captures` are filed in, and of no others.
Labels labels(LibraryStore& store, std::span<const Capture> captures) {
    std::vector<std::string> ids;
    for (const Capture& capture : captures) {
        if (capture.collectionID && std::find(ids.begin(), ids.end(), *capture.collectionID) == ids.end()) {
            ids.push_back(*capture.collectionID);
        }
    }
    Labels found;
    if (ids.empty()) {
        return found;
    }
    try {
        for (const LibraryStore::CollectionName& collection : store.collectionNames(ids)) {
            found.try_emplace(collection.id, collection.emoji + " " + collection.name);
        }
    } catch (const std::exception&) {
        found.clear();
    }
    return found;
}

std::string listingWith(const Capture& capture, const Labels& labels) {
    std::string out = capture.displayTitle();
    out += " — ";
    out += capture.kind ? capture.kind->title() : capture.media.title();

    std::vector<std::string> facts{"id " + capture.id, capture.url ? *capture.url : capture.sourceName(),
                                   Dates::mediumDateShortTime(capture.takenAt.value_or(capture.createdAt))};
    if (capture.collectionID) {
        if (auto label = labels.find(*capture.collectionID); label != labels.end()) {
            facts.push_back(label->second);
        }
    }
    out += "\n" + joined(facts, " · ");
    if (capture.summary && !capture.summary->empty()) {
        out += "\n" + *capture.summary;
    }
    if (capture.note && !capture.note->empty()) {
        out += "\nNote: " + *capture.note;
    }
    if (!capture.tags.empty()) {
        out += "\nTags: " + joined(capture.tags, ", ");
    }
    return out;
}

std::string listingsWith(const std::vector<Capture>& captures, const Labels& labels) {
    std::vector<std::string> listings;
    listings.reserve(captures.size());
    for (const Capture& capture : captures) {
        listings.push_back(listingWith(capture, labels));
    }
    return joined(listings, "\n\n");
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
    const std::string query =
        Text::trimWhitespaceAndNewlines(stringArgument(arguments, "query").value_or(""));
    if (query.empty()) {
        throw ToolFailure("'query' must be a non-empty string.");
    }
    const auto limit = static_cast<std::size_t>(limitArgument(arguments, 8, 25));
    const std::vector<Capture> found = library_.search(query, limit);
    if (found.empty()) {
        return "Nothing in Keepery matches “" + query + "”.";
    }
    return "Keepery for “" + query + "” (" + std::to_string(found.size()) + "):\n\n" +
           listingsWith(found, labels(store_, found));
}

std::string MCPServer::recentCaptures(const json& arguments) {
    const std::int64_t limit = limitArgument(arguments, 10, 50);
    LibraryFilter filter = LibraryFilter::recent();
    const std::optional<std::string> collection = stringArgument(arguments, "collection");
    const std::optional<std::string> kind = stringArgument(arguments, "kind");
    if (collection && !collection->empty()) {
        const std::vector<LibraryStore::CollectionName> all = store_.collectionNames();
        const auto found = std::find_if(all.begin(), all.end(), [&](const LibraryStore::CollectionName& c) {
            return c.id == *collection || Text::equalsIgnoringCase(c.name, *collection);
        });
        if (found == all.end()) {
            throw ToolFailure("No collection named “" + *collection + "”. list_collections shows them.");
        }
        filter = LibraryFilter::collection(found->id);
    } else if (kind && !kind->empty()) {
        const std::optional<CaptureKind> known = CaptureKind::fromRawValue(Text::lowercased(*kind));
        if (!known) {
            throw ToolFailure("Unknown kind “" + *kind + "”.");
        }
        filter = LibraryFilter::kind(*known);
    }
    const std::vector<Capture> found = store_.captures(filter, limit);
    if (found.empty()) {
        return "Nothing kept there yet.";
    }
    return listingsWith(found, labels(store_, found));
}

std::string MCPServer::getCapture(const json& arguments) {
    const std::optional<std::string> id = stringArgument(arguments, "id");
    std::optional<Capture> capture = id ? store_.capture(*id) : std::nullopt;
    if (!capture) {
        throw ToolFailure("No capture with that id.");
    }
    return full(*capture);
}

std::string MCPServer::listCollections() {
    std::vector<std::string> lines;
    for (const CaptureCollection& collection : store_.collections()) {
        if (collection.count < 1) {
            continue;
        }
        lines.push_back(collection.emoji + " " + collection.name + " — " + std::to_string(collection.count) +
                        " capture" + (collection.count == 1 ? "" : "s") + " (id " + collection.id + ")");
    }
    if (lines.empty()) {
        return "No collections yet: they form as similar captures are kept.";
    }
    return joined(lines, "\n");
}

std::string MCPServer::listing(const Capture& capture) {
    return listingWith(capture, labels(store_, std::span(&capture, 1)));
}

std::string MCPServer::full(const Capture& capture) {
    std::vector<std::string> sections{listing(capture)};
    if (capture.media == CaptureMedia::video && capture.duration) {
        // Whole seconds, the fraction dropped; a duration without a whole number of seconds shows no line.
        const double seconds = std::trunc(*capture.duration);
        if (std::isfinite(seconds) && std::fabs(seconds) < 9.2e18) {
            sections.push_back("Video, " + std::to_string(static_cast<std::int64_t>(seconds)) + " seconds.");
        }
    }
    if (!capture.highlights.empty()) {
        std::string section = "Worth keeping:";
        for (const std::string& highlight : capture.highlights) {
            section += "\n“" + highlight + "”";
        }
        sections.push_back(std::move(section));
    }
    if (!capture.links.empty()) {
        sections.push_back("Links:\n" + joined(capture.links, "\n"));
    }
    if (capture.transcript && !capture.transcript->empty()) {
        sections.push_back("Said in it:\n" + longText(*capture.transcript));
    }
    if (capture.ocrText && !capture.ocrText->empty()) {
        sections.push_back("Text on it:\n" + longText(*capture.ocrText));
    }
    if (capture.stage != CaptureStage::organized) {
        sections.push_back("(Still being read: the description may be incomplete.)");
    }
    return joined(sections, "\n\n");
}

} // namespace keepery
