#include "Capture/PageTarget.h"

#include <gtest/gtest.h>

#include <ostream>
#include <vector>

namespace keepery {

// Readable failures: the case, its frame and its source.
void PrintTo(const PageTarget& target, std::ostream* out) {
    auto frame = [out](const ScreenRect& r) {
        *out << " (" << r.x << ", " << r.y << ", " << r.width << " x " << r.height << ")";
    };
    if (const auto* image = std::get_if<PageTarget::Image>(&target.value)) {
        *out << "image";
        frame(image->frame);
        *out << " from " << (image->source ? image->source->text() : "nowhere");
    } else if (const auto* video = std::get_if<PageTarget::Video>(&target.value)) {
        *out << "video";
        frame(video->frame);
    } else {
        *out << "window";
    }
}

} // namespace keepery

using namespace keepery;

namespace {

PointerNode node(std::string role, ScreenRect frame) {
    return PointerNode{.role = std::move(role), .frame = frame};
}

PointerNode titled(std::string title, ScreenRect frame) {
    return PointerNode{.role = "AXGroup", .title = std::move(title), .frame = frame};
}

PointerNode link(std::string url) {
    return PointerNode{.role = "AXLink", .url = std::move(url), .frame = {0, 0, 80, 16}};
}

PointerNode image(ScreenRect frame, std::optional<std::string> url) {
    return PointerNode{.role = "AXImage", .url = std::move(url), .frame = frame};
}

const ScreenRect small{10, 10, 40, 20};
const ScreenRect large{0, 0, 640, 360};

PageTarget imageFrom(std::string_view url, ScreenRect frame) {
    return PageTarget::image(WebAddress::parse(url), frame);
}

} // namespace

TEST(PageTarget, ClassNamesMatchInsideWordsButWordingNeedsWholeWords) {
    PointerNode wrapper = node("AXGroup", large);
    wrapper.domClasses = {"layout", "vjs-videoembed-wrapper"};
    EXPECT_EQ(PageTarget::decide(std::vector{wrapper}), PageTarget::video(large));
    PointerNode identified = node("AXGroup", large);
    identified.domIdentifier = "moviePlayer"; // compared lower-cased
    EXPECT_EQ(PageTarget::decide(std::vector{identified}), PageTarget::video(large));

    EXPECT_EQ(PageTarget::decide(std::vector{titled("videos of cats", large)}), PageTarget::window());
    EXPECT_EQ(PageTarget::decide(std::vector{titled("Video Player", large)}), PageTarget::video(large));
    EXPECT_EQ(PageTarget::decide(std::vector{titled("the_player", large)}), PageTarget::window());
    // Role description, title and description are read as one text with blanks between them.
    PointerNode parts = node("AXGroup", large);
    parts.roleDescription = "html";
    parts.title = "video";
    EXPECT_EQ(PageTarget::decide(std::vector{parts}), PageTarget::video(large));
    PointerNode described = node("AXGroup", large);
    described.description = "embedded player, paused";
    EXPECT_EQ(PageTarget::decide(std::vector{described}), PageTarget::video(large));
}

TEST(PageTarget, SmallOrDistantVideoElementsArePassedOver) {
    const ScreenRect tall{0, 0, 150, 300};
    const ScreenRect exact{5, 5, 160, 90};
    EXPECT_EQ(PageTarget::decide(std::vector{node("AXVideo", tall), node("AXVideo", exact)}),
              PageTarget::video(exact));
    EXPECT_EQ(PageTarget::decide(std::vector{node("AXVideo", {0, 0, 160, 89.5})}), PageTarget::window());

    std::vector<PointerNode> nodes(6, node("AXGroup", small));
    nodes.push_back(node("AXVideo", large)); // index 6, the seventh: still searched
    EXPECT_EQ(PageTarget::decide(nodes), PageTarget::video(large));
    nodes.insert(nodes.begin(), node("AXGroup", small)); // now index 7, the eighth
    EXPECT_EQ(PageTarget::decide(nodes), PageTarget::window());
}

TEST(PageTarget, AVideoFileAddressTakesTheFirstLargeElementBeforeIt) {
    const ScreenRect player{0, 0, 320, 180};
    EXPECT_EQ(PageTarget::decide(std::vector{node("AXGroup", player), node("AXGroup", small),
                                             link("https://cdn.example.com/media/clip.MP4?t=3#start")}),
              PageTarget::video(player));
    // Found beyond the seventh element too.
    std::vector<PointerNode> deep(9, node("AXGroup", small));
    deep[1].frame = player;
    deep.push_back(link("https://cdn.example.com/a.webm"));
    EXPECT_EQ(PageTarget::decide(deep), PageTarget::video(player));
    // On the first element there is nothing before it: on to images.
    EXPECT_EQ(PageTarget::decide(std::vector{link("https://cdn.example.com/a.mov"), node("AXGroup", large)}),
              PageTarget::window());
    // Only the first video address counts, even if a later one has a large element before it.
    EXPECT_EQ(PageTarget::decide(std::vector{node("AXGroup", small), link("clip.m4v"), node("AXGroup", large),
                                             link("https://cdn.example.com/b.mp4")}),
              PageTarget::window());
    // Addresses that do not parse are skipped; a host or query that looks like a file is no file.
    EXPECT_EQ(PageTarget::decide(std::vector{
                  node("AXGroup", player), link("https://cdn example.com/a.mp4"), link("https://clip.mp4/"),
                  link("https://example.com/watch?v=a.mp4"), link("https://example.com/mp4")}),
              PageTarget::window());
    EXPECT_EQ(PageTarget::decide(std::vector{node("AXGroup", player), link("https://cdn example.com/a.mp4"),
                                             link("/media/clip.mov")}),
              PageTarget::video(player));
}

TEST(PageTarget, ImagesNearThePointerWithTheirWebSources) {
    const ScreenRect picture{20, 30, 200, 150};
    EXPECT_EQ(PageTarget::decide(std::vector{image(picture, "https://example.com/cat.jpg")}),
              imageFrom("https://example.com/cat.jpg", picture));
    EXPECT_EQ(PageTarget::decide(std::vector{image(picture, "HTTP://example.com/cat.jpg")}),
              imageFrom("HTTP://example.com/cat.jpg", picture));
    for (const char* other : {"data:image/png;base64,iVBORw0KGgo=", "file:///tmp/cat.jpg", "/cat.jpg",
                              "https://exa mple.com/cat.jpg"}) {
        EXPECT_EQ(PageTarget::decide(std::vector{image(picture, other)}),
                  PageTarget::image(std::nullopt, picture))
            << other;
    }
    EXPECT_EQ(PageTarget::decide(std::vector{image(picture, std::nullopt)}),
              PageTarget::image(std::nullopt, picture));

    const ScreenRect square{0, 0, 120, 120};
    EXPECT_EQ(
        PageTarget::decide(std::vector{node("AXGroup", small), node("AXGroup", small), image(square, {})}),
        PageTarget::image(std::nullopt, square));
    // The first image decides: too small means the window, whatever follows.
    EXPECT_EQ(PageTarget::decide(std::vector{image({0, 0, 100, 100}, {}), image(picture, {})}),
              PageTarget::window());
    EXPECT_EQ(PageTarget::decide(std::vector{image({0, 0, 119.5, 400}, {})}), PageTarget::window());
    EXPECT_EQ(PageTarget::decide(std::vector{node("AXGroup", small), node("AXGroup", small),
                                             node("AXGroup", small), image(picture, {})}),
              PageTarget::window());
    EXPECT_EQ(PageTarget::decide(std::vector<PointerNode>{}), PageTarget::window());
    // A video around the image is found first.
    EXPECT_EQ(PageTarget::decide(std::vector{image(picture, {}), node("AXVideo", large)}),
              PageTarget::video(large));
}
