// Text recognition on images the tests draw, in light and dark themes and in panels side by side.
#include "Understanding/Reader.h"

#include "support/Screen.h"
#include "support/Screenshots.h"
#include "support/TextMetrics.h"

#include <gtest/gtest.h>

#include <future>
#include <sstream>

using namespace keepery;
using keepery::testing::Colour;
using keepery::testing::Screen;
using keepery::testing::TextStyle;
namespace metrics = keepery::testing::TextMetrics;

namespace {

const std::vector<std::string> menuLines = {"Open Recent Documents", "Export the selection as PDF",
                                            "Share with nearby devices", "Keyboard shortcuts and gestures"};

const Colour lightGround{250, 250, 250};
const Colour lightInk{28, 28, 30};
const Colour darkGround{30, 30, 32};
const Colour darkInk{235, 235, 240};

// The lines drawn in a small window, each `pixels` high text one and a half lines apart.
std::vector<std::uint8_t> window(const std::vector<std::string>& lines, const TextStyle& style) {
    Screen screen(640, 40 + static_cast<int>(lines.size()) * style.pixels * 2, style.ground);
    int y = 20;
    for (const std::string& line : lines) {
        screen.draw(line, 24, y, style);
        y += style.pixels * 2;
    }
    return screen.encode(".png");
}

// The pieces of `text` between `separator`s.
std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> pieces;
    std::istringstream in(text);
    for (std::string piece; std::getline(in, piece, separator);) {
        pieces.push_back(piece);
    }
    return pieces;
}

} // namespace

TEST(Reader, ReadsUiTextLineByLineInLightAndDarkThemes) {
    for (const int pixels : {12, 14, 16}) {
        for (const bool dark : {false, true}) {
            SCOPED_TRACE(std::to_string(pixels) + " px, " + (dark ? "dark" : "light"));
            const TextStyle style{"DejaVu Sans", pixels, dark ? darkInk : lightInk,
                                  dark ? darkGround : lightGround};
            const std::string text = Reader::text(window(menuLines, style));
            const std::vector<std::string> lines = split(text, '\n');
            ASSERT_EQ(lines.size(), menuLines.size()) << text;
            for (std::size_t i = 0; i < lines.size(); ++i) {
                EXPECT_LT(metrics::characterErrorRate(menuLines[i], lines[i]), 0.1) << lines[i];
            }
            EXPECT_FALSE(text.ends_with('\n'));
            EXPECT_EQ(text.find("\n\n"), std::string::npos);
        }
    }
}

TEST(Reader, ReadsAScreenshotPanelByPanelInsteadOfAcrossThem) {
    const std::string prose =
        "The library keeps what you chose from your screen and reads the text in every picture so that "
        "you can find it again by the words it holds. Panels that stand side by side on a screen are read "
        "one after the other, from the top down, and a line never runs from one panel into the next. "
        "Small grey labels, bright buttons and dark sidebars are all read in the same careful way. ";
    std::vector<std::string> words;
    for (int copy = 0; copy < 6; ++copy) {
        for (const std::string& word : split(prose, ' ')) {
            words.push_back(word);
        }
    }
    for (const auto layout : {keepery::testing::ScreenLayout::mail, keepery::testing::ScreenLayout::editor}) {
        const auto shot = keepery::testing::renderScreenshot(layout, words);
        SCOPED_TRACE(shot.name);
        const std::string text = Reader::text(shot.png);
        EXPECT_LT(metrics::characterErrorRate(metrics::joined(shot.lines), text), 0.05) << text;
        EXPECT_GT(metrics::wordRecall(metrics::joined(shot.lines), text), 0.9);
    }
}

TEST(Reader, BlankImagesHaveNoTextAndBytesThatAreNotAnImageThrowTheCorruptFileError) {
    EXPECT_EQ(Reader::text(Screen(800, 600, lightGround).encode(".png")), "");
    EXPECT_EQ(Reader::text(Screen(64, 64, darkGround).encode(".jpg")), "");

    const std::string notAnImage = "Meeting notes\nBring the projector.\n";
    std::vector<std::uint8_t> truncated = window(menuLines, {});
    truncated.resize(60);
    for (const auto& bytes : {std::vector<std::uint8_t>(notAnImage.begin(), notAnImage.end()),
                              std::vector<std::uint8_t>{}, truncated}) {
        try {
            (void)Reader::text(bytes);
            ADD_FAILURE() << "no failure for " << bytes.size() << " bytes";
        } catch (const Reader::Failure& failure) {
            EXPECT_STREQ(failure.what(),
                         "The file couldn’t be opened because it isn’t in the correct format.");
        }
    }
}

TEST(Reader, APictureClaimingHundredsOfMillionsOfPixelsIsRefusedBeforeItIsDecoded) {
    // 74 bytes of PNG whose header claims 20000 × 20000 pixels.
    const std::vector<std::uint8_t> claim = {
        0x89, 0x50, 0x4e, 0x47, 0x0d, 0x0a, 0x1a, 0x0a, 0x00, 0x00, 0x00, 0x0d, 0x49, 0x48, 0x44,
        0x52, 0x00, 0x00, 0x4e, 0x20, 0x00, 0x00, 0x4e, 0x20, 0x08, 0x00, 0x00, 0x00, 0x00, 0xc6,
        0x1b, 0x19, 0xe5, 0x00, 0x00, 0x00, 0x11, 0x49, 0x44, 0x41, 0x54, 0x78, 0x9c, 0x63, 0x60,
        0x18, 0x05, 0xa3, 0x60, 0x14, 0x0c, 0x77, 0x00, 0x00, 0x03, 0xe8, 0x00, 0x01, 0xb3, 0xa6,
        0xd3, 0x46, 0x00, 0x00, 0x00, 0x00, 0x49, 0x45, 0x4e, 0x44, 0xae, 0x42, 0x60, 0x82};
    try {
        (void)Reader::text(claim);
        ADD_FAILURE() << "a 400-megapixel picture was read";
    } catch (const Reader::Failure&) {
        ADD_FAILURE() << "decoded before its size was looked at";
    } catch (const std::runtime_error& failure) {
        EXPECT_STREQ(failure.what(), "The picture is too large to read: 20000 × 20000 pixels.");
    }
}

TEST(Reader, ReadsOnlyTheFirstPageOrFrame) {
    const TextStyle style{"DejaVu Sans", 16, lightInk, lightGround};
    Screen first(640, 120, lightGround);
    first.draw("Quarterly budget review", 24, 40, style);
    Screen second(640, 120, lightGround);
    second.draw("Holiday photos from Lisbon", 24, 40, style);
    for (const std::string suffix : {".tif", ".gif"}) {
        SCOPED_TRACE(suffix);
        const std::string text = Reader::text(Screen::encodePages({&first, &second}, suffix));
        EXPECT_LT(metrics::characterErrorRate("Quarterly budget review", text), 0.1) << text;
        EXPECT_EQ(text.find("Lisbon"), std::string::npos);
    }
}

TEST(Reader, ThreadsReadAtOnceAndAgreeWithOneThreadReadingAlone) {
    const auto a = window(menuLines, {"DejaVu Sans", 14, lightInk, lightGround});
    const auto b = window({"git log --oneline --graph", "make test && make bench"},
                          {"DejaVu Sans Mono", 13, darkInk, darkGround});
    const std::string aloneA = Reader::text(a);
    const std::string aloneB = Reader::text(b);
    const auto readThrice = [](const std::vector<std::uint8_t>& bytes) {
        return std::vector<std::string>{Reader::text(bytes), Reader::text(bytes), Reader::text(bytes)};
    };
    auto first = std::async(std::launch::async, readThrice, std::cref(a));
    auto second = std::async(std::launch::async, readThrice, std::cref(b));
    EXPECT_EQ(first.get(), std::vector<std::string>(3, aloneA));
    EXPECT_EQ(second.get(), std::vector<std::string>(3, aloneB));
}

TEST(Reader, EnglishComesFirstAmongTheLanguages) {
    const auto languages = Reader::languages();
    ASSERT_FALSE(languages.empty());
    EXPECT_EQ(languages.front(), "eng");
    EXPECT_EQ(std::count(languages.begin(), languages.end(), "osd"), 0);
}
