// The panel cut on drawn gray images: "text" is a block of dense vertical strokes, as glyphs are.
#include "Understanding/PanelCut.h"

#include <gtest/gtest.h>

using namespace keepery;
using PanelCut::Rectangle;

namespace {

struct Picture {
    int width;
    int height;
    std::vector<std::uint8_t> pixels;

    Picture(int w, int h, std::uint8_t ground = 255)
        : width(w), height(h), pixels(static_cast<std::size_t>(w * h), ground) {}

    void fill(int x, int y, int w, int h, std::uint8_t value) {
        for (int row = y; row < y + h; ++row) {
            for (int column = x; column < x + w; ++column) {
                pixels[static_cast<std::size_t>(row * width + column)] = value;
            }
        }
    }
    // Lines of 10 px high strokes, one pixel wide every three pixels, 8 px apart.
    void text(int x, int y, int w, int lines, std::uint8_t ink = 0) {
        for (int line = 0; line < lines; ++line) {
            for (int column = x; column < x + w; column += 3) {
                fill(column, y + line * 18, 1, 10, ink);
            }
        }
    }
    [[nodiscard]] std::vector<Rectangle> panels() const { return PanelCut::panels({pixels, width, height}); }
};

// Whether `inner` lies inside `outer`.
bool contains(const Rectangle& outer, int x, int y, int w, int h) {
    return outer.x <= x && outer.y <= y && outer.x + outer.width >= x + w && outer.y + outer.height >= y + h;
}

} // namespace

TEST(PanelCut, BlankOrEmptyImagesHaveNoPanels) {
    EXPECT_TRUE(Picture(300, 200).panels().empty());
    Picture flatDark(300, 200, 20);
    EXPECT_TRUE(flatDark.panels().empty());
    // Two flat grounds side by side meet in a straight edge, which is no text.
    flatDark.fill(150, 0, 150, 200, 240);
    EXPECT_TRUE(flatDark.panels().empty());
    EXPECT_TRUE(PanelCut::panels({{}, 0, 0}).empty());
    const std::vector<std::uint8_t> tooFew(10, 255);
    EXPECT_TRUE(PanelCut::panels({tooFew, 300, 200}).empty());
}

TEST(PanelCut, OneBlockIsOnePanelTrimmedToItsTextWithAMargin) {
    Picture picture(400, 300);
    picture.text(100, 50, 120, 4);
    const auto panels = picture.panels();
    ASSERT_EQ(panels.size(), 1u);
    EXPECT_EQ(panels[0], (Rectangle{100 - PanelCut::margin, 50 - PanelCut::margin, 118 + 2 * PanelCut::margin,
                                    3 * 18 + 10 + 2 * PanelCut::margin}));
}

TEST(PanelCut, SideBySidePanelsAreCutAtAWideGapAndReadLeftToRight) {
    Picture wide(600, 300);
    wide.text(10, 20, 200, 10);
    wide.text(10 + 200 + PanelCut::minimumColumnGap + 2, 20, 200, 10);
    const auto panels = wide.panels();
    ASSERT_EQ(panels.size(), 2u);
    EXPECT_TRUE(contains(panels[0], 10, 20, 198, 172));
    EXPECT_TRUE(contains(panels[1], 232, 20, 198, 172));
    EXPECT_LT(panels[0].x + panels[0].width, panels[1].x) << "margins never reach the neighbour";

    // Word spaces and narrow gaps keep a line whole.
    Picture narrow(600, 300);
    narrow.text(10, 20, 200, 10);
    narrow.text(10 + 200 + PanelCut::minimumColumnGap - 6, 20, 200, 10);
    EXPECT_EQ(narrow.panels().size(), 1u);
}

TEST(PanelCut, TheEdgeBetweenDifferentGroundsCountsAsPartOfTheGap) {
    // A dark sidebar against a light page, each with 12 px of padding at the edge between them.
    Picture picture(600, 300, 250);
    picture.fill(0, 0, 200, 300, 30);
    picture.text(170, 20, 18, 8, 230);
    picture.text(212, 20, 300, 8);
    const auto panels = picture.panels();
    ASSERT_EQ(panels.size(), 2u);
    EXPECT_TRUE(contains(panels[0], 170, 20, 16, 136));
    EXPECT_TRUE(contains(panels[1], 212, 20, 298, 136));
}

TEST(PanelCut, BarsAboveAndBelowComeOffBeforeThePanelsUnderThem) {
    // A title over the right-hand panel only: without taking the bar off first it would be read after the
    // left-hand panel.
    Picture picture(800, 500);
    picture.fill(0, 0, 800, 40, 220);
    picture.text(500, 15, 120, 1);
    picture.text(20, 70, 300, 20);
    picture.text(420, 70, 300, 20);
    picture.fill(0, 470, 800, 30, 200);
    picture.text(20, 480, 80, 1);
    const auto panels = picture.panels();
    ASSERT_EQ(panels.size(), 4u);
    EXPECT_TRUE(contains(panels[0], 500, 15, 118, 10)) << "the title first";
    EXPECT_TRUE(contains(panels[1], 20, 70, 298, 352));
    EXPECT_TRUE(contains(panels[2], 420, 70, 298, 352));
    EXPECT_TRUE(contains(panels[3], 20, 480, 78, 10)) << "the status bar last";
}

TEST(PanelCut, StackedBlocksFarApartAreReadTopToBottom) {
    Picture picture(400, 600);
    picture.text(20, 20, 300, 6);
    picture.text(20, 300, 300, 6);
    const auto panels = picture.panels();
    ASSERT_EQ(panels.size(), 2u);
    EXPECT_LT(panels[0].y, panels[1].y);
    EXPECT_LE(panels[0].y + panels[0].height, panels[1].y);
}
