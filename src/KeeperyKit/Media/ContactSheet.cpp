#include "Media/ContactSheet.h"

#include "Media/VipsImages.h"
#include "Platform/VipsRuntime.h"

#include <algorithm>

namespace keepery {

std::optional<ContactSheet::Geometry> ContactSheet::geometry(std::int64_t frames, std::int64_t firstWidth,
                                                             std::int64_t firstHeight) {
    if (frames < 1) {
        return std::nullopt;
    }
    Geometry sheet;
    sheet.columns = std::min(frames, maximumColumns);
    sheet.rows = frames / sheet.columns + (frames % sheet.columns != 0 ? 1 : 0);
    // Worked out in real numbers and truncated, so that a first frame of any size gives the same cell
    // height as the composer always has.
    sheet.cellHeight = std::max<std::int64_t>(
        1, static_cast<std::int64_t>(static_cast<double>(firstHeight) * static_cast<double>(cellWidth) /
                                     static_cast<double>(std::max<std::int64_t>(firstWidth, 1))));
    sheet.width = sheet.columns * cellWidth + (sheet.columns - 1) * gap;
    sheet.height = sheet.rows * sheet.cellHeight + (sheet.rows - 1) * gap;
    return sheet;
}

std::optional<Image> ContactSheet::draw(const std::vector<Image>& frames) {
    if (frames.empty()) {
        return std::nullopt;
    }
    const auto sheet =
        geometry(static_cast<std::int64_t>(frames.size()), frames.front().width, frames.front().height);
    if (!sheet) {
        return std::nullopt;
    }
    const auto cellsOfSheet = cells(sheet->width, sheet->height, static_cast<std::int64_t>(frames.size()));
    if (!cellsOfSheet) {
        return std::nullopt;
    }
    try {
        VipsRuntime::ensureStarted();
        auto canvas = vips::VImage::black(static_cast<int>(sheet->width), static_cast<int>(sheet->height),
                                          vips::VImage::option()->set("bands", 3))
                          .new_from_image(std::vector<double>{background, background, background})
                          .copy(vips::VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB));
        for (std::size_t i = 0; i < frames.size(); ++i) {
            const Image& frame = frames[i];
            if (frame.width < 1 || frame.height < 1 || frame.pixels.empty()) {
                return std::nullopt;
            }
            const Cell& cell = (*cellsOfSheet)[i];
            const auto stretched =
                VipsImages::opaqueRGB(VipsImages::view(frame))
                    .resize(static_cast<double>(cell.width) / frame.width,
                            vips::VImage::option()->set("vscale",
                                                        static_cast<double>(cell.height) / frame.height));
            // Rounding inside the resize may leave a pixel more or less; the cell's size is exact.
            const auto fitted = stretched
                                    .embed(0, 0, static_cast<int>(cell.width), static_cast<int>(cell.height),
                                           vips::VImage::option()->set("extend", VIPS_EXTEND_COPY))
                                    .crop(0, 0, static_cast<int>(cell.width), static_cast<int>(cell.height));
            canvas = canvas.insert(fitted, static_cast<int>(cell.x), static_cast<int>(cell.y));
        }
        return VipsImages::toImage(canvas);
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

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
