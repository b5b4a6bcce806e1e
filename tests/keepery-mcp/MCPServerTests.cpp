#include "Agents/MCPServer.h"

#include "Library/Library.h"
#include "Store/LibraryStore.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

using namespace keepery;
using nlohmann::json;
using namespace std::string_literals;

namespace {

class MCPServerTest : public ::testing::Test {
protected:
    keepery::testing::TemporaryDirectory dir;
    LibraryStore store{dir.path()};
    // Nothing listens on port 1: a search would rank by words alone.
    Library library{{.store = store, .client = OllamaClient("http://127.0.0.1:1")},
                    {.visionModel = "vision", .embeddingModel = "embedding"}};
    MCPServer server{library, store, "1.2.3"};

    json reply(const std::string& line) {
        auto text = server.handle(line);
        EXPECT_TRUE(text.has_value()) << line.substr(0, 80);
        EXPECT_EQ(text.value_or("").find('\n'), std::string::npos);
        return text ? json::parse(*text) : json();
    }

    static json errorReply(const json& id, int code, const std::string& message) {
        return json{{"jsonrpc", "2.0"}, {"id", id}, {"error", {{"code", code}, {"message", message}}}};
    }
};

// `value` inside `levels` arrays: [[[value]]].
std::string nested(std::size_t levels, const std::string& value = "1") {
    return std::string(levels, '[') + value + std::string(levels, ']');
}

} // namespace

// A line is a message only when the whole of it, NUL bytes included, is one JSON object within the reader's
// nesting bound. The message object is the first level: an id inside 63 arrays is as deep as a line may go.
TEST_F(MCPServerTest, LinesThatAreNotOneBoundedObjectAreParseErrorsAndTheServerGoesOn) {
    const std::string ping = "{\"id\":1,\"method\":\"ping\"}";
    for (const std::string& line :
         {""s, "not json"s, "[]"s, "[" + ping + "]", "42"s, "\"ping\""s, "null"s, "{\"id\":1,"s,
          ping + " trailing", ping + " " + ping, ping + "\0x"s, "{\"id\":\"a\0b\",\"method\":\"ping\"}"s,
          "{\"id\":" + nested(64) + ",\"method\":\"ping\"}",
          // Deep enough to overflow the stack while a reply echoed or copied it.
          "{\"id\":" + nested(75'000) + ",\"method\":\"ping\"}",
          "{\"id\":1,\"method\":\"tools/call\",\"params\":" + nested(131'000, "{}") + "}"}) {
        EXPECT_EQ(reply(line), errorReply(nullptr, -32700, "Parse error")) << line.substr(0, 80);
    }
    EXPECT_EQ(reply("{\"id\":" + nested(63) + ",\"method\":\"ping\"}")["id"], json::parse(nested(63)));
    // Blanks around the object are accepted, and an escaped NUL is an ordinary character of an id.
    EXPECT_EQ(reply("  " + ping + "\t ")["result"], json::object());
    EXPECT_EQ(reply("{\"id\":\"a\\u0000b\",\"method\":\"ping\"}")["id"], "a\0b"s);
}

TEST_F(MCPServerTest, RequestsNeedAStringMethodTheServerKnowsAndNotificationsAreNeverAnswered) {
    EXPECT_EQ(reply("{\"id\":1}"), errorReply(1, -32600, "Invalid request"));
    EXPECT_EQ(reply("{\"id\":1,\"method\":5}"), errorReply(1, -32600, "Invalid request"));
    EXPECT_EQ(reply("{\"id\":null,\"method\":null}"), errorReply(nullptr, -32600, "Invalid request"));
    EXPECT_EQ(reply("{\"id\":7,\"method\":\"resources/list\"}"),
              errorReply(7, -32601, "Method not found: resources/list"));
    EXPECT_EQ(reply("{\"id\":8,\"method\":\"Ping\"}"), errorReply(8, -32601, "Method not found: Ping"));
    EXPECT_EQ(reply("{\"id\":9,\"method\":\"\"}"), errorReply(9, -32601, "Method not found: "));
    for (const char* notification :
         {R"({"method":5})", "{}", R"({"jsonrpc":"2.0","method":"notifications/initialized"})",
          R"({"method":"initialize","params":{}})", R"({"method":"no/such"})",
          R"({"method":"notifications/cancelled","params":{"requestId":1}})"}) {
        EXPECT_EQ(server.handle(notification), std::nullopt) << notification;
    }
}

// Replies are one compact line: ids of every type come back as received, large integers exact, slashes
// unescaped and a line feed escaped.
TEST_F(MCPServerTest, IdsOfEveryTypeAreEchoedAsReceivedOnOneCompactLine) {
    for (const char* id : {"1", "-7", "9007199254740993", "18446744073709551615", "2.5", "\"abc\"", "\"\"",
                           "null", "true", "{\"a\":[1]}", "[1,2]"}) {
        const json answer = reply(std::string("{\"jsonrpc\":\"2.0\",\"id\":") + id + ",\"method\":\"ping\"}");
        EXPECT_EQ(answer, (json{{"jsonrpc", "2.0"}, {"id", json::parse(id)}, {"result", json::object()}}))
            << id;
    }
    EXPECT_EQ(*server.handle("{\"id\":9007199254740993,\"method\":\"ping\"}"),
              "{\"id\":9007199254740993,\"jsonrpc\":\"2.0\",\"result\":{}}");
    EXPECT_EQ(*server.handle("{\"id\":\"a/b\\nc\",\"method\":\"nope/x\"}"),
              "{\"error\":{\"code\":-32601,\"message\":\"Method not found: "
              "nope/x\"},\"id\":\"a/b\\nc\",\"jsonrpc\":"
              "\"2.0\"}");
}

TEST_F(MCPServerTest, InitializeEchoesAStringVersionAndDescribesTheServer) {
    EXPECT_EQ(
        reply(
            "{\"id\":1,\"method\":\"initialize\",\"params\":{\"protocolVersion\":\"2024-11-05\"}}")["result"],
        (json{{"protocolVersion", "2024-11-05"},
              {"capabilities", {{"tools", {{"listChanged", false}}}}},
              {"serverInfo", {{"name", "keepery"}, {"version", "1.2.3"}}},
              {"instructions", MCPServer::instructions}}));
    for (const char* params : {"", ",\"params\":{}", ",\"params\":{\"protocolVersion\":20250618}",
                               ",\"params\":[\"2024-11-05\"]", ",\"params\":null"}) {
        const json answer = reply(std::string("{\"id\":2,\"method\":\"initialize\"") + params + "}");
        EXPECT_EQ(answer["result"]["protocolVersion"], "2025-06-18") << params;
    }
}

TEST_F(MCPServerTest, ToolsAreListedInOrderWithExactlyTheirThreeMembers) {
    const json tools = reply("{\"id\":1,\"method\":\"tools/list\"}")["result"]["tools"];
    ASSERT_EQ(tools.size(), 4u);
    const char* names[] = {"search_keepery", "recent_captures", "get_capture", "list_collections"};
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(tools[i]["name"], names[i]);
        EXPECT_EQ(tools[i].size(), 3u);
        EXPECT_EQ(tools[i]["inputSchema"]["type"], "object");
    }
    EXPECT_EQ(tools[0]["inputSchema"]["required"], json::array({"query"}));
    EXPECT_EQ(tools[0]["inputSchema"]["properties"]["limit"]["type"], "integer");
    EXPECT_FALSE(tools[1]["inputSchema"].contains("required"));
    EXPECT_EQ(tools[2]["inputSchema"]["required"], json::array({"id"}));
    EXPECT_EQ(tools[3]["inputSchema"], (json{{"type", "object"}, {"properties", json::object()}}));
}

TEST_F(MCPServerTest, ToolCallsAnswerAsToolResultsEvenWithoutParams) {
    const json expected = {{"content", json::array({{{"type", "text"}, {"text", "Unknown tool ."}}})},
                           {"isError", true}};
    EXPECT_EQ(reply("{\"id\":1,\"method\":\"tools/call\"}")["result"], expected);
    EXPECT_EQ(reply("{\"id\":1,\"method\":\"tools/call\",\"params\":{\"name\":42}}")["result"], expected);
    EXPECT_EQ(reply("{\"id\":1,\"method\":\"tools/call\",\"params\":{\"name\":\"x/y\",\"arguments\":[]}}")
                  ["result"]["content"][0]["text"],
              "Unknown tool x/y.");
}
