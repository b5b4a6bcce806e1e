// The panel cut on drawn gray images: "text" is a block of dense vertical strokes, as glyphs are.
#include "Understanding/PanelCut.h"

#include <gtest/gtest.h>

#include <array>

using namespace keepery;
using PanelCut::Rectangle;

namespace {

struct Picture {
    int width;
    int height;
    std::vector<std::uint8_t> pixels;

    Picture(int w, int h, std::uint8_t ground = 255)
        : width(w), height(h), pixels(static_cast<std::size_t>(w * h), ground) {}

    Picture& fill(int x, int y, int w, int h, std::uint8_t value) {
        for (int row = y; row < y + h; ++row) {
            for (int column = x; column < x + w; ++column) {
                pixels[static_cast<std::size_t>(row * width + column)] = value;
            }
        }
        return *this;
    }
    // Lines of 10 px high strokes, one pixel wide every three pixels, 8 px apart.
    Picture& text(int x, int y, int w, int lines, std::uint8_t ink = 0) {
        for (int line = 0; line < lines; ++line) {
            for (int column = x; column < x + w; column += 3) {
                fill(column, y + line * 18, 1, 10, ink);
            }
        }
        return *this;
    }
    [[nodiscard]] std::vector<Rectangle> panels() const { return PanelCut::panels({pixels, width, height}); }
};

// Whether the block at x, y, w, h lies inside `outer`.
bool contains(const Rectangle& outer, const std::array<int, 4>& block) {
    const auto [x, y, w, h] = block;
    return outer.x <= x && outer.y <= y && outer.x + outer.width >= x + w && outer.y + outer.height >= y + h;
}

} // namespace

TEST(PanelCut, BlankImagesHaveNoPanelsAndOneBlockIsOnePanelTrimmedToItsTextWithAMargin) {
    EXPECT_TRUE(Picture(300, 200).panels().empty());
    EXPECT_TRUE(Picture(300, 200, 20).panels().empty());
    // Two flat grounds side by side meet in a straight edge, which is no text.
    EXPECT_TRUE(Picture(300, 200, 20).fill(150, 0, 150, 200, 240).panels().empty());
    EXPECT_TRUE(PanelCut::panels({{}, 0, 0}).empty());
    EXPECT_TRUE(PanelCut::panels({std::vector<std::uint8_t>(10, 255), 300, 200}).empty());

    const auto panels = Picture(400, 300).text(100, 50, 120, 4).panels();
    const int m = PanelCut::margin;
    EXPECT_EQ(panels, (std::vector<Rectangle>{{100 - m, 50 - m, 118 + 2 * m, 3 * 18 + 10 + 2 * m}}));
    // Word spaces and gaps narrower than a column gap keep a line whole.
    EXPECT_EQ(Picture(600, 300)
                  .text(10, 20, 200, 10)
                  .text(10 + 200 + PanelCut::minimumColumnGap - 6, 20, 200, 10)
                  .panels()
                  .size(),
              1u);
}

// Panels are read left to right within a band, and bands top to bottom.
TEST(PanelCut, PanelsAreCutAtWideGapsAndReadInOrder) {
    const std::vector<std::pair<Picture, std::vector<std::array<int, 4>>>> cases{
        // Side by side, a column gap apart.
        {Picture(600, 300).text(10, 20, 200, 10).text(10 + 200 + PanelCut::minimumColumnGap + 2, 20, 200, 10),
         {{10, 20, 198, 172}, {232, 20, 198, 172}}},
        // A dark sidebar against a light page, each with 12 px of padding at the edge between them: the edge
        // counts as part of the gap.
        {Picture(600, 300, 250).fill(0, 0, 200, 300, 30).text(170, 20, 18, 8, 230).text(212, 20, 300, 8),
         {{170, 20, 16, 136}, {212, 20, 298, 136}}},
        // A title over the right-hand panel only: without taking the bars off first it would be read after
        // the left-hand panel.
        {Picture(800, 500)
             .fill(0, 0, 800, 40, 220)
             .text(500, 15, 120, 1)
             .text(20, 70, 300, 20)
             .text(420, 70, 300, 20)
             .fill(0, 470, 800, 30, 200)
             .text(20, 480, 80, 1),
         {{500, 15, 118, 10}, {20, 70, 298, 352}, {420, 70, 298, 352}, {20, 480, 78, 10}}},
        // Stacked blocks far apart.
        {Picture(400, 600).text(20, 20, 300, 6).text(20, 300, 300, 6),
         {{20, 20, 298, 100}, {20, 300, 298, 100}}},
    };
    for (std::size_t c = 0; c < cases.size(); ++c) {
        SCOPED_TRACE("case " + std::to_string(c));
        const auto& [picture, blocks] = cases[c];
        const auto panels = picture.panels();
        ASSERT_EQ(panels.size(), blocks.size());
        for (std::size_t i = 0; i < blocks.size(); ++i) {
            EXPECT_TRUE(contains(panels[i], blocks[i])) << "panel " << i;
            // The margins never reach the neighbour.
            if (i > 0) {
                EXPECT_TRUE(panels[i - 1].x + panels[i - 1].width < panels[i].x ||
                            panels[i - 1].y + panels[i - 1].height <= panels[i].y);
            }
        }
    }
}
