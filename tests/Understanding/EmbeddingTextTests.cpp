#include "Understanding/EmbeddingText.h"

#include "Model/Capture.h"

#include <gtest/gtest.h>

using namespace keepery;

TEST(EmbeddingText, DocumentJoinsTheHeadAndTheBodyLinesLeavingOutEmptyOnes) {
    Capture capture;
    capture.app = "Safari";
    capture.title = "Espresso";
    capture.summary = "How to pull a shot.";
    capture.tags = {"coffee", "espresso"};
    capture.note = "try tomorrow";
    capture.transcript = "first you grind";
    capture.ocrText = "Grind 18 g";
    EXPECT_EQ(EmbeddingText::document(capture),
              "title: Safari \u2014 Espresso | text: How to pull a shot.\n"
              "coffee, espresso\ntry tomorrow\nfirst you grind\nGrind 18 g");
    EXPECT_EQ(EmbeddingText::document(Capture()), "title: none | text: ");
    // Without title and window title, the display title is the app again.
    Capture appOnly;
    appOnly.app = "Notes";
    appOnly.summary = "";
    appOnly.note = "";
    EXPECT_EQ(EmbeddingText::document(appOnly), "title: Notes \u2014 Notes | text: ");

    // Long texts are cut by characters.
    const std::string family = "\U0001F468\u200D\U0001F469\u200D\U0001F467a";
    std::string ocr;
    for (int i = 0; i < 2500; ++i) {
        ocr += family;
    }
    appOnly.ocrText = ocr;
    appOnly.transcript = std::string(1300, 't');
    EXPECT_EQ(EmbeddingText::document(appOnly),
              "title: Notes \u2014 Notes | text: " + std::string(1200, 't') + "\n" +
                  ocr.substr(0, 600 * family.size()));
}

TEST(EmbeddingText, QueryKeepsTheTextAsItIsAndMeaningIsTitleTopicsAndNote) {
    EXPECT_EQ(EmbeddingText::query("  Espresso ratio "), "task: search result | query:   Espresso ratio ");
    Capture capture;
    capture.title = "B";
    capture.tags = {"x", "y"};
    capture.note = "N";
    EXPECT_EQ(EmbeddingText::meaning(capture), "title: none | text: B. Topics: x, y. N");
    capture.tags.clear();
    capture.note = "";
    EXPECT_EQ(EmbeddingText::meaning(capture), "title: none | text: B");
    Capture untitled;
    untitled.windowTitle = "Inbox";
    untitled.note = " ";
    EXPECT_EQ(EmbeddingText::meaning(untitled), "title: none | text: Inbox.  ") << "nothing is trimmed";
}
