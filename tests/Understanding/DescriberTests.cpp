#include "Understanding/Describer.h"

#include "Platform/Dates.h"
#include "Understanding/JSONObject.h"
#include "support/FakeModelService.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

using namespace keepery;
using keepery::testing::FakeModelService;

namespace {

const std::optional<std::string> newsSite = "https://news.example.org/coffee/espresso";

CaptureDescription parsed(std::string_view reply, std::string_view ocrText = "",
                          const std::optional<std::string>& url = std::nullopt,
                          std::string_view fallback = "Window") {
    return Describer::parse(reply, ocrText, url, fallback);
}

// The fixed end of every description prompt, written out here byte for byte.
const std::string tail = R"TAIL(
"""
Grind 18 g in 25 seconds.
"""

Answer with this JSON object:
{"title": "the subject itself in 2 to 7 words, like a good bookmark (e.g. 'Espresso', 'Refunding Stripe payments'); not the site or app name",
 "summary": "one or two sentences about the content itself; never start with 'A screenshot' or 'A page'",
 "kind": "one of: article, code, design, chat, email, document, spreadsheet, slides, product, receipt, recipe, food, place, video, social, data, idea, other",
 "tags": ["2 to 5 short lowercase topic tags about the subject (not the website, app or 'screenshot')"],
 "highlights": ["up to 3 short passages copied exactly from the screen that are worth remembering"],
 "links": ["URLs visible on the screen, if any"]})TAIL";

} // namespace

TEST(DescriberPrompt, ScreenPromptIsExact) {
    EXPECT_EQ(Describer::prompt("Safari", "Espresso guide", newsSite, "Grind 18 g in 25 seconds."),
              "App: Safari\nWindow: Espresso guide\nURL: https://news.example.org/coffee/espresso\n"
              "Text read from the screen (may be partial):" +
                  tail);
    // Without an address there is no URL line; an empty one still gives it; an empty title is "(untitled)".
    EXPECT_EQ(Describer::prompt("Notes", "", std::nullopt, "Grind 18 g in 25 seconds."),
              "App: Notes\nWindow: (untitled)\nText read from the screen (may be partial):" + tail);
    EXPECT_EQ(Describer::prompt("Notes", " x ", std::string(), "Grind 18 g in 25 seconds."),
              "App: Notes\nWindow:  x \nURL: \nText read from the screen (may be partial):" + tail);
}

TEST(DescriberPrompt, PhotoPromptIsExact) {
    Describer::Context photo{.media = CaptureMedia::photo, .windowTitle = "IMG_0042.HEIC"};
    EXPECT_EQ(Describer::prompt(photo, "Grind 18 g in 25 seconds."),
              "This is a photo (file \"IMG_0042.HEIC\"). Describe what it shows: the subject, the place, the "
              "moment, any text in it.\nText read from the photo (may be empty):" +
                  tail);
    photo.takenAt = 1709504040;
    EXPECT_TRUE(Describer::prompt(photo, "").starts_with("This is a photo (file \"IMG_0042.HEIC\"). Taken " +
                                                         Dates::longDateShortTime(1709504040) +
                                                         ". Describe"));
}

TEST(DescriberPrompt, VideoPromptIsExact) {
    Describer::Context video{.media = CaptureMedia::video, .windowTitle = "clip.mov", .duration = 41.5};
    EXPECT_EQ(
        Describer::prompt(video, "Grind 18 g in 25 seconds."),
        "This is a video (file \"clip.mov\") 42 seconds long. The image shows key frames in order, left to "
        "right, top to bottom. Describe what happens in it.\nText read from the frames (may be empty):" +
            tail);

    video.duration = std::nullopt;
    video.transcript = "";
    EXPECT_EQ(
        Describer::prompt(video, "Grind 18 g in 25 seconds."),
        "This is a video (file \"clip.mov\"). The image shows key frames in order, left to right, top to "
        "bottom. Describe what happens in it.\nWhat is said in it:\n\"\"\"\n(none)\n\"\"\"\n"
        "Text read from the frames (may be empty):" +
            tail);

    video.transcript = "  first you grind the beans\n";
    video.duration = 2.5;
    const std::string prompt = Describer::prompt(video, "Grind 18 g in 25 seconds.");
    EXPECT_NE(prompt.find(" 3 seconds long."), std::string::npos) << "halves round away from zero";
    EXPECT_NE(prompt.find("What is said in it:\n\"\"\"\nfirst you grind the beans\n\"\"\"\nText read"),
              std::string::npos);
}

TEST(DescriberPrompt, ExcerptTrimsCutsAndNamesEmptiness) {
    EXPECT_EQ(Describer::excerpt(" \n\t "), "(none)");
    EXPECT_EQ(Describer::excerpt("\n  Hello  \n"), "Hello");
    const std::string family = "\U0001F468\u200D\U0001F469\u200D\U0001F467";
    std::string longText;
    for (int i = 0; i < 5000; ++i) {
        longText += family + "x";
    }
    std::string expected;
    for (int i = 0; i < 1500; ++i) {
        expected += family + "x";
    }
    EXPECT_EQ(Describer::excerpt(longText), expected + "\u2026");
    const std::string exactly(3000, 'a');
    EXPECT_EQ(Describer::excerpt(exactly), exactly);
}

TEST(DescriberParse, FindsTheObjectInsideProseAndFences) {
    const auto fenced =
        parsed("Sure! Here it is:\n```json\n{\"title\": \"Espresso\", \"kind\": \"recipe\"}\n```\n"
               "Hope that helps.");
    EXPECT_EQ(fenced.title, "Espresso");
    EXPECT_EQ(fenced.kind, CaptureKind::recipe);
    EXPECT_THROW((void)parsed("{\"title\": \"Espresso\"} :-}"), Describer::ParseError)
        << "the span runs to the last brace, even one in prose";

    const auto object = Describer::jsonObject("noise {\"a\": {\"b\": 1}} more");
    ASSERT_TRUE(object);
    EXPECT_EQ(object->fields["a"]["b"], 1);
    EXPECT_FALSE(Describer::jsonObject("} backwards {"));
    EXPECT_TRUE(Describer::jsonObject("[{\"a\":1}]")) << "only the braces count, not what encloses them";
    EXPECT_FALSE(Describer::jsonObject("{not json}"));
    EXPECT_FALSE(Describer::jsonObject("no braces at all"));
    EXPECT_FALSE(Describer::jsonObject("{\"a\": \"\xFF\"}")) << "invalid UTF-8 is not JSON";
}

TEST(DescriberParse, ThrowsNotJSONWithTheStartOfTheReply) {
    std::string reply;
    for (int i = 0; i < 100; ++i) {
        reply += "\u00E9x"; // 200 characters, 300 bytes
    }
    reply += std::string(300, 'y');
    try {
        (void)parsed(reply);
        FAIL() << "no ParseError";
    } catch (const Describer::ParseError& error) {
        EXPECT_EQ(error.kind(), Describer::ParseError::Kind::notJSON);
        EXPECT_EQ(error.reply(), reply.substr(0, 300)) << "200 characters, not bytes";
        EXPECT_EQ(error, Describer::ParseError::notJSON(reply.substr(0, 300)));
    }
    EXPECT_STREQ(Describer::ParseError::notJSON("Sorry").what(), "notJSON(\"Sorry\")");
    EXPECT_THROW((void)parsed("[1, 2, 3]"), Describer::ParseError);
    EXPECT_THROW((void)parsed("{\"title\": }"), Describer::ParseError);
}

TEST(DescriberParse, TitleAndKindFallBackAndTheTitleIsCut) {
    for (const char* reply : {R"({"kind": "spaceship"})", R"({"kind": 3})", "{}"}) {
        EXPECT_EQ(parsed(reply).kind, CaptureKind::other) << reply;
    }
    EXPECT_EQ(Describer::parse("{}", "", std::nullopt, "Safari").title, "Safari");
    EXPECT_EQ(Describer::parse("{\"title\": \"  \\n \"}", "", std::nullopt, "Inbox").title, "Inbox");
    EXPECT_EQ(Describer::parse("{\"title\": 42}", "", std::nullopt, "").title, "Untitled");
    EXPECT_EQ(Describer::parse("{\"title\": \"\\\"\\\"\"}", "", std::nullopt, " \"").title, "Untitled");

    // 120 characters become the first 89, trimmed of blanks, plus "…".
    const std::string title = std::string(88, 'a') + " " + std::string(31, 'b');
    EXPECT_EQ(parsed("{\"title\": \"" + title + "\"}").title, std::string(88, 'a') + "\u2026");
    EXPECT_EQ(Describer::clean(std::string(90, 'c'), 90), std::string(90, 'c'));
    EXPECT_EQ(Describer::clean(std::string(89, 'c') + "de", 90), std::string(89, 'c') + "\u2026");
}

TEST(DescriberParse, CleanSquashesWhiteSpaceAndTrimsQuotes) {
    EXPECT_EQ(Describer::clean(std::nullopt, 10), std::nullopt);
    EXPECT_EQ(Describer::clean("\"  Espresso \n\t\u00A0 guide \" ", 90), "Espresso guide");
    EXPECT_EQ(Describer::clean(" \" \n \"", 90), std::nullopt);
    EXPECT_EQ(Describer::clean("say \"hi\" now", 90), "say \"hi\" now") << "inner quotes stay";
    const std::string heart = "\u2764\uFE0F";
    EXPECT_EQ(Describer::clean(heart + heart + heart, 2), heart + "\u2026") << "characters, not bytes";
}

TEST(DescriberParse, SiteNameIsRemovedFromTheEndOfTheTitle) {
    const std::optional<std::string> none, localhost = "http://localhost/x", junk = "not a url",
                                           dotted = "https://www.c++.org/";
    const std::vector<std::tuple<std::string, std::optional<std::string>, std::string>> cases{
        {"Espresso - Example", newsSite, "Espresso"},
        {"Espresso \u2014 Example article", newsSite, "Espresso"},
        {"Espresso | EXAMPLE  ", newsSite, "Espresso"},
        {"Espresso \u00B7 Example entry", newsSite, "Espresso"},
        {"Espresso page Example", newsSite, "Espresso"}, // a trailing 'page' is dropped from what remains
        {"Counterexample", newsSite, "Counter"},         // the site name may end a longer word
        {"Example", newsSite, "Example"},                // a title that is only the site
        {"Recipes from Example", newsSite, "Recipes from Example"},
        {"Coffee with Example", newsSite, "Coffee with Example"},
        {"Example of espresso", newsSite, "Example of espresso"},
        {"Espresso - Example", none, "Espresso - Example"},
        {"Espresso - Localhost", localhost, "Espresso - Localhost"}, // one label names no site
        {"Espresso - Example", junk, "Espresso - Example"},
        {"Templates - c++", dotted, "Templates"}, // matched literally, whatever characters it holds
        {"Templates - cc", dotted, "Templates - cc"},
    };
    for (const auto& [title, url, expected] : cases) {
        EXPECT_EQ(Describer::withoutSiteName(title, url), expected) << title << " at " << url.value_or("-");
    }
    // The title goes through this rule inside parse as well.
    EXPECT_EQ(parsed("{\"title\": \"Espresso - Example\"}", "", newsSite).title, "Espresso");
}

TEST(DescriberParse, PreambleIsRemovedFromTheSummary) {
    const std::vector<std::pair<std::string, std::string>> cases{
        {"A screenshot of the espresso recipe page.", "Espresso recipe page."},
        {"this webpage shows a list of grinders", "List of grinders"},
        {"Screen shot from an \u00E9clair shop", "\u00C9clair shop"},
        {"Image displays the bean chart", "Bean chart"},
        {"A screenshot of the ", "A screenshot of the "}, // nothing follows, so it stays
        {"A screenshot", "A screenshot"},
        {"A screenshot of the", "The"},       // the optional words give way to the blank before 'the'
        {"Pages of notes", "Pages of notes"}, // needs white space after
        {"The espresso shot", "The espresso shot"},
    };
    for (const auto& [summary, expected] : cases) {
        EXPECT_EQ(Describer::withoutPreamble(summary), expected) << summary;
    }
    EXPECT_EQ(parsed("{\"summary\": \" A screenshot of the  grinder \"}").summary, "Grinder");
    EXPECT_EQ(parsed("{}").summary, "");
}

TEST(DescriberParse, TagsAreNormalisedAndCapped) {
    const auto description = parsed(R"({"tags": ["#Coffee", "coffee", "  Espresso\n", ")" +
                                    std::string(40, 't') + R"(", 7, "", "#"]})");
    EXPECT_EQ(description.tags, (std::vector<std::string>{"coffee", "espresso"}));
    EXPECT_EQ(parsed(R"({"tags": ["a", "b", "c", "d", "e", "f", "g"]})").tags,
              (std::vector<std::string>{"a", "b", "c", "d", "e"}));
    EXPECT_EQ(parsed(R"({"tags": ["C#"]})").tags, std::vector<std::string>{"c"});
    EXPECT_EQ(parsed(R"({"tags": ["\u00C9T\u00C9", "\u00e9t\u00e9"]})").tags,
              std::vector<std::string>{"\u00E9t\u00E9"});
    EXPECT_EQ(parsed(R"({"tags": [")" + std::string(32, 'k') + R"("]})").tags.size(), 1u) << "32 is allowed";
    EXPECT_TRUE(parsed(R"({"tags": "coffee"})").tags.empty());
    // Duplicates and rejects do not count towards the five.
    EXPECT_EQ(parsed(R"({"tags": ["a", "A", "#a", "b", "c", "d", "e"]})").tags,
              (std::vector<std::string>{"a", "b", "c", "d", "e"}));
}

TEST(DescriberParse, HighlightsMustOccurInTheReadText) {
    const std::string read =
        "THE GRIND: 18 g.\nBrew time 25-30 seconds!\nWater at 93\u00B0C\nTamp firmly\nEnjoy";
    const auto description = parsed(R"({"highlights": ["the grind 18g", "Brew time: 25–30 seconds", "Made up",
                                                       "water at 93 C", "tamp, firmly", "enjoy"]})",
                                    read);
    EXPECT_EQ(description.highlights,
              (std::vector<std::string>{"the grind 18g", "Brew time: 25–30 seconds", "water at 93 C"}));
    EXPECT_TRUE(parsed(R"({"highlights": ["!!!", "", 5]})", read).highlights.empty())
        << "a highlight with no letters or digits matches nothing";
    EXPECT_EQ(parsed(R"({"highlights": ["  Tamp\n firmly "]})", read).highlights,
              std::vector<std::string>{"Tamp firmly"})
        << "kept in its cleaned form";
    EXPECT_EQ(Describer::squashed("Caf\u00C9 No. 5 \u2014 \U0001F600!"), "caf\u00E9no5");
}

TEST(DescriberParse, LinksMustOccurInTheReadTextAfterThePageAddress) {
    const std::string read = "Read more at example.com/espresso and https://beans.example.net/shop, "
                             "or http://old.example.org.";
    const auto description = parsed(R"({"links": ["example.com/espresso", "https://beans.example.net/shop).",
                                                  "http://old.example.org", "https://invented.example.io",
                                                  "not a link", "ftp://example.com/espresso",
                                                  "https://news.example.org/coffee/espresso", 12]})",
                                    read, newsSite);
    EXPECT_EQ(
        description.links,
        (std::vector<std::string>{"https://news.example.org/coffee/espresso", "https://example.com/espresso",
                                  "https://beans.example.net/shop", "http://old.example.org"}));

    // Ten valid links found in the text, with a page address: six in all.
    std::string many;
    std::string list;
    for (int i = 0; i < 10; ++i) {
        const std::string link = "https://site" + std::to_string(i) + ".example.com";
        many += link + " ";
        list += std::string(i > 0 ? "," : "") + "\"" + link + "\"";
    }
    EXPECT_EQ(parsed("{\"links\": [" + list + "]}", many, newsSite).links.size(), 6u);
    EXPECT_EQ(parsed("{\"links\": [" + list + "]}", many).links.size(), 6u);

    // With nothing read, no link from the model survives, but the page address does.
    EXPECT_EQ(parsed(R"({"links": ["example.com/espresso"]})", "\n", newsSite).links,
              std::vector<std::string>{*newsSite});
    EXPECT_TRUE(parsed("{}", "", std::string("https://localhost/page")).links.empty())
        << "an address without a dotted host is no web link";
}

TEST(DescriberParse, WebLinksNeedHttpAndADottedHost) {
    for (const char* link : {"https://example.com", "HTTP://Example.com/a?b=c#d", "http://127.0.0.1:8080/"}) {
        EXPECT_TRUE(Describer::isWebLink(link)) << link;
    }
    for (const char* link : {"https://localhost", "example.com", "ftp://example.com",
                             "mailto:someone@example.com", "https://exa mple.com", ""}) {
        EXPECT_FALSE(Describer::isWebLink(link)) << link;
    }
}

TEST(Describer, ContextCopiesTheCapture) {
    Capture capture;
    capture.media = CaptureMedia::video;
    capture.app = "Photos";
    capture.windowTitle = "clip.mov";
    capture.url = "https://example.com";
    capture.duration = 12.0;
    capture.takenAt = 1700000000;
    capture.transcript = "hello";
    const auto context = Describer::Context::from(capture);
    EXPECT_EQ(context.media, CaptureMedia::video);
    EXPECT_EQ(context.app, "Photos");
    EXPECT_EQ(context.windowTitle, "clip.mov");
    EXPECT_EQ(context.url, capture.url);
    EXPECT_EQ(context.duration, 12.0);
    EXPECT_EQ(context.takenAt, 1700000000);
    EXPECT_EQ(context.transcript, "hello");
}

TEST(Describer, DescribesThroughTheModelService) {
    FakeModelService service;
    const Describer describer(OllamaClient(service.host()), "qwen3.5:4b");
    service.answerNext(
        R"(Here you go: {"title": "Espresso at home - Example", "summary": "A screenshot of a recipe.",
        "kind": "recipe", "tags": ["coffee"], "highlights": ["first you grind", "18 g"],
        "links": ["example.com/espresso"]})");

    const std::vector<std::uint8_t> image{'J', 'P', 'G'};
    const Describer::Context context{.media = CaptureMedia::video,
                                     .app = "Safari",
                                     .windowTitle = "clip.mov",
                                     .url = newsSite,
                                     .duration = 30,
                                     .transcript = "First, you grind."};
    const std::string ocr = "  Use 18 g. See example.com/espresso  ";
    const auto description = describer.describe(image, context, ocr);
    EXPECT_EQ(description, (CaptureDescription{.title = "Espresso at home",
                                               .summary = "Recipe.",
                                               .kind = CaptureKind::recipe,
                                               .tags = {"coffee"},
                                               .highlights = {"first you grind", "18 g"},
                                               .links = {*newsSite, "https://example.com/espresso"}}))
        << "the transcript counts as read text";

    const auto body = nlohmann::json::parse(service.requests("/api/generate").at(0).body);
    EXPECT_EQ(body["model"], "qwen3.5:4b");
    EXPECT_EQ(body["system"], std::string(Describer::system));
    EXPECT_EQ(body["prompt"], Describer::prompt(context, "Use 18 g. See example.com/espresso"));
    EXPECT_EQ(body["images"], nlohmann::json::array({"SlBH"}));
    EXPECT_EQ(body["format"], "json");
    EXPECT_EQ(body["options"]["num_predict"], 700);

    // The screen form, and failures that reach the caller unchanged.
    service.answerNext("I cannot help with that.");
    EXPECT_THROW((void)describer.describe(image, "Safari", "", std::nullopt, ""), Describer::ParseError);
    EXPECT_EQ(nlohmann::json::parse(service.requests("/api/generate").at(1).body)["prompt"],
              Describer::prompt("Safari", "", std::nullopt, "(none)"));
    service.answerNext("{}");
    EXPECT_EQ(describer.describe(image, "Safari", "", std::nullopt, "").title, "Safari");
    service.failWith("/api/generate", FakeModelService::Reply::error(404, "model \"qwen3.5:4b\" not found"));
    EXPECT_THROW((void)describer.describe(image, context, ocr), OllamaClient::Failure);
}
