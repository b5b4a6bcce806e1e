#include "Agents/MCPServer.h"

#include "Library/Library.h"
#include "Store/LibraryStore.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

using namespace keepery;
using nlohmann::json;

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
        EXPECT_TRUE(text.has_value()) << line;
        if (!text) {
            return nullptr;
        }
        EXPECT_EQ(text->find('\n'), std::string::npos);
        return json::parse(*text);
    }

    static json errorReply(const json& id, int code, const std::string& message) {
        return json{{"jsonrpc", "2.0"}, {"id", id}, {"error", {{"code", code}, {"message", message}}}};
    }
};

} // namespace

TEST_F(MCPServerTest, LinesThatAreNotAnObjectAreParseErrors) {
    for (const char* line : {"", "not json", "[]", "[{\"id\":1,\"method\":\"ping\"}]", "42", "\"ping\"",
                             "null", "{\"id\":1,", "{\"id\":1} trailing"}) {
        EXPECT_EQ(reply(line), errorReply(nullptr, -32700, "Parse error")) << line;
    }
    // Blanks around the object are accepted.
    EXPECT_EQ(reply("  {\"id\":1,\"method\":\"ping\"}\t ")["result"], json::object());
}

TEST_F(MCPServerTest, IdsOfEveryTypeAreEchoedAsReceived) {
    for (const char* id : {"1", "-7", "9007199254740993", "18446744073709551615", "2.5", "\"abc\"", "\"\"",
                           "null", "true", "{\"a\":[1]}", "[1,2]"}) {
        const json expected = json::parse(id);
        const json answer = reply(std::string("{\"jsonrpc\":\"2.0\",\"id\":") + id + ",\"method\":\"ping\"}");
        EXPECT_EQ(answer, (json{{"jsonrpc", "2.0"}, {"id", expected}, {"result", json::object()}})) << id;
    }
    // Large integers stay exact on the wire.
    EXPECT_EQ(*server.handle("{\"id\":9007199254740993,\"method\":\"ping\"}"),
              "{\"id\":9007199254740993,\"jsonrpc\":\"2.0\",\"result\":{}}");
}

TEST_F(MCPServerTest, RequestsWithoutAStringMethodAreInvalidAndNotificationsAreNeverAnswered) {
    EXPECT_EQ(reply("{\"id\":1}"), errorReply(1, -32600, "Invalid request"));
    EXPECT_EQ(reply("{\"id\":1,\"method\":5}"), errorReply(1, -32600, "Invalid request"));
    EXPECT_EQ(reply("{\"id\":null,\"method\":null}"), errorReply(nullptr, -32600, "Invalid request"));
    for (const char* notification :
         {R"({"method":5})", "{}", R"({"jsonrpc":"2.0","method":"notifications/initialized"})",
          R"({"method":"initialize","params":{}})", R"({"method":"no/such"})",
          R"({"method":"notifications/cancelled","params":{"requestId":1}})"}) {
        EXPECT_EQ(server.handle(notification), std::nullopt) << notification;
    }
}

TEST_F(MCPServerTest, UnknownMethodsNameThemselvesAndMethodsAreCaseSensitive) {
    EXPECT_EQ(reply("{\"id\":7,\"method\":\"resources/list\"}"),
              errorReply(7, -32601, "Method not found: resources/list"));
    EXPECT_EQ(reply("{\"id\":8,\"method\":\"Ping\"}"), errorReply(8, -32601, "Method not found: Ping"));
    EXPECT_EQ(reply("{\"id\":9,\"method\":\"\"}"), errorReply(9, -32601, "Method not found: "));
}

TEST_F(MCPServerTest, InitializeEchoesAStringVersionAndDescribesTheServer) {
    json answer =
        reply("{\"id\":1,\"method\":\"initialize\",\"params\":{\"protocolVersion\":\"2024-11-05\"}}");
    EXPECT_EQ(answer["result"]["protocolVersion"], "2024-11-05");
    EXPECT_EQ(answer["result"]["capabilities"], (json{{"tools", {{"listChanged", false}}}}));
    EXPECT_EQ(answer["result"]["serverInfo"], (json{{"name", "keepery"}, {"version", "1.2.3"}}));
    EXPECT_EQ(answer["result"]["instructions"], MCPServer::instructions);
    EXPECT_EQ(answer["result"].size(), 4u);
    for (const char* params : {"", ",\"params\":{}", ",\"params\":{\"protocolVersion\":20250618}",
                               ",\"params\":[\"2024-11-05\"]", ",\"params\":null"}) {
        answer = reply(std::string("{\"id\":2,\"method\":\"initialize\"") + params + "}");
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
    EXPECT_EQ(
        tools[0]["inputSchema"]["properties"]["limit"],
        (json{{"type", "integer"}, {"description", "At most this many results (default 8, at most 25)"}}));
    EXPECT_FALSE(tools[1]["inputSchema"].contains("required"));
    EXPECT_EQ(tools[1]["inputSchema"]["properties"]["kind"]["description"],
              "One of: article, code, design, chat, email, document, spreadsheet, slides, product, receipt, "
              "recipe, food, place, video, social, data, idea, other");
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

TEST_F(MCPServerTest, RepliesAreCompactWithSlashesUnescaped) {
    const std::string text = *server.handle("{\"id\":\"a/b\",\"method\":\"nope/x\"}");
    EXPECT_EQ(
        text,
        "{\"error\":{\"code\":-32601,\"message\":\"Method not found: nope/x\"},\"id\":\"a/b\",\"jsonrpc\":"
        "\"2.0\"}");
    // A line feed inside a value is escaped, so a reply stays one line.
    EXPECT_EQ(server.handle("{\"id\":\"a\\nb\",\"method\":\"ping\"}")->find('\n'), std::string::npos);
}

namespace {

// `value` inside `levels` arrays: [[[value]]].
std::string nested(std::size_t levels, const std::string& value = "1") {
    return std::string(levels, '[') + value + std::string(levels, ']');
}

} // namespace

TEST_F(MCPServerTest, NestingBeyondTheReadersBoundIsAParseErrorWhereverItIs) {
    // The message object is the first level: an id inside 63 arrays is as deep as a line may go.
    const std::string deepest = nested(63);
    EXPECT_EQ(reply("{\"id\":" + deepest + ",\"method\":\"ping\"}")["id"], json::parse(deepest));
    const json parseError = errorReply(nullptr, -32700, "Parse error");
    EXPECT_EQ(reply("{\"id\":" + nested(64) + ",\"method\":\"ping\"}"), parseError);
    // Deep enough to overflow the stack while a reply echoed or copied it.
    EXPECT_EQ(reply("{\"id\":" + nested(75'000) + ",\"method\":\"ping\"}"), parseError);
    EXPECT_EQ(reply("{\"id\":1,\"method\":\"tools/call\",\"params\":" + nested(131'000, "{}") + "}"),
              parseError);
    EXPECT_EQ(reply("{\"method\":\"ping\",\"params\":{\"a\":" + nested(100'000) + "}}"), parseError)
        << "a notification the reader refuses is not a notification";
    // Unbalanced openings alone, as a truncated line would hold them.
    EXPECT_EQ(reply(std::string(1'000'000, '[')), parseError);
    EXPECT_EQ(reply("{\"id\":1,\"method\":\"ping\",\"x\":" + std::string(1'000'000, '[')), parseError);
    EXPECT_EQ(reply("{\"id\":2,\"method\":\"ping\"}")["result"], json::object()) << "the server goes on";
}

TEST_F(MCPServerTest, ALineIsTheWholeLineNULBytesIncluded) {
    using namespace std::string_literals;
    const json parseError = errorReply(nullptr, -32700, "Parse error");
    EXPECT_EQ(reply("{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"ping\"}\0x"s), parseError);
    EXPECT_EQ(reply("{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"ping\"}\0"s), parseError);
    EXPECT_EQ(reply("{\"method\":\"notifications/initialized\"}\0x"s), parseError)
        << "a notification followed by a NUL is not a notification";
    EXPECT_EQ(reply("{\"id\":1,\"method\":\"ping\"}\0{\"id\":2,\"method\":\"ping\"}"s), parseError);
    EXPECT_EQ(reply("{\"id\":\"a\0b\",\"method\":\"ping\"}"s), parseError) << "raw NUL inside a string";
    EXPECT_EQ(reply("\0"s), parseError);
    EXPECT_EQ(reply("{\"id\":1,\"method\":\"ping\"} {\"id\":2,\"method\":\"ping\"}"), parseError);
    // Escaped, a NUL is an ordinary character of an id.
    EXPECT_EQ(reply("{\"id\":\"a\\u0000b\",\"method\":\"ping\"}")["id"], "a\0b"s);
}
