#include "Capture/CaptureKeys.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace keepery {
namespace {

using G = BothSidesGesture;
constexpr std::uint64_t capsLock = 0x10000;
constexpr std::uint64_t key = ~std::uint64_t{0}; // an ordinary key pressed, not a change of modifiers
// What the platform reports while a side key is down: its own bit and the modifier's either-side bit.
constexpr std::uint64_t leftCmd = G::leftCommand | G::command;
constexpr std::uint64_t rightCmd = G::rightCommand | G::command;
constexpr std::uint64_t bothCmd = G::leftCommand | G::rightCommand | G::command;
constexpr std::uint64_t leftOpt = G::leftOption | G::option;
constexpr std::uint64_t bothOpt = G::leftOption | G::rightOption | G::option;

// Feeds the steps to a fresh gesture and spells what each did: "F" fired, "." did not, "k" a key press.
std::string run(CaptureKeys keys, const std::vector<std::uint64_t>& steps) {
    G gesture = *keys.gesture();
    std::string did;
    for (const std::uint64_t step : steps) {
        if (step == key) {
            gesture.keyDown();
            did += 'k';
        } else {
            did += gesture.flagsChanged(step) ? 'F' : '.';
        }
    }
    return did;
}

TEST(BothSidesGesture, FiresOncePerHoldOfBothSideKeysUnlessSomethingElseWasPressed) {
    const CaptureKeys commands = CaptureKeys::bothCommands;
    const CaptureKeys options = CaptureKeys::bothOptions;
    const std::vector<std::tuple<CaptureKeys, std::vector<std::uint64_t>, std::string>> cases{
        // Any change while a side key stays down keeps the hold fired; both keys up rearm it.
        {commands,
         {leftCmd, bothCmd, bothCmd | capsLock, leftCmd, bothCmd, 0, rightCmd, bothCmd},
         ".F.....F"},
        // A key pressed while either side key is held spoils the hold; with none held it changes nothing,
        // and the either-side bit alone is no side key.
        {commands, {leftCmd, key, bothCmd, leftCmd, bothCmd, 0, leftCmd, bothCmd}, ".k.....F"},
        {commands, {rightCmd, key, bothCmd}, ".k."},
        {commands, {key, leftCmd, bothCmd}, "k.F"},
        {commands, {rightCmd, 0, key, leftCmd, bothCmd}, "..k.F"},
        {commands, {G::command, key, leftCmd, bothCmd}, ".k.F"},
        // Another modifier spoils the hold until both side keys are up, even when it is released first.
        {commands, {G::shift | leftCmd, G::shift | bothCmd, bothCmd, 0, leftCmd, bothCmd}, ".....F"},
        {commands, {leftCmd | G::option, bothCmd}, ".."},
        {commands, {leftCmd, bothCmd | G::control}, ".."},
        {commands, {leftCmd, bothCmd | G::function}, ".."},
        {options, {leftOpt, bothOpt}, ".F"},
        {options, {leftOpt | G::command, bothOpt}, ".."},
    };
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const auto& [keys, steps, did] = cases[i];
        EXPECT_EQ(run(keys, steps), did) << "case " << i;
    }
}

TEST(CaptureKeys, ShortcutMatchesOnlyControlOptionCommandK) {
    EXPECT_TRUE(CaptureKeys::isShortcut(40, 0x1C0000 | capsLock));
    EXPECT_TRUE(CaptureKeys::isShortcut(40, 0x1C0000 | G::leftCommand | G::rightOption)); // device bits
    EXPECT_FALSE(CaptureKeys::isShortcut(40, 0x1C0000 | G::shift));
    EXPECT_FALSE(CaptureKeys::isShortcut(40, 0x1C0000 | G::function));
    EXPECT_FALSE(CaptureKeys::isShortcut(40, G::control | G::command));
    EXPECT_FALSE(CaptureKeys::isShortcut(41, 0x1C0000));
}

TEST(CaptureKeys, TitlesAndCaps) {
    EXPECT_EQ(CaptureKeys(CaptureKeys::bothCommands).title(), "Both \u2318 keys");
    EXPECT_EQ(CaptureKeys(CaptureKeys::bothOptions).title(), "Both \u2325 keys");
    EXPECT_EQ(CaptureKeys(CaptureKeys::shortcut).title(), "\u2303\u2325\u2318K");
    const auto caps = CaptureKeys(CaptureKeys::shortcut).caps();
    EXPECT_EQ(std::vector<std::string>(caps.begin(), caps.end()),
              (std::vector<std::string>{"\u2303", "\u2325", "\u2318", "K"}));
    EXPECT_EQ(CaptureKeys(CaptureKeys::bothCommands).caps().size(), 2u);
    EXPECT_EQ(CaptureKeys(CaptureKeys::shortcut).gesture(), std::nullopt);
}

} // namespace
} // namespace keepery
