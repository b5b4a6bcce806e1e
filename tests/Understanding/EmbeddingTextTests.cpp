#include "Understanding/EmbeddingText.h"

#include "Model/Capture.h"

#include <gtest/gtest.h>

using namespace keepery;

TEST(EmbeddingText, QueryKeepsTheTextAsItIs) {
    EXPECT_EQ(EmbeddingText::query(""), "task: search result | query: ");
    EXPECT_EQ(EmbeddingText::query("  Espresso ratio "), "task: search result | query:   Espresso ratio ");
}

TEST(EmbeddingText, DocumentJoinsTheHeadAndTheBodyLines) {
    Capture capture;
    capture.app = "Safari";
    capture.title = "Espresso";
    capture.summary = "How to pull a shot.";
    capture.tags = {"coffee", "espresso"};
    capture.ocrText = "Grind 18 g";
    EXPECT_EQ(EmbeddingText::document(capture),
              "title: Safari \u2014 Espresso | text: How to pull a shot.\ncoffee, espresso\nGrind 18 g");

    capture.note = "try tomorrow";
    capture.transcript = "first you grind";
    EXPECT_EQ(EmbeddingText::document(capture),
              "title: Safari \u2014 Espresso | text: How to pull a shot.\n"
              "coffee, espresso\ntry tomorrow\nfirst you grind\nGrind 18 g");

    Capture bare;
    EXPECT_EQ(EmbeddingText::document(bare), "title: none | text: ");

    // Without title and window title, the display title is the app again.
    Capture appOnly;
    appOnly.app = "Notes";
    appOnly.summary = "";
    appOnly.note = "";
    EXPECT_EQ(EmbeddingText::document(appOnly), "title: Notes \u2014 Notes | text: ");

    Capture windowOnly;
    windowOnly.windowTitle = "Inbox";
    windowOnly.title = "";
    EXPECT_EQ(EmbeddingText::document(windowOnly), "title: Inbox | text: ");
}

TEST(EmbeddingText, DocumentCutsLongTextsByCharacters) {
    const std::string family = "\U0001F468\u200D\U0001F469\u200D\U0001F467";
    std::string long5000;
    for (int i = 0; i < 2500; ++i) {
        long5000 += family + "a";
    }
    Capture capture;
    capture.app = "Preview";
    capture.ocrText = long5000;
    capture.transcript = std::string(1300, 't');

    std::string expectedOCR;
    for (int i = 0; i < 600; ++i) {
        expectedOCR += family + "a";
    }
    EXPECT_EQ(EmbeddingText::document(capture),
              "title: Preview \u2014 Preview | text: " + std::string(1200, 't') + "\n" + expectedOCR);
}

TEST(EmbeddingText, MeaningIsTitleTopicsAndNote) {
    Capture capture;
    capture.title = "B";
    capture.tags = {"x", "y"};
    capture.note.emplace("N");
    EXPECT_EQ(EmbeddingText::meaning(capture), "title: none | text: B. Topics: x, y. N");

    capture.tags.clear();
    capture.note = "";
    EXPECT_EQ(EmbeddingText::meaning(capture), "title: none | text: B");

    Capture untitled;
    untitled.windowTitle = "Inbox";
    untitled.note = " ";
    EXPECT_EQ(EmbeddingText::meaning(untitled), "title: none | text: Inbox.  ") << "nothing is trimmed";
}
