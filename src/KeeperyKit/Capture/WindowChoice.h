#pragma once

#include "Capture/ScreenRect.h"
#include "Capture/WindowEntry.h"

#include <cstdint>
#include <optional>
#include <span>

namespace keepery {

// Which single on-screen window a capture of "what is in front" takes. Pure; any thread.
struct WindowChoice {
    WindowChoice() = delete;

    // A window narrower or lower than this, in screen units, is never chosen (exactly 100 qualifies).
    static constexpr double minimumSide = 100.0;

    // What the front end knows about the moment of capture; every part may be unknown.
    struct Situation {
        // The frontmost application's process.
        std::optional<std::int64_t> frontmostPID{};
        // A process whose windows are never chosen (for example the front end's own).
        std::optional<std::int64_t> excludingPID{};
        // The frame of the frontmost application's focused window.
        std::optional<ScreenRect> focusedFrame{};
    };

    // The window to capture from `windows` (front to back), or absent when none qualifies. Only windows on
    // layer 0 with an owner name, outside the excluded process and at least minimumSide on both sides
    // qualify. The frontmost application's windows win over all others; among them the one overlapping the
    // focused frame most, then the first titled one, then the largest. Without any of the frontmost
    // application's windows, the first titled window of all, then the largest. Ties go to the earlier.
    [[nodiscard]] static std::optional<WindowEntry> pick(std::span<const WindowEntry> windows,
                                                         const Situation& situation);
};

} // namespace keepery
