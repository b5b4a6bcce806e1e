#include "Presentation/ContactSheet.h"

#include <algorithm>

namespace keepery {

std::optional<std::vector<ContactSheet::Cell>> ContactSheet::cells(std::int64_t width, std::int64_t height,
                                                                   std::int64_t frames) {
    if (frames < 1 || height < 1) {
        return std::nullopt;
    }
    const std::int64_t columns = std::min(frames, maximumColumns);
    const std::int64_t rows = frames / columns + (frames % columns != 0 ? 1 : 0);
    if (width != columns * cellWidth + (columns - 1) * gap) {
        return std::nullopt;
    }
    // Rows of at least one pixel need rows × (1 + gap) − gap ≤ height; checking that first keeps the
    // products below from overflowing for absurd frame counts.
    if (rows > height / (1 + gap) + (height % (1 + gap) + gap) / (1 + gap)) {
        return std::nullopt;
    }
    const std::int64_t cellHeight = (height - (rows - 1) * gap) / rows;
    if (cellHeight < 1 || rows * cellHeight + (rows - 1) * gap != height) {
        return std::nullopt;
    }
    std::vector<Cell> result;
    result.reserve(static_cast<std::size_t>(frames));
    for (std::int64_t i = 0; i < frames; ++i) {
        result.push_back(Cell{.x = (i % columns) * (cellWidth + gap),
                              .y = (i / columns) * (cellHeight + gap),
                              .width = cellWidth,
                              .height = cellHeight});
    }
    return result;
}

} // namespace keepery
