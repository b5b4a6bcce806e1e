#include "Presentation/ContactSheet.h"

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
    // Four frames: three columns, the fourth at the left of the second row.
    const auto four = ContactSheet::cells(1936, 728, 4);
    ASSERT_TRUE(four);
    ASSERT_EQ(four->size(), 4u);
    EXPECT_EQ(four->back(), (Cell{0, 368, 640, 360}));
    // Rows of a single pixel still count.
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
