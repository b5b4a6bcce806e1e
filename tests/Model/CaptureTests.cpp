#include "Model/Capture.h"

#include <gtest/gtest.h>
#include <unordered_set>

using namespace keepery;

TEST(CaptureKind, ParseIsLenientAboutSpacingAndCaseButMatchesWholeWords) {
    EXPECT_EQ(CaptureKind::parse("  Recipe\n"), CaptureKind::recipe);
    EXPECT_EQ(CaptureKind::parse("WEB PAGE"), CaptureKind::article);
    EXPECT_EQ(CaptureKind::parse("food and drink"), CaptureKind::food);
    EXPECT_EQ(CaptureKind::parse("food & drink"), CaptureKind::other);
    EXPECT_EQ(CaptureKind::parse(std::nullopt), CaptureKind::other);
    EXPECT_EQ(CaptureKind::parse("videos"), CaptureKind::other);
    EXPECT_EQ(CaptureKind::parse("social media"), CaptureKind::social);
    EXPECT_EQ(CaptureKind::parse("github repo"), CaptureKind::other);
    EXPECT_EQ(CaptureKind::parse("\u00A0Slack\u3000"), CaptureKind::chat);
}

TEST(CaptureKind, StrictConversionIsCaseSensitiveAndKeepsDeclaredOrder) {
    EXPECT_EQ(CaptureKind::fromRawValue("article"), CaptureKind::article);
    EXPECT_EQ(CaptureKind::fromRawValue("Article"), std::nullopt);
    EXPECT_EQ(CaptureKind::fromRawValue(""), std::nullopt);
    const auto all = CaptureKind::allCases();
    ASSERT_EQ(all.size(), 18u);
    EXPECT_EQ(all.front().rawValue(), "article");
    EXPECT_EQ(all.back().rawValue(), "other");
    for (CaptureKind kind : all) {
        EXPECT_EQ(CaptureKind::fromRawValue(kind.rawValue()), kind);
    }
    EXPECT_EQ(CaptureKind(CaptureKind::video).title(), "Video");
    EXPECT_EQ(CaptureKind(CaptureKind::food).title(), "Food & drink");
    EXPECT_EQ(CaptureKind(CaptureKind::code).symbol(), "chevron.left.forwardslash.chevron.right");
    EXPECT_EQ(CaptureMedia(CaptureMedia::video).title(), "Videos");
    EXPECT_EQ(CaptureStage::fromRawValue("organized"), CaptureStage::organized);
    EXPECT_EQ(VectorSpace::fromRawValue("Look"), std::nullopt);
}

TEST(Capture, DisplayTitleFallsThroughEmptyTexts) {
    Capture capture;
    capture.app = "Safari";
    capture.windowTitle = "Window";
    capture.title = "Described";
    EXPECT_EQ(capture.displayTitle(), "Described");
    capture.title = "";
    EXPECT_EQ(capture.displayTitle(), "Window");
    capture.windowTitle.clear();
    EXPECT_EQ(capture.displayTitle(), "Safari");
}

TEST(Capture, SourceNameUsesTheHostAsWrittenThenTheMedia) {
    Capture capture;
    capture.app = "Firefox";
    capture.url = "https://www.example.com/a/b?c";
    EXPECT_EQ(capture.sourceName(), "example.com");
    capture.url = "https://WWW.Example.com/";
    EXPECT_EQ(capture.sourceName(), "WWW.Example.com");
    capture.url = "http://[::1]:8080/x";
    EXPECT_EQ(capture.sourceName(), "::1");
    capture.url = "file:///Users/me/notes.txt"; // parses, but has no host
    EXPECT_EQ(capture.sourceName(), "Firefox");
    capture.url = "not a url";
    EXPECT_EQ(capture.sourceName(), "Firefox");
    capture.media = CaptureMedia::photo;
    EXPECT_EQ(capture.sourceName(), "Photos");
    capture.media = CaptureMedia::video;
    capture.url = std::nullopt;
    EXPECT_EQ(capture.sourceName(), "Videos");
    capture.url = "https://www.youtube.com/watch?v=1";
    EXPECT_EQ(capture.sourceName(), "youtube.com");
}

TEST(Capture, EqualityAndHashingTakeEveryField) {
    Capture a;
    a.id = "x";
    a.tags = {"one"};
    Capture b = a;
    EXPECT_EQ(a, b);
    EXPECT_EQ(std::hash<Capture>{}(a), std::hash<Capture>{}(b));
    b.transcript = "";
    EXPECT_NE(a, b); // an empty transcript is not an absent one
    b = a;
    b.kind = CaptureKind::other;
    EXPECT_NE(a, b);
    std::unordered_set<Capture> set{a, b};
    EXPECT_EQ(set.size(), 2u);

    CaptureCollection c{"c1", "Cooking", "\U0001F373", 1, 2, 3, 3, false};
    CaptureCollection d = c;
    d.userNamed = true;
    EXPECT_NE(c, d);
}
