#include "Media/ContactSheet.h"

#include <cstdlib>
#include <utility>

#include <gtest/gtest.h>

#include <limits>
#include <ostream>

using namespace keepery;

namespace keepery {
void PrintTo(const ContactSheet::Cell& cell, std::ostream* out) {
    *out << "(" << cell.x << ", " << cell.y << ", " << cell.width << " x " << cell.height << ")";
}
} // namespace keepery

namespace {
using Cell = ContactSheet::Cell;
}

TEST(ContactSheet, CellsOfSheetsWithTheComposersGeometry) {
    EXPECT_EQ(ContactSheet::cells(1936, 728, 6), (std::vector<Cell>{{0, 0, 640, 360},
                                                                    {648, 0, 640, 360},
                                                                    {1296, 0, 640, 360},
                                                                    {0, 368, 640, 360},
                                                                    {648, 368, 640, 360},
                                                                    {1296, 368, 640, 360}}));
    EXPECT_EQ(ContactSheet::cells(640, 1137, 1), (std::vector<Cell>{{0, 0, 640, 1137}}));
    EXPECT_EQ(ContactSheet::cells(1288, 360, 2), (std::vector<Cell>{{0, 0, 640, 360}, {648, 0, 640, 360}}));
    // Four frames: three columns, the fourth at the left of the second row; rows of a single pixel count.
    EXPECT_EQ(ContactSheet::cells(1936, 10, 4),
              (std::vector<Cell>{{0, 0, 640, 1}, {648, 0, 640, 1}, {1296, 0, 640, 1}, {0, 9, 640, 1}}));
}

TEST(ContactSheet, SizesThatDoNotFitTheFrameCountGiveNothing) {
    EXPECT_EQ(ContactSheet::cells(1935, 728, 6), std::nullopt);
    EXPECT_EQ(ContactSheet::cells(1936, 729, 6), std::nullopt); // one pixel left over
    EXPECT_EQ(ContactSheet::cells(1936, 361, 6), std::nullopt); // two rows would need an odd gap
    EXPECT_EQ(ContactSheet::cells(1936, 9, 4), std::nullopt);   // rows of no height
    EXPECT_EQ(ContactSheet::cells(1288, 728, 6), std::nullopt); // two columns' width for six frames
    EXPECT_EQ(ContactSheet::cells(640, 0, 1), std::nullopt);
    EXPECT_EQ(ContactSheet::cells(640, -5, 1), std::nullopt);
    EXPECT_EQ(ContactSheet::cells(0, 360, 0), std::nullopt);
    EXPECT_EQ(ContactSheet::cells(1936, 728, std::numeric_limits<std::int64_t>::max()), std::nullopt);
    EXPECT_EQ(ContactSheet::cells(1936, std::numeric_limits<std::int64_t>::max(),
                                  std::numeric_limits<std::int64_t>::max()),
              std::nullopt);
}

namespace {

Image solid(int width, int height, std::uint8_t level) {
    return Image::filled(width, height, level, static_cast<std::uint8_t>(255 - level), 128);
}

bool pixelIs(const Image& image, std::int64_t x, std::int64_t y, std::uint8_t r, std::uint8_t g,
             std::uint8_t b) {
    const auto* p = image.at(static_cast<int>(x), static_cast<int>(y));
    return std::abs(p[0] - r) <= 2 && std::abs(p[1] - g) <= 2 && std::abs(p[2] - b) <= 2;
}

// Every frame fills its cell to the cell's four corners, and gaps and empty cells are background.
void expectSheet(const Image& sheet, const std::vector<Image>& frames) {
    const auto cells =
        ContactSheet::cells(sheet.width, sheet.height, static_cast<std::int64_t>(frames.size()));
    ASSERT_TRUE(cells) << sheet.width << " x " << sheet.height << " is not a sheet of " << frames.size();
    const auto g = ContactSheet::background;
    for (std::size_t i = 0; i < frames.size(); ++i) {
        const auto& cell = (*cells)[i];
        const auto* colour = frames[i].at(0, 0);
        for (const auto& [x, y] : {std::pair{cell.x, cell.y}, std::pair{cell.x + cell.width - 1, cell.y},
                                   std::pair{cell.x, cell.y + cell.height - 1},
                                   std::pair{cell.x + cell.width - 1, cell.y + cell.height - 1}}) {
            EXPECT_TRUE(pixelIs(sheet, x, y, colour[0], colour[1], colour[2]))
                << "frame " << i << " at " << x << ", " << y;
        }
        if (cell.x + cell.width < sheet.width) {
            EXPECT_TRUE(pixelIs(sheet, cell.x + cell.width, cell.y, g, g, g)) << "gap right of frame " << i;
            EXPECT_TRUE(pixelIs(sheet, cell.x + cell.width + 7, cell.y + cell.height - 1, g, g, g));
        }
        if (cell.y + cell.height < sheet.height) {
            EXPECT_TRUE(pixelIs(sheet, cell.x, cell.y + cell.height, g, g, g)) << "gap below frame " << i;
        }
    }
    const auto all = ContactSheet::cells(sheet.width, sheet.height,
                                         3 * ((static_cast<std::int64_t>(frames.size()) + 2) / 3));
    for (std::size_t i = frames.size(); all && i < all->size(); ++i) {
        const auto& empty = (*all)[i];
        EXPECT_TRUE(pixelIs(sheet, empty.x, empty.y, g, g, g));
        EXPECT_TRUE(pixelIs(sheet, empty.x + empty.width - 1, empty.y + empty.height - 1, g, g, g));
    }
}

TEST(ContactSheet, DrawsFramesStretchedIntoTheirCellsLeftToRightThenTopToBottom) {
    const std::vector<Image> one{solid(1280, 720, 10)};
    const auto single = ContactSheet::draw(one);
    ASSERT_TRUE(single);
    EXPECT_EQ(single->width, 640);
    EXPECT_EQ(single->height, 360);
    EXPECT_EQ(single->bands, 3);
    expectSheet(*single, one);

    // Later frames of other proportions are stretched to the first frame's cell.
    const std::vector<Image> four{solid(1280, 720, 40), solid(300, 900, 90), solid(64, 36, 140),
                                  solid(2, 2, 200)};
    const auto grid = ContactSheet::draw(four);
    ASSERT_TRUE(grid);
    EXPECT_EQ(grid->width, 1936);
    EXPECT_EQ(grid->height, 728);
    expectSheet(*grid, four);

    std::vector<Image> six;
    for (std::uint8_t i = 0; i < 6; ++i) {
        six.push_back(solid(720, 1280, static_cast<std::uint8_t>(20 + i * 35)));
    }
    const auto portrait = ContactSheet::draw(six);
    ASSERT_TRUE(portrait);
    EXPECT_EQ(portrait->width, 1936);
    EXPECT_EQ(portrait->height, 2 * 1137 + 8);
    expectSheet(*portrait, six);
}

TEST(ContactSheet, GeometryTakesTheCellHeightFromTheFirstFrame) {
    EXPECT_EQ(ContactSheet::geometry(6, 1920, 1080), (ContactSheet::Geometry{3, 2, 360, 1936, 728}));
    EXPECT_EQ(ContactSheet::geometry(1, 720, 1280), (ContactSheet::Geometry{1, 1, 1137, 640, 1137}));
    EXPECT_EQ(ContactSheet::geometry(2, 0, 5)->cellHeight, 3200) << "width 0 counts as 1";
    EXPECT_EQ(ContactSheet::geometry(2, 5000, 1)->cellHeight, 1) << "never below one pixel";
    EXPECT_EQ(ContactSheet::geometry(0, 640, 360), std::nullopt);
    EXPECT_EQ(ContactSheet::draw({}), std::nullopt);
    EXPECT_EQ(ContactSheet::draw({solid(64, 36, 1), Image{}}), std::nullopt);
}

} // namespace
