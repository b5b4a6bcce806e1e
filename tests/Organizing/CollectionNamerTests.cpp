#include "Organizing/CollectionNamer.h"

#include "Model/Capture.h"
#include "support/FakeModelService.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

using namespace keepery;
using keepery::testing::FakeModelService;

namespace {

const std::string opening = "These items were saved together in a personal library:\n";
const std::string ending = "\n\nName the collection they form. Answer with JSON only:\n"
                           "{\"name\": \"2 to 4 words, title case, specific (not 'Miscellaneous' or "
                           "'Screenshots')\",\n \"emoji\": \"one emoji that fits\"}";
const std::string folderEmoji = "\U0001F4C1";

Capture titled(std::string title, std::optional<std::string> summary, std::vector<std::string> tags = {}) {
    Capture capture;
    capture.title = std::move(title);
    capture.summary = std::move(summary);
    capture.tags = std::move(tags);
    return capture;
}

} // namespace

TEST(CollectionNamerPrompt, ListsTheFirstTwelveItems) {
    Capture inbox;
    inbox.windowTitle = "Inbox";
    inbox.summary = "Mail from Ana.";
    const std::vector<Capture> two{titled("Espresso", "S", {"coffee", "italy"}), inbox};
    EXPECT_EQ(CollectionNamer::prompt(two),
              opening + "- Espresso: S [coffee, italy]\n- Inbox: Mail from Ana." + ending);
    EXPECT_EQ(CollectionNamer::prompt({}), opening + ending);
    EXPECT_EQ(CollectionNamer::prompt(std::vector<Capture>{titled(" Raw ", std::nullopt, {"t"})}),
              opening + "-  Raw :  [t]" + ending)
        << "nothing is trimmed; no summary leaves the tag part right after ': '";

    std::vector<Capture> twenty;
    for (int i = 0; i < 20; ++i) {
        twenty.push_back(titled("Item " + std::to_string(i), "s"));
    }
    const std::string prompt = CollectionNamer::prompt(twenty);
    EXPECT_NE(prompt.find("- Item 11: s"), std::string::npos);
    EXPECT_EQ(prompt.find("- Item 12"), std::string::npos);
}

TEST(CollectionNamerParse, NameIsCleanedCutOrUntitled) {
    EXPECT_EQ(CollectionNamer::parse("Sure: {\"name\": \"Coffee Gear\", \"emoji\": \"\u2615\"} Enjoy!"),
              (CollectionNamer::Naming{"Coffee Gear", "\u2615"}));
    EXPECT_EQ(
        CollectionNamer::parse("{\"name\": \"Coffee and Tea Gear Collection Extraordinaire For The Kitchen "
                               "Counter\"}")
            .name,
        "Coffee and Tea Gear Collection Extraord\u2026");
    EXPECT_EQ(CollectionNamer::parse("{\"name\": \"weeknight  dinners\\n\"}").name, "weeknight dinners")
        << "the model's casing stays";
    for (const char* reply :
         {"{\"name\": \"  \\\" \\\"  \"}", "{\"name\": 7}", "I would call it Coffee.", "[\"Coffee\"]"}) {
        EXPECT_EQ(CollectionNamer::parse(reply),
                  (CollectionNamer::Naming{"Untitled collection", folderEmoji}))
            << reply;
    }
}

// A heart or a keycap shows as an emoji only with U+FE0F; a flag is two regional indicators (each with
// Emoji_Presentation itself), a ZWJ sequence is one character, and a skin tone belongs to its emoji.
TEST(CollectionNamerParse, EmojiIsTheFirstCharacterThatShowsAsOne) {
    const std::string family = "\U0001F468\u200D\U0001F469\u200D\U0001F467";
    for (const auto& [value, emoji] :
         std::vector<std::pair<std::string, std::string>>{{"coffee \u2615", "\u2615"},
                                                          {"\u2764\uFE0F", "\u2764\uFE0F"},
                                                          {"\u2764", folderEmoji},
                                                          {"\U0001F1EE\U0001F1F9", "\U0001F1EE\U0001F1F9"},
                                                          {"1", folderEmoji},
                                                          {"1\uFE0F\u20E3", "1\uFE0F\u20E3"},
                                                          {"1\u20E3", folderEmoji},
                                                          {"fam " + family + " \u2615", family},
                                                          {"\U0001F44D\U0001F3FD", "\U0001F44D\U0001F3FD"},
                                                          {"", folderEmoji}}) {
        EXPECT_EQ(CollectionNamer::parse(nlohmann::json{{"name", "x"}, {"emoji", value}}.dump()).emoji, emoji)
            << value;
    }
    EXPECT_EQ(CollectionNamer::parse("{\"name\": \"x\", \"emoji\": 9749}").emoji, folderEmoji);
    EXPECT_TRUE(CollectionNamer::isEmoji("\U0001F1EE"));
}

TEST(CollectionNamer, NamesThroughTheModelService) {
    FakeModelService service;
    const CollectionNamer namer(OllamaClient(service.host()), "qwen3.5:2b-q4_K_M");
    service.answerNext("{\"name\": \"Home Espresso\", \"emoji\": \"\u2615\"}");
    const std::vector<Capture> captures{titled("Espresso", "How to pull a shot.", {"coffee"})};
    EXPECT_EQ(namer.name(captures), (CollectionNamer::Naming{"Home Espresso", "\u2615"}));

    const auto body = nlohmann::json::parse(service.requests("/api/generate").at(0).body);
    EXPECT_EQ(body["model"], "qwen3.5:2b-q4_K_M");
    EXPECT_EQ(body["prompt"], CollectionNamer::prompt(captures));
    EXPECT_EQ(body["format"], "json");
    EXPECT_EQ(body["options"]["num_predict"], 80);
    EXPECT_FALSE(body.contains("system"));
    EXPECT_FALSE(body.contains("images"));
}
