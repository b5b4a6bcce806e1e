// The four assistant tools: how they read their arguments and every character of what they answer.
#include "Agents/MCPServer.h"

#include "Library/Library.h"
#include "Platform/Dates.h"
#include "Store/StoreTesting.h"

#include <gtest/gtest.h>
#include <limits>
#include <nlohmann/json.hpp>

using namespace keepery;
using keepery::testing::Described;
using nlohmann::json;

namespace {

// 2024-03-03 17:14 UTC; the format of dates themselves is pinned where dates are written.
constexpr Instant march3 = 1709486040;

class Tools : public keepery::testing::StoreTest {
protected:
    const std::string at514 = Dates::mediumDateShortTime(march3);

    // The tool's text, or "failed: " and the message it failed with.
    std::string call(const std::string& tool, const json& arguments = json::object()) {
        try {
            return server.call(tool, arguments);
        } catch (const MCPServer::ToolFailure& failure) {
            return "failed: " + failure.message;
        }
    }

    // Captures kept a minute apart, newest last, each titled "<word> <n>".
    void keep(const std::string& word, int count, std::optional<CaptureKind> kind = std::nullopt) {
        for (int i = 0; i < count; ++i) {
            const std::string id = word + std::to_string(i);
            store.insert(screen(id, march3 + 60.0 * (kept++)));
            if (kind) {
                store.setDescribed(id, Described{.title = word + " " + std::to_string(i), .kind = *kind});
            }
        }
    }

    // How many listings a text holds: they are separated by a blank line.
    static std::size_t listingsIn(const std::string& text) {
        std::size_t count = 1;
        for (std::size_t at = text.find("\n\n"); at != std::string::npos; at = text.find("\n\n", at + 2)) {
            ++count;
        }
        return count;
    }

    int kept = 0;
    // Nothing listens on port 1: searches rank by words alone.
    Library library{{.store = store, .client = OllamaClient("http://127.0.0.1:1")},
                    {.visionModel = "vision", .embeddingModel = "embedding"}};
    MCPServer server{library, store, "1.0.0"};
};

// A limit counts only as a whole number that fits in 64 bits; anything else is absent.
TEST_F(Tools, SearchClampsItsLimitAndTrimsItsQuery) {
    keep("ramen", 30, CaptureKind::recipe);
    const std::vector<std::pair<json, std::size_t>> limits{
        {nullptr, 8}, {0, 1}, {100, 25}, {5.0, 5}, {2.5, 8}, {"5", 8}, {18446744073709551615ULL, 8},
        {1e300, 8}};
    for (const auto& [limit, shown] : limits) {
        json arguments{{"query", "ramen"}};
        if (!limit.is_null()) {
            arguments["limit"] = limit;
        }
        const std::string answer = call("search_keepery", arguments);
        EXPECT_EQ(listingsIn(answer), shown + 1) << limit; // the heading is followed by a blank line too
        EXPECT_TRUE(answer.starts_with("Keepery for “ramen” (" + std::to_string(shown) + "):\n\n")) << answer;
    }
    EXPECT_TRUE(call("search_keepery", {{"query", " \n ramen\t "}, {"limit", 1}})
                    .starts_with("Keepery for “ramen” (1):\n\nramen "));
    EXPECT_EQ(call("search_keepery", {{"query", "zebra"}}), "Nothing in Keepery matches “zebra”.");
    for (const json& arguments : {json{{"query", " \n\t"}}, json{{"query", ""}}, json{{"query", 42}},
                                  json{{"query", nullptr}}, json::object()}) {
        EXPECT_EQ(call("search_keepery", arguments), "failed: 'query' must be a non-empty string.")
            << arguments;
    }
}

TEST_F(Tools, RecentCapturesFilterByCollectionOrKind) {
    keep("ramen", 3, CaptureKind::recipe);
    keep("diff", 2, CaptureKind::code);
    keep("shot", 12);
    store.insertCollection(CaptureCollection{.id = "c1", .name = "Weeknight Cooking", .emoji = "🍳"});
    store.setCollection("ramen0", "c1");
    store.setCollection("ramen1", "c1");

    EXPECT_EQ(listingsIn(call("recent_captures")), 10u);
    EXPECT_EQ(listingsIn(call("recent_captures", {{"limit", 0}})), 1u);
    EXPECT_EQ(listingsIn(call("recent_captures", {{"limit", 500}})), 17u);
    EXPECT_TRUE(call("recent_captures", {{"limit", 1}}).starts_with("Window — Screens\nid shot11 · "));
    for (const json& arguments : {json{{"collection", "WEEKNIGHT COOKING"}}, json{{"collection", "c1"}},
                                  json{{"collection", "weeknight cooking"}, {"kind", "no such kind"}}}) {
        const std::string answer = call("recent_captures", arguments);
        EXPECT_TRUE(answer.starts_with("ramen 1 — Recipes\n")) << arguments;
        EXPECT_EQ(listingsIn(answer), 2u) << arguments;
    }
    EXPECT_EQ(call("recent_captures", {{"collection", " c1"}}),
              "failed: No collection named “ c1”. list_collections shows them.");
    // An empty or non-text collection is ignored and the kind decides.
    for (const json& collection : {json(""), json(7)}) {
        EXPECT_EQ(listingsIn(call("recent_captures", {{"collection", collection}, {"kind", "Code"}})), 2u);
    }
    EXPECT_EQ(listingsIn(call("recent_captures", {{"kind", "RECIPE"}})), 3u);
    EXPECT_EQ(call("recent_captures", {{"kind", " recipe"}}), "failed: Unknown kind “ recipe”.");
    EXPECT_EQ(call("recent_captures", {{"kind", "email"}}), "Nothing kept there yet.");
}

TEST_F(Tools, ListingsShowTheCapturesFacts) {
    Capture video = screen("v1", march3 - 50, "", "");
    video.media = CaptureMedia::video;
    video.takenAt = march3;
    store.insert(video);
    EXPECT_EQ(server.listing(*store.capture("v1")), " — Videos\nid v1 · Videos · " + at514);

    Capture page = screen("p1", march3, "Firefox", "Ramen — Serious Eats");
    page.url = "https://www.seriouseats.com/ramen";
    store.insert(page);
    store.setDescribed("p1", Described{.title = "Tonkotsu",
                                       .summary = "Pork broth.",
                                       .kind = CaptureKind::recipe,
                                       .tags = {"ramen", "broth"}});
    store.setNote("p1", "try it");
    store.insertCollection(CaptureCollection{.id = "c1", .name = "Cooking", .emoji = "🍳"});
    store.setCollection("p1", "c1");
    EXPECT_EQ(server.listing(*store.capture("p1")),
              "Tonkotsu — Recipes\nid p1 · https://www.seriouseats.com/ramen · " + at514 +
                  " · 🍳 Cooking\nPork broth.\nNote: try it\nTags: broth, ramen");

    // A collection that no longer exists has no label; an empty summary has no line.
    Capture orphan = *store.capture("p1");
    orphan.collectionID = "gone";
    orphan.summary = "";
    orphan.note.reset();
    orphan.tags.clear();
    orphan.url.reset();
    EXPECT_EQ(server.listing(orphan), "Tonkotsu — Recipes\nid p1 · Firefox · " + at514);
}

TEST_F(Tools, GetCaptureShowsEverythingWithLongTextsCut) {
    Capture video = screen("v1", march3);
    video.media = CaptureMedia::video;
    video.duration = 61.9;
    store.insert(video);
    // 4001 user-perceived characters of five bytes each: "e" and a combining accent, then "!".
    std::string said;
    for (int i = 0; i < 4000; ++i) {
        said += "e\u0301";
    }
    store.setRead("v1", said, said + "!");
    store.setDescribed("v1", Described{.title = "Curry",
                                       .kind = CaptureKind::recipe,
                                       .highlights = {"Fry the onions.", "Add the paste."},
                                       .links = {"https://a.example", "https://b.example"}});
    EXPECT_EQ(call("get_capture", {{"id", "v1"}}),
              "Curry — Recipes\nid v1 · Videos · " + at514 +
                  "\n\nVideo, 61 seconds.\n\nWorth keeping:\n“Fry the onions.”\n“Add the paste.”\n\nLinks:\n"
                  "https://a.example\nhttps://b.example\n\nSaid in it:\n" +
                  said + "…\n\nText on it:\n" + said +
                  "\n\n(Still being read: the description may be incomplete.)");

    store.setCollection("v1", std::nullopt);
    Capture organized = *store.capture("v1");
    EXPECT_FALSE(server.full(organized).ends_with("incomplete.)"));
    organized.duration = 1.2;
    EXPECT_NE(server.full(organized).find("\n\nVideo, 1 seconds.\n\n"), std::string::npos);
    // A duration without a whole number of seconds shows no line.
    for (std::optional<double> unknown :
         {std::optional(std::numeric_limits<double>::quiet_NaN()),
          std::optional(std::numeric_limits<double>::infinity()), std::optional<double>()}) {
        organized.duration = unknown;
        EXPECT_EQ(server.full(organized).find("Video, "), std::string::npos);
    }
    for (const json& arguments : {json{{"id", "nope"}}, json{{"id", ""}}, json{{"id", 42}}, json::object()}) {
        EXPECT_EQ(call("get_capture", arguments), "failed: No capture with that id.") << arguments;
    }
}

TEST_F(Tools, CollectionsAreListedWithTheirCounts) {
    const std::string none = "No collections yet: they form as similar captures are kept.";
    EXPECT_EQ(call("list_collections"), none);
    keep("shot", 4);
    store.insertCollection(
        CaptureCollection{.id = "empty", .name = "Nothing", .emoji = "🫙", .updatedAt = 9e9});
    EXPECT_EQ(call("list_collections"), none);
    store.insertCollection(
        CaptureCollection{.id = "one", .name = "Single", .emoji = "☝️", .updatedAt = 2});
    store.insertCollection(
        CaptureCollection{.id = "many", .name = "Weeknight Cooking", .emoji = "🍳", .updatedAt = 3});
    for (const char* id : {"shot1", "shot2", "shot3"}) {
        store.setCollection(id, "many");
    }
    store.setCollection("shot0", "one");
    EXPECT_EQ(call("list_collections"),
              "🍳 Weeknight Cooking — 3 captures (id many)\n☝️ Single — 1 capture (id one)");
}

// Whatever the store holds or fails with, the assistant gets a reply: bytes that are not UTF-8 are shown as
// replacement characters, and a failing store is an answer Keepery could not give.
TEST_F(Tools, WhatTheStoreCannotGiveIsStillAReply) {
    store.insert(screen("bad", march3));
    raw.run("UPDATE captures SET title = CAST(X'52616D656EFF21' AS TEXT) WHERE id = 'bad'");
    const auto result = [&](const std::string& params) {
        const auto line =
            server.handle(R"({"jsonrpc":"2.0","id":1,"method":"tools/call","params":)" + params + "}");
        EXPECT_TRUE(line.has_value()) << params;
        return json::parse(line.value_or("{}"))["result"];
    };
    EXPECT_TRUE(result(R"({"name":"get_capture","arguments":{"id":"bad"}})")["content"][0]["text"]
                    .get<std::string>()
                    .starts_with("Ramen\uFFFD! — Screens\n"));
    raw.execute("ALTER TABLE collections RENAME TO elsewhere");
    const json failed = result(R"({"name":"list_collections"})");
    EXPECT_EQ(failed["isError"], true);
    EXPECT_TRUE(failed["content"][0]["text"].get<std::string>().starts_with(
        "Keepery could not answer: SQLite: no such table: collections — SELECT"))
        << failed;
}

} // namespace
