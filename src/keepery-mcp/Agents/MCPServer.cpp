#include "Agents/MCPServer.h"

#include "Model/CaptureKind.h"
#include "Store/LibraryStore.h"

#include <nlohmann/json.hpp>

namespace keepery {

using nlohmann::json;

namespace {

json property(const char* type, std::string description) {
    return json{{"type", type}, {"description", std::move(description)}};
}

std::string kindList() {
    std::string list;
    for (CaptureKind kind : CaptureKind::allCases()) {
        if (!list.empty()) {
            list += ", ";
        }
        list += kind.rawValue();
    }
    return list;
}

json textContent(const std::string& text, bool isError) {
    return json{{"content", json::array({json{{"type", "text"}, {"text", text}}})}, {"isError", isError}};
}

std::optional<std::string> serialise(const json& reply) {
    try {
        return reply.dump();
    } catch (const json::exception&) {
        return std::nullopt;
    }
}

} // namespace

MCPServer::MCPServer(LibraryStore& store, std::string version)
    : store_(store), version_(std::move(version)) {}

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
                 {"kind", property("string", "One of: " + kindList())}}}}}},
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
    json message = json::parse(line, nullptr, /*allow_exceptions=*/false);
    if (!message.is_object()) {
        return error(nullptr, -32700, "Parse error");
    }
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
        return textContent(call(toolName, arguments), false);
    } catch (const ToolFailure& failure) {
        return textContent(failure.message, true);
    } catch (const std::exception& failure) {
        return textContent(std::string("Keepery could not answer: ") + failure.what(), true);
    }
}

std::string MCPServer::call(const std::string& toolName, const json& /*arguments*/) {
    throw ToolFailure("Unknown tool " + toolName + ".");
}

} // namespace keepery
