#include "Capture/WindowChoice.h"

#include <vector>

namespace keepery {
namespace {

bool qualifies(const WindowEntry& window, std::optional<std::int64_t> excludingPID) {
    return window.layer == 0 && !window.owner.empty() && (!excludingPID || window.pid != *excludingPID) &&
           window.width >= WindowChoice::minimumSide && window.height >= WindowChoice::minimumSide;
}

// The first titled window, else the largest; `windows` is not empty.
const WindowEntry& generalChoice(const std::vector<const WindowEntry*>& windows) {
    for (const WindowEntry* window : windows) {
        if (!window->title.empty()) {
            return *window;
        }
    }
    const WindowEntry* largest = windows.front();
    for (const WindowEntry* window : windows) {
        if (window->width * window->height > largest->width * largest->height) {
            largest = window;
        }
    }
    return *largest;
}

} // namespace

std::optional<WindowEntry> WindowChoice::pick(std::span<const WindowEntry> windows,
                                              const Situation& situation) {
    std::vector<const WindowEntry*> candidates;
    std::vector<const WindowEntry*> frontmost;
    for (const WindowEntry& window : windows) {
        if (!qualifies(window, situation.excludingPID)) {
            continue;
        }
        candidates.push_back(&window);
        if (situation.frontmostPID && window.pid == *situation.frontmostPID) {
            frontmost.push_back(&window);
        }
    }
    if (candidates.empty()) {
        return std::nullopt;
    }
    if (frontmost.empty()) {
        return generalChoice(candidates);
    }
    if (situation.focusedFrame) {
        const WindowEntry* best = frontmost.front();
        double bestOverlap = best->frame().overlapArea(*situation.focusedFrame);
        for (const WindowEntry* window : frontmost) {
            if (double overlap = window->frame().overlapArea(*situation.focusedFrame);
                overlap > bestOverlap) {
                best = window;
                bestOverlap = overlap;
            }
        }
        if (bestOverlap > 0) {
            return *best;
        }
    }
    return generalChoice(frontmost);
}

} // namespace keepery
