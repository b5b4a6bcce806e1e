#pragma once

#include "Capture/ScreenRect.h"

#include <cstdint>
#include <string>

namespace keepery {

// One on-screen window as the platform's window list reports it. A value; equal when every field is.
struct WindowEntry {
    // The window's identifier in the platform's window list.
    std::int64_t number = 0;
    // Process id of the owning application.
    std::int64_t pid = 0;
    // Name of the owning application; empty when the platform gives none.
    std::string owner{};
    // The window's title; empty when the platform gives none or withholds it.
    std::string title{};
    // Stacking layer; only layer 0 (ordinary windows) can be chosen.
    std::int64_t layer = 0;
    // In the same screen coordinates as the focused-window frame given to WindowChoice::pick.
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;

    bool operator==(const WindowEntry&) const = default;

    [[nodiscard]] ScreenRect frame() const { return {x, y, width, height}; }
};

} // namespace keepery
