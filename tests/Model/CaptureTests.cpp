#include "Model/Capture.h"

#include <gtest/gtest.h>

namespace keepery {
namespace {

TEST(CaptureKind, ParseIsLenientAboutSpacingAndCaseButMatchesWholeWordsOnly) {
    for (const auto& [text, kind] : std::vector<std::pair<std::optional<std::string>, CaptureKind>>{
             {"  Recipe\n", CaptureKind::recipe},
             {"WEB PAGE", CaptureKind::article},
             {"food and drink", CaptureKind::food},
             {"food & drink", CaptureKind::other},
             {std::nullopt, CaptureKind::other},
             {"videos", CaptureKind::other},
             {"github repo", CaptureKind::other},
             {"\u00A0Slack\u3000", CaptureKind::chat},
         }) {
        EXPECT_EQ(CaptureKind::parse(text), kind) << text.value_or("<none>");
    }
    // The strict conversion the store reads with is case-sensitive.
    EXPECT_EQ(CaptureKind::fromRawValue("Article"), std::nullopt);
    EXPECT_EQ(CaptureKind(CaptureKind::food).title(), "Food & drink");
}

TEST(Capture, DisplayTitleAndSourceNameFallThroughToTheApp) {
    Capture capture;
    capture.app = "Safari";
    capture.windowTitle = "Window";
    capture.title = "";
    EXPECT_EQ(capture.displayTitle(), "Window") << "an empty title is no title";

    // The host as written, less a lower-case "www.", else the media's word, else the app.
    for (const auto& [url, media, source] :
         std::vector<std::tuple<std::optional<std::string>, CaptureMedia, std::string>>{
             {"https://www.example.com/a/b?c", CaptureMedia::screen, "example.com"},
             {"https://WWW.Example.com/", CaptureMedia::screen, "WWW.Example.com"},
             {"http://[::1]:8080/x", CaptureMedia::screen, "::1"},
             {"file:///Users/me/notes.txt", CaptureMedia::screen, "Safari"}, // parses, but has no host
             {"not a url", CaptureMedia::screen, "Safari"},
             {"not a url", CaptureMedia::photo, "Photos"},
             {std::nullopt, CaptureMedia::video, "Videos"},
             {"https://www.youtube.com/watch?v=1", CaptureMedia::video, "youtube.com"},
         }) {
        capture.url = url;
        capture.media = media;
        EXPECT_EQ(capture.sourceName(), source) << url.value_or("<none>");
    }
}

} // namespace
} // namespace keepery
