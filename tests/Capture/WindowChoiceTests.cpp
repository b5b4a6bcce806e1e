#include "Capture/WindowChoice.h"

#include <gtest/gtest.h>

#include <vector>

using namespace keepery;

namespace {

WindowEntry window(std::int64_t number, std::int64_t pid, std::string title, ScreenRect frame,
                   std::string owner = "App", std::int64_t layer = 0) {
    return {number,  pid,     std::move(owner), std::move(title), layer,
            frame.x, frame.y, frame.width,      frame.height};
}

std::optional<std::int64_t> picked(const std::vector<WindowEntry>& windows,
                                   const WindowChoice::Situation& situation = {}) {
    const std::optional<WindowEntry> choice = WindowChoice::pick(windows, situation);
    return choice ? std::optional(choice->number) : std::nullopt;
}

} // namespace

TEST(WindowChoice, OnlyOrdinaryNamedLargeEnoughWindowsQualify) {
    EXPECT_EQ(picked({}), std::nullopt);
    EXPECT_EQ(picked({window(1, 10, "Menu", {0, 0, 500, 500}, "App", 25)}), std::nullopt);
    EXPECT_EQ(picked({window(1, 10, "", {0, 0, 100, 100})}), 1);
    EXPECT_EQ(picked({window(1, 10, "Strip", {0, 0, 99.5, 400}), window(2, 10, "", {0, 0, 400, 99.9})}),
              std::nullopt);
    // An owner-less window is passed over even when it belongs to the frontmost application.
    EXPECT_EQ(
        picked({window(1, 10, "Overlay", {0, 0, 800, 600}, ""), window(2, 20, "Other", {0, 0, 200, 200})},
               {.frontmostPID = 10}),
        2);
    // Excluding the frontmost application leaves the choice to the others.
    EXPECT_EQ(picked({window(1, 10, "Mine", {0, 0, 800, 600}), window(2, 20, "Theirs", {0, 0, 200, 200})},
                     {.frontmostPID = 10, .excludingPID = 10}),
              2);
    EXPECT_EQ(picked({window(1, 10, "Mine", {0, 0, 800, 600})}, {.excludingPID = 10}), std::nullopt);
}

TEST(WindowChoice, TheFocusedWindowOfTheFrontmostApplicationWins) {
    const std::vector<WindowEntry> windows{
        window(1, 20, "Other app", {0, 0, 1000, 1000}),
        window(2, 10, "First", {0, 0, 400, 400}),
        window(3, 10, "Second", {300, 0, 400, 400}),
    };
    // Overlaps: First 100 × 100, Second 300 × 100; Other app is not in the frontmost pool at all.
    EXPECT_EQ(picked(windows, {.frontmostPID = 10, .focusedFrame = ScreenRect{300, 0, 300, 100}}), 3);
    // Equal overlap keeps the earlier window.
    EXPECT_EQ(picked(windows, {.frontmostPID = 10, .focusedFrame = ScreenRect{300, 0, 100, 100}}), 2);
    // Overlapping none (touching an edge is no overlap): the frontmost application's first titled window.
    EXPECT_EQ(picked(windows, {.frontmostPID = 10, .focusedFrame = ScreenRect{700, 0, 50, 50}}), 2);
    EXPECT_EQ(picked({window(1, 10, "", {0, 0, 400, 400}), window(2, 10, "Titled", {0, 0, 100, 100})},
                     {.frontmostPID = 10, .focusedFrame = ScreenRect{2000, 2000, 10, 10}}),
              2);
    // Without a frontmost application the focused frame plays no part.
    EXPECT_EQ(picked(windows, {.focusedFrame = ScreenRect{300, 0, 300, 100}}), 1);
}

TEST(WindowChoice, FallsBackToTheFirstTitledThenTheLargestWindow) {
    const std::vector<WindowEntry> untitled{
        window(1, 10, "", {0, 0, 200, 300}),
        window(2, 20, "", {0, 0, 300, 300}),
        window(3, 30, "", {0, 0, 450, 200}),
    };
    EXPECT_EQ(picked(untitled), 2); // 90 000 ties with the later 90 000: the earlier stays
    EXPECT_EQ(picked(untitled, {.frontmostPID = 99}), 2);
    std::vector<WindowEntry> titled = untitled;
    titled.push_back(window(4, 40, "Notes", {0, 0, 100, 100}));
    EXPECT_EQ(picked(titled), 4);
    // A frontmost application with no qualifying window: the choice is made over every application.
    titled.push_back(window(5, 50, "Tiny", {0, 0, 50, 50}));
    EXPECT_EQ(picked(titled, {.frontmostPID = 50, .focusedFrame = ScreenRect{0, 0, 50, 50}}), 4);
    // Within the frontmost pool the largest wins when none has a title, whatever comes earlier outside it.
    EXPECT_EQ(picked(untitled, {.frontmostPID = 10}), 1);
}
