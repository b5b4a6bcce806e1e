#include "Capture/PageTarget.h"

#include <gtest/gtest.h>

#include <vector>

namespace keepery {
namespace {

PointerNode node(std::string role, ScreenRect frame) {
    return PointerNode{.role = std::move(role), .frame = frame};
}

PointerNode group(ScreenRect frame) {
    return node("AXGroup", frame);
}

PointerNode titled(std::string title, ScreenRect frame) {
    return PointerNode{.role = "AXGroup", .title = std::move(title), .frame = frame};
}

PointerNode link(std::string url) {
    return PointerNode{.role = "AXLink", .url = std::move(url), .frame = {0, 0, 80, 16}};
}

PointerNode image(ScreenRect frame, std::optional<std::string> url = std::nullopt) {
    return PointerNode{.role = "AXImage", .url = std::move(url), .frame = frame};
}

const ScreenRect small{10, 10, 40, 20};
const ScreenRect large{0, 0, 640, 360};
const ScreenRect player{0, 0, 320, 180};
const ScreenRect picture{20, 30, 200, 150};

void expectDecisions(const std::vector<std::pair<std::vector<PointerNode>, PageTarget>>& cases) {
    for (std::size_t i = 0; i < cases.size(); ++i) {
        EXPECT_TRUE(PageTarget::decide(cases[i].first) == cases[i].second) << "case " << i;
    }
}

TEST(PageTarget, AVideoByRoleOrWordingAmongTheFirstSevenLargeEnoughElements) {
    std::vector<PointerNode> seventh(6, group(small));
    seventh.push_back(node("AXVideo", large));
    std::vector<PointerNode> eighth = seventh;
    eighth.insert(eighth.begin(), group(small));
    expectDecisions({
        // Class names and identifiers match inside words, in any case; wording needs whole words, and
        // role description, title and description read as one text.
        {{PointerNode{.role = "AXGroup", .frame = large, .domClasses = {"layout", "vjs-videoembed-wrapper"}}},
         PageTarget::video(large)},
        {{PointerNode{.role = "AXGroup", .frame = large, .domIdentifier = "moviePlayer"}},
         PageTarget::video(large)},
        {{titled("videos of cats", large)}, PageTarget::window()},
        {{titled("Video Player", large)}, PageTarget::video(large)},
        {{titled("the_player", large)}, PageTarget::window()},
        {{PointerNode{.role = "AXGroup", .roleDescription = "html", .title = "video", .frame = large}},
         PageTarget::video(large)},
        {{PointerNode{.role = "AXGroup", .description = "embedded player, paused", .frame = large}},
         PageTarget::video(large)},
        // Too narrow, then just large enough; too short; the seventh element, the eighth.
        {{node("AXVideo", {0, 0, 150, 300}), node("AXVideo", {5, 5, 160, 90})},
         PageTarget::video({5, 5, 160, 90})},
        {{node("AXVideo", {0, 0, 160, 89.5})}, PageTarget::window()},
        {seventh, PageTarget::video(large)},
        {eighth, PageTarget::window()},
    });
}

TEST(PageTarget, AVideoFileAddressTakesTheFirstLargeElementBeforeIt) {
    std::vector<PointerNode> deep(9, group(small));
    deep[1].frame = player;
    deep.push_back(link("https://cdn.example.com/a.webm"));
    expectDecisions({
        {{group(player), group(small), link("https://cdn.example.com/media/clip.MP4?t=3#start")},
         PageTarget::video(player)},
        {deep, PageTarget::video(player)}, // beyond the seventh element too
        // Nothing before the first element; only the first video address counts.
        {{link("https://cdn.example.com/a.mov"), group(large)}, PageTarget::window()},
        {{group(small), link("clip.m4v"), group(large), link("https://cdn.example.com/b.mp4")},
         PageTarget::window()},
        // Addresses that do not parse are skipped; a host or query that looks like a file is no file.
        {{group(player), link("https://cdn example.com/a.mp4"), link("https://clip.mp4/"),
          link("https://example.com/watch?v=a.mp4"), link("https://example.com/mp4")},
         PageTarget::window()},
        {{group(player), link("https://cdn example.com/a.mp4"), link("/media/clip.mov")},
         PageTarget::video(player)},
    });
}

TEST(PageTarget, TheFirstOfTheFirstThreeElementsThatIsAnImageWithItsWebSource) {
    const auto from = [](std::string_view url) { return PageTarget::image(WebAddress::parse(url), picture); };
    const PageTarget sourceless = PageTarget::image(std::nullopt, picture);
    expectDecisions({
        {{image(picture, "https://example.com/cat.jpg")}, from("https://example.com/cat.jpg")},
        {{image(picture, "HTTP://example.com/cat.jpg")}, from("HTTP://example.com/cat.jpg")},
        {{image(picture, "data:image/png;base64,iVBORw0KGgo=")}, sourceless},
        {{image(picture, "file:///tmp/cat.jpg")}, sourceless},
        {{image(picture, "/cat.jpg")}, sourceless},
        {{image(picture, "https://exa mple.com/cat.jpg")}, sourceless},
        {{image(picture)}, sourceless},
        {{group(small), group(small), image({0, 0, 120, 120})},
         PageTarget::image(std::nullopt, {0, 0, 120, 120})},
        // The first image decides: too small means the window, whatever follows.
        {{image({0, 0, 100, 100}), image(picture)}, PageTarget::window()},
        {{image({0, 0, 119.5, 400})}, PageTarget::window()},
        {{group(small), group(small), group(small), image(picture)}, PageTarget::window()},
        {{}, PageTarget::window()},
        {{image(picture), node("AXVideo", large)}, PageTarget::video(large)}, // a video around it comes first
    });
}

} // namespace
} // namespace keepery
