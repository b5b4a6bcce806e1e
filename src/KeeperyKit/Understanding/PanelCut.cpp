#include "Understanding/PanelCut.h"

#include <algorithm>
#include <cstdlib>

namespace keepery::PanelCut {
namespace {

// Deep enough for any real layout; a pathological image stops being cut beyond it.
constexpr int maximumDepth = 32;

// Whether the `count` pixels read by `at(i)` are blank: every two colour changes that are not part of one
// anti-aliased edge lie at least `minimumRunBetweenChanges` apart.
template <typename Pixel>
bool blank(int count, Pixel at) {
    int transitionStart = -minimumRunBetweenChanges - transitionWidth - 1;
    int lastChange = transitionStart;
    int previous = at(0);
    for (int i = 1; i < count; ++i) {
        const int value = at(i);
        if (std::abs(value - previous) > changeThreshold) {
            // A transition is capped in width so that the dense strokes of text never read as one edge.
            if (i - transitionStart > transitionWidth) {
                if (i - lastChange < minimumRunBetweenChanges) {
                    return false;
                }
                transitionStart = i;
            }
            lastChange = i;
        }
        previous = value;
    }
    return true;
}

// The [start, end) ranges between runs of at least `minimumGap` blank entries; the first starts at the
// first non-blank entry and the last ends after the last one. Each range is widened to the middle of the
// gaps around it so that the recursion has background to keep as margin.
std::vector<std::pair<int, int>> piecesBetweenGaps(const std::vector<bool>& isBlank, int minimumGap) {
    std::vector<std::pair<int, int>> pieces;
    const int count = static_cast<int>(isBlank.size());
    int pieceStart = -1;
    int i = 0;
    while (i < count) {
        if (!isBlank[static_cast<std::size_t>(i)]) {
            if (pieceStart < 0) {
                pieceStart = i;
            }
            ++i;
            continue;
        }
        int gapEnd = i;
        while (gapEnd < count && isBlank[static_cast<std::size_t>(gapEnd)]) {
            ++gapEnd;
        }
        if (pieceStart >= 0 && gapEnd < count && gapEnd - i >= minimumGap) {
            pieces.emplace_back(pieceStart, i);
            pieceStart = -1;
        }
        i = gapEnd;
    }
    if (pieceStart >= 0) {
        int end = count;
        while (end > pieceStart && isBlank[static_cast<std::size_t>(end - 1)]) {
            --end;
        }
        pieces.emplace_back(pieceStart, end);
    }
    for (std::size_t p = 0; p < pieces.size(); ++p) {
        const int before = p == 0 ? 0 : (pieces[p - 1].second + pieces[p].first) / 2;
        const int after = p + 1 == pieces.size() ? count : (pieces[p].second + pieces[p + 1].first) / 2;
        pieces[p] = {before, after};
    }
    return pieces;
}

class Cutter {
public:
    Cutter(const GrayImage& image, std::vector<Rectangle>& out) : image_(image), out_(out) {}

    void cut(const Rectangle& region, int depth) {
        std::vector<bool> blankColumns(static_cast<std::size_t>(region.width));
        for (int x = 0; x < region.width; ++x) {
            blankColumns[static_cast<std::size_t>(x)] =
                blank(region.height, [&](int y) { return pixel(region.x + x, region.y + y); });
        }
        std::vector<bool> blankRows(static_cast<std::size_t>(region.height));
        for (int y = 0; y < region.height; ++y) {
            blankRows[static_cast<std::size_t>(y)] =
                blank(region.width, [&](int x) { return pixel(region.x + x, region.y + y); });
        }
        const auto columns = piecesBetweenGaps(blankColumns, minimumColumnGap);
        const auto rows = piecesBetweenGaps(blankRows, minimumRowGap);
        if (columns.empty() || rows.empty()) {
            return;
        }
        // Title, tab and status bars span the window above and below its panels: they are taken off first,
        // or a cut between panels would give each bar to whichever panel lies under its text.
        if (depth < maximumDepth && rows.size() > 1) {
            const auto strip = [](const std::pair<int, int>& piece) {
                return piece.second - piece.first <= maximumBarHeight;
            };
            const bool top = strip(rows.front());
            const bool bottom = strip(rows.back());
            if (top || bottom) {
                const int middleStart = top ? rows.front().second : 0;
                const int middleEnd = bottom ? rows.back().first : region.height;
                if (top) {
                    cut({region.x, region.y, region.width, middleStart}, depth + 1);
                }
                if (middleEnd > middleStart) {
                    cut({region.x, region.y + middleStart, region.width, middleEnd - middleStart}, depth + 1);
                }
                if (bottom && rows.size() > 1) {
                    cut({region.x, region.y + middleEnd, region.width, region.height - middleEnd}, depth + 1);
                }
                return;
            }
        }
        if (depth < maximumDepth && columns.size() > 1) {
            for (const auto& [start, end] : columns) {
                cut({region.x + start, region.y, end - start, region.height}, depth + 1);
            }
            return;
        }
        if (depth < maximumDepth && rows.size() > 1) {
            for (const auto& [start, end] : rows) {
                cut({region.x, region.y + start, region.width, end - start}, depth + 1);
            }
            return;
        }
        const int left = firstFalse(blankColumns);
        const int right = lastFalse(blankColumns) + 1;
        const int top = firstFalse(blankRows);
        const int bottom = lastFalse(blankRows) + 1;
        const int x0 = std::max(0, left - margin);
        const int y0 = std::max(0, top - margin);
        const int x1 = std::min(region.width, right + margin);
        const int y1 = std::min(region.height, bottom + margin);
        out_.push_back({region.x + x0, region.y + y0, x1 - x0, y1 - y0});
    }

private:
    int pixel(int x, int y) const {
        return image_.pixels[static_cast<std::size_t>(y) * static_cast<std::size_t>(image_.width) +
                             static_cast<std::size_t>(x)];
    }
    static int firstFalse(const std::vector<bool>& flags) {
        return static_cast<int>(std::find(flags.begin(), flags.end(), false) - flags.begin());
    }
    static int lastFalse(const std::vector<bool>& flags) {
        return static_cast<int>(flags.rend() - std::find(flags.rbegin(), flags.rend(), false)) - 1;
    }

    const GrayImage& image_;
    std::vector<Rectangle>& out_;
};

} // namespace

std::vector<Rectangle> panels(const GrayImage& image) {
    std::vector<Rectangle> out;
    if (image.width <= 0 || image.height <= 0 ||
        image.pixels.size() <
            static_cast<std::size_t>(image.width) * static_cast<std::size_t>(image.height)) {
        return out;
    }
    Cutter(image, out).cut({0, 0, image.width, image.height}, 0);
    return out;
}

} // namespace keepery::PanelCut
