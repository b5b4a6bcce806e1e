#include "Capture/CaptureKeys.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace keepery;

namespace {

using G = BothSidesGesture;
constexpr std::uint64_t capsLock = 0x10000;
// What the platform reports while a side key is down: its own bit and the modifier's either-side bit.
constexpr std::uint64_t leftCmd = G::leftCommand | G::command;
constexpr std::uint64_t rightCmd = G::rightCommand | G::command;
constexpr std::uint64_t bothCmd = G::leftCommand | G::rightCommand | G::command;
constexpr std::uint64_t bothOpt = G::leftOption | G::rightOption | G::option;

G commandGesture() {
    return *CaptureKeys(CaptureKeys::bothCommands).gesture();
}

std::vector<std::string> strings(std::span<const std::string_view> caps) {
    return {caps.begin(), caps.end()};
}

} // namespace

TEST(BothSidesGesture, FiresOncePerHoldAndRearmsOnlyWhenBothKeysAreUp) {
    G g = commandGesture();
    EXPECT_FALSE(g.flagsChanged(leftCmd));
    EXPECT_TRUE(g.holding);
    EXPECT_TRUE(g.flagsChanged(bothCmd));
    EXPECT_TRUE(g.fired);
    // Any change while a side key stays down keeps the hold fired: caps lock, or lifting and pressing again.
    EXPECT_FALSE(g.flagsChanged(bothCmd | capsLock));
    EXPECT_FALSE(g.flagsChanged(leftCmd));
    EXPECT_FALSE(g.flagsChanged(bothCmd));
    EXPECT_FALSE(g.flagsChanged(0));
    EXPECT_EQ(g, commandGesture());
    // The right key first works as well.
    EXPECT_FALSE(g.flagsChanged(rightCmd));
    EXPECT_TRUE(g.flagsChanged(bothCmd));
}

TEST(BothSidesGesture, AnOrdinaryKeyDuringTheHoldSpoilsIt) {
    G g = commandGesture();
    EXPECT_FALSE(g.flagsChanged(leftCmd));
    g.keyDown(); // Command-C
    EXPECT_TRUE(g.spoiled);
    EXPECT_FALSE(g.flagsChanged(bothCmd));
    EXPECT_FALSE(g.flagsChanged(leftCmd));
    EXPECT_FALSE(g.flagsChanged(bothCmd));
    EXPECT_FALSE(g.flagsChanged(0));
    EXPECT_FALSE(g.flagsChanged(leftCmd));
    EXPECT_TRUE(g.flagsChanged(bothCmd));

    // Held on the right side alone, a key press spoils too; with nothing held it changes nothing.
    G right = commandGesture();
    EXPECT_FALSE(right.flagsChanged(rightCmd));
    right.keyDown();
    EXPECT_TRUE(right.spoiled);
    G idle = commandGesture();
    idle.keyDown();
    EXPECT_EQ(idle, commandGesture());
}

TEST(BothSidesGesture, OtherModifiersSpoilUntilBothSideKeysAreReleased) {
    G g = commandGesture();
    EXPECT_FALSE(g.flagsChanged(G::shift | leftCmd));
    EXPECT_TRUE(g.spoiled);
    EXPECT_FALSE(g.flagsChanged(G::shift | bothCmd));
    EXPECT_FALSE(g.flagsChanged(bothCmd)); // Shift released alone: still spoiled
    EXPECT_TRUE(g.spoiled);
    EXPECT_FALSE(g.flagsChanged(0));
    EXPECT_FALSE(g.spoiled);
    EXPECT_FALSE(g.flagsChanged(leftCmd));
    EXPECT_TRUE(g.flagsChanged(bothCmd));

    // Option spoils the Command gesture; Command spoils the Option gesture, but its own either-side bit
    // (always set with a side key) does not.
    G commands = commandGesture();
    EXPECT_FALSE(commands.flagsChanged(leftCmd | G::option));
    EXPECT_FALSE(commands.flagsChanged(bothCmd));
    G options = *CaptureKeys(CaptureKeys::bothOptions).gesture();
    EXPECT_FALSE(options.flagsChanged(G::leftOption | G::option));
    EXPECT_TRUE(options.flagsChanged(bothOpt));
    G optionsWithCommand = *CaptureKeys(CaptureKeys::bothOptions).gesture();
    EXPECT_FALSE(optionsWithCommand.flagsChanged(G::leftOption | G::option | G::command));
    EXPECT_FALSE(optionsWithCommand.flagsChanged(bothOpt));
    for (std::uint64_t other : {G::control, G::function}) {
        G spoiledBy = commandGesture();
        EXPECT_FALSE(spoiledBy.flagsChanged(leftCmd));
        EXPECT_FALSE(spoiledBy.flagsChanged(bothCmd | other)) << other;
    }
}

TEST(BothSidesGesture, HoldingFollowsEitherSideKey) {
    G g = commandGesture();
    EXPECT_FALSE(g.flagsChanged(rightCmd));
    EXPECT_TRUE(g.holding);
    EXPECT_FALSE(g.flagsChanged(0));
    EXPECT_FALSE(g.holding);
    EXPECT_FALSE(g.spoiled);
    EXPECT_FALSE(g.fired);
    // The either-side bit alone (no device bit) is not a side key.
    EXPECT_FALSE(g.flagsChanged(G::command));
    EXPECT_FALSE(g.holding);
}

TEST(CaptureKeys, ShortcutMatchesOnlyControlOptionCommandK) {
    EXPECT_TRUE(CaptureKeys::isShortcut(40, 0x1C0000));
    EXPECT_TRUE(CaptureKeys::isShortcut(40, 0x1C0000 | capsLock));
    EXPECT_TRUE(CaptureKeys::isShortcut(40, 0x1C0000 | G::leftCommand | G::rightOption)); // device bits
    EXPECT_FALSE(CaptureKeys::isShortcut(40, 0x1C0000 | G::shift));
    EXPECT_FALSE(CaptureKeys::isShortcut(40, 0x1C0000 | G::function));
    EXPECT_FALSE(CaptureKeys::isShortcut(40, G::control | G::command));
    EXPECT_FALSE(CaptureKeys::isShortcut(41, 0x1C0000));
}

TEST(CaptureKeys, ChoicesTitlesCapsAndDetectors) {
    EXPECT_EQ(CaptureKeys::fromRawValue("shortcut"), CaptureKeys(CaptureKeys::shortcut));
    EXPECT_EQ(CaptureKeys::fromRawValue("bothOptions"), CaptureKeys(CaptureKeys::bothOptions));

    EXPECT_EQ(CaptureKeys(CaptureKeys::bothCommands).title(), "Both \u2318 keys");
    EXPECT_EQ(CaptureKeys(CaptureKeys::bothOptions).title(), "Both \u2325 keys");
    EXPECT_EQ(CaptureKeys(CaptureKeys::shortcut).title(), "\u2303\u2325\u2318K");
    EXPECT_EQ(strings(CaptureKeys(CaptureKeys::bothCommands).caps()),
              (std::vector<std::string>{"\u2318", "\u2318"}));
    EXPECT_EQ(strings(CaptureKeys(CaptureKeys::shortcut).caps()),
              (std::vector<std::string>{"\u2303", "\u2325", "\u2318", "K"}));

    EXPECT_EQ(CaptureKeys(CaptureKeys::shortcut).gesture(), std::nullopt);
    // Which side keys fire it is shown by the gesture tests; which other modifiers spoil it is listed here.
    EXPECT_EQ(CaptureKeys(CaptureKeys::bothOptions).gesture()->others,
              G::shift | G::control | G::command | G::function);
}
