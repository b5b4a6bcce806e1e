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

std::string repeated(const std::string& text, int times) {
    std::string result;
    for (int i = 0; i < times; ++i) {
        result += text;
    }
    return result;
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

TEST(DescriberPrompt, PromptsForScreensPhotosAndVideosAreExact) {
    using Context = Describer::Context;
    const auto photo = CaptureMedia::photo;
    const auto video = CaptureMedia::video;
    const std::vector<std::pair<Context, std::string>> cases{
        {{.app = "Safari", .windowTitle = "Espresso guide", .url = newsSite},
         "App: Safari\nWindow: Espresso guide\nURL: https://news.example.org/coffee/espresso\n"
         "Text read from the screen (may be partial):"},
        // Without an address there is no URL line; an empty one still gives it; an empty title is
        // "(untitled)".
        {{.app = "Notes"}, "App: Notes\nWindow: (untitled)\nText read from the screen (may be partial):"},
        {{.app = "Notes", .windowTitle = " x ", .url = ""},
         "App: Notes\nWindow:  x \nURL: \nText read from the screen (may be partial):"},
        {{.media = photo, .windowTitle = "IMG_0042.HEIC", .takenAt = 1709504040},
         "This is a photo (file \"IMG_0042.HEIC\"). Taken " + Dates::longDateShortTime(1709504040) +
             ". Describe what it shows: the subject, the place, the moment, any text in it.\n"
             "Text read from the photo (may be empty):"},
        // Halves of a second round away from zero; the transcript is trimmed, and an empty one is "(none)".
        {{.media = video, .windowTitle = "clip.mov", .duration = 2.5, .transcript = "  first you grind\n"},
         "This is a video (file \"clip.mov\") 3 seconds long. The image shows key frames in order, left to "
         "right, top to bottom. Describe what happens in it.\nWhat is said in it:\n\"\"\"\nfirst you grind\n"
         "\"\"\"\nText read from the frames (may be empty):"},
        {{.media = video, .windowTitle = "clip.mov", .duration = 41.5},
         "This is a video (file \"clip.mov\") 42 seconds long. The image shows key frames in order, left to "
         "right, top to bottom. Describe what happens in it.\nText read from the frames (may be empty):"},
        {{.media = video, .windowTitle = "clip.mov", .transcript = ""},
         "This is a video (file \"clip.mov\"). The image shows key frames in order, left to right, top to "
         "bottom. Describe what happens in it.\nWhat is said in it:\n\"\"\"\n(none)\n\"\"\"\n"
         "Text read from the frames (may be empty):"},
    };
    for (const auto& [context, head] : cases) {
        EXPECT_EQ(Describer::prompt(context, "Grind 18 g in 25 seconds."), head + tail);
    }
}

TEST(DescriberPrompt, ExcerptTrimsCutsByCharactersAndNamesEmptiness) {
    EXPECT_EQ(Describer::excerpt(" \n\t "), "(none)");
    EXPECT_EQ(Describer::excerpt("\n  Hello  \n"), "Hello");
    const std::string family = "\U0001F468\u200D\U0001F469\u200D\U0001F467x";
    EXPECT_EQ(Describer::excerpt(repeated(family, 5000)), repeated(family, 1500) + "\u2026");
    EXPECT_EQ(Describer::excerpt(std::string(3000, 'a')), std::string(3000, 'a'));
}

TEST(DescriberParse, FindsTheObjectInsideProseAndFences) {
    const auto fenced =
        parsed("Sure! Here it is:\n```json\n{\"title\": \"Espresso\", \"kind\": \"recipe\"}\n```\n"
               "Hope that helps.");
    EXPECT_EQ(fenced.title, "Espresso");
    EXPECT_EQ(fenced.kind, CaptureKind::recipe);
    EXPECT_THROW((void)parsed("{\"title\": \"Espresso\"} :-}"), Describer::ParseError)
        << "the span runs to the last brace, even one in prose";

    EXPECT_TRUE(Describer::jsonObject("[{\"a\":1}]")) << "only the braces count, not what encloses them";
    for (const char* text : {"} backwards {", "{not json}", "no braces at all", "{\"a\": \"\xFF\"}"}) {
        EXPECT_FALSE(Describer::jsonObject(text)) << text;
    }
}

TEST(DescriberParse, ThrowsNotJSONWithTheFirst200Characters) {
    const std::string reply = repeated("\u00E9x", 100) + std::string(300, 'y'); // 200 characters, 300 bytes
    try {
        (void)parsed(reply);
        FAIL() << "no ParseError";
    } catch (const Describer::ParseError& error) {
        EXPECT_EQ(error.reply(), reply.substr(0, 300));
    }
    // The text a failed step records.
    EXPECT_STREQ(Describer::ParseError::notJSON("Sorry").what(), "notJSON(\"Sorry\")");
    EXPECT_THROW((void)parsed("[1, 2, 3]"), Describer::ParseError);
    EXPECT_THROW((void)parsed("{\"title\": }"), Describer::ParseError);
}

TEST(DescriberParse, TitlesAreCleanedCutAndFallBack) {
    EXPECT_EQ(parsed(R"({"kind": 3})").kind, CaptureKind::other);
    EXPECT_EQ(parsed("{}", "", std::nullopt, "Safari").title, "Safari");
    EXPECT_EQ(parsed("{\"title\": \"  \\n \"}", "", std::nullopt, "Inbox").title, "Inbox");
    EXPECT_EQ(parsed("{\"title\": 42}", "", std::nullopt, "").title, "Untitled");
    EXPECT_EQ(parsed("{\"title\": \"\\\"\\\"\"}", "", std::nullopt, " \"").title, "Untitled");
    // 120 characters become the first 89, trimmed of blanks, plus "…".
    const std::string title = std::string(88, 'a') + " " + std::string(31, 'b');
    EXPECT_EQ(parsed("{\"title\": \"" + title + "\"}").title, std::string(88, 'a') + "\u2026");

    const std::string heart = "\u2764\uFE0F";
    const std::vector<std::tuple<std::optional<std::string>, std::size_t, std::optional<std::string>>> cases{
        {std::nullopt, 10, std::nullopt},
        {"\"  Espresso \n\t\u00A0 guide \" ", 90, "Espresso guide"},
        {" \" \n \"", 90, std::nullopt},
        {"say \"hi\" now", 90, "say \"hi\" now"},     // inner quotes stay
        {heart + heart + heart, 2, heart + "\u2026"}, // characters, not bytes
        {std::string(90, 'c'), 90, std::string(90, 'c')},
        {std::string(89, 'c') + "de", 90, std::string(89, 'c') + "\u2026"},
    };
    for (const auto& [text, limit, expected] : cases) {
        EXPECT_EQ(Describer::clean(text, limit), expected) << text.value_or("(none)");
    }
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
    using Tags = std::vector<std::string>;
    const std::vector<std::pair<std::string, Tags>> cases{
        {R"(["#Coffee", "coffee", "  Espresso\n", ")" + std::string(33, 't') + R"(", 7, "", "#"])",
         {"coffee", "espresso"}},
        {R"(["a", "b", "c", "d", "e", "f", "g"])", {"a", "b", "c", "d", "e"}},
        {R"(["C#"])", {"c"}},
        {R"(["\u00C9T\u00C9", "\u00e9t\u00e9"])", {"\u00E9t\u00E9"}},
        {R"([")" + std::string(32, 'k') + R"("])", {std::string(32, 'k')}},
        {R"("coffee")", {}},
        // Duplicates and rejects do not count towards the five.
        {R"(["a", "A", "#a", "b", "c", "d", "e"])", {"a", "b", "c", "d", "e"}},
    };
    for (const auto& [tags, expected] : cases) {
        EXPECT_EQ(parsed(R"({"tags": )" + tags + "}").tags, expected) << tags;
    }
}

TEST(DescriberParse, HighlightsMustOccurInTheReadText) {
    const std::string read =
        "THE GRIND: 18 g.\nBrew time 25-30 seconds!\nWater at 93\u00B0C\nTamp firmly\nEnjoy";
    EXPECT_EQ(parsed(R"({"highlights": ["the grind 18g", "!!!", "", 5, "Brew time: 25–30 seconds", "Made up",
                                       "water at 93 C", "tamp, firmly", "enjoy"]})",
                     read)
                  .highlights,
              (std::vector<std::string>{"the grind 18g", "Brew time: 25–30 seconds", "water at 93 C"}));
    EXPECT_EQ(parsed(R"({"highlights": ["  Tamp\n firmly "]})", read).highlights,
              std::vector<std::string>{"Tamp firmly"})
        << "kept in its cleaned form";
    EXPECT_EQ(Describer::squashed("Caf\u00C9 No. 5 \u2014 \U0001F600!"), "caf\u00E9no5");
}

TEST(DescriberParse, LinksMustBeWebLinksInTheReadTextAfterThePageAddress) {
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

    // Ten valid links found in the text: six in all, with or without a page address.
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
    EXPECT_TRUE(parsed("{}", "", std::string("https://localhost/page")).links.empty());

    for (const char* link : {"https://example.com", "HTTP://Example.com/a?b=c#d", "http://127.0.0.1:8080/"}) {
        EXPECT_TRUE(Describer::isWebLink(link)) << link;
    }
    for (const char* link : {"https://localhost", "example.com", "ftp://example.com",
                             "mailto:someone@example.com", "https://exa mple.com", ""}) {
        EXPECT_FALSE(Describer::isWebLink(link)) << link;
    }
}

TEST(Describer, DescribesThroughTheModelService) {
    FakeModelService service;
    const Describer describer(OllamaClient(service.host()), "qwen3.5:4b");
    service.answerNext(
        R"(Here you go: {"title": "Espresso at home - Example", "summary": "A screenshot of a recipe.",
        "kind": "recipe", "tags": ["coffee"], "highlights": ["first you grind", "18 g"],
        "links": ["example.com/espresso"]})");
    const std::vector<std::uint8_t> image{'J', 'P', 'G'};
    Capture capture;
    capture.media = CaptureMedia::video;
    capture.app = "Safari";
    capture.windowTitle = "clip.mov";
    capture.url = newsSite;
    capture.duration = 30;
    capture.takenAt = 1709504040;
    capture.transcript = "First, you grind.";
    const auto context = Describer::Context::from(capture);
    const std::string ocr = "  Use 18 g. See example.com/espresso  ";
    EXPECT_EQ(describer.describe(image, context, ocr),
              (CaptureDescription{.title = "Espresso at home",
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
    EXPECT_TRUE(body["prompt"].get<std::string>().starts_with(
        "This is a video (file \"clip.mov\") 30 seconds long. Taken " +
        Dates::longDateShortTime(1709504040)));
    EXPECT_EQ(body["images"], nlohmann::json::array({"SlBH"}));
    EXPECT_EQ(body["format"], "json");
    EXPECT_EQ(body["options"]["num_predict"], 700);

    // Without a window title the fallback title is the app.
    Capture screen;
    screen.app = "Safari";
    service.answerNext("{}");
    EXPECT_EQ(describer.describe(image, Describer::Context::from(screen), "").title, "Safari");
}
