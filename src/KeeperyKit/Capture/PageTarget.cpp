#include "Capture/PageTarget.h"

#include "Platform/Regex.h"
#include "Platform/Text.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace keepery {
namespace {

constexpr std::string_view videoRole = "AXVideo";
constexpr std::string_view imageRole = "AXImage";
constexpr std::array<std::string_view, 4> videoExtensions{"mp4", "webm", "mov", "m4v"};

// ICU's "\b" is the word boundary the wording rule means: letters, marks, digits and connectors are word
// characters.
bool containsVideoWord(const std::string& lowercasedText) {
    static const Regex videoWord("\\b(video|player)\\b");
    return videoWord.firstMatch(lowercasedText).has_value();
}

bool isVideoLike(const PointerNode& node) {
    if (node.role == videoRole) {
        return true;
    }
    if (containsVideoWord(
            Text::lowercased(node.roleDescription + " " + node.title + " " + node.description))) {
        return true;
    }
    // Class names match anywhere, also inside longer words ("video-wrapper", "jwplayer").
    std::string page = node.domIdentifier;
    for (const std::string& name : node.domClasses) {
        page += ' ';
        page += name;
    }
    page = Text::lowercased(page);
    return page.find("video") != std::string::npos || page.find("player") != std::string::npos;
}

bool namesVideoFile(const PointerNode& node) {
    if (!node.url) {
        return false;
    }
    const std::optional<WebAddress> address = WebAddress::parse(*node.url);
    if (!address) {
        return false;
    }
    const std::string extension = Text::lowercased(address->pathExtension());
    return std::find(videoExtensions.begin(), videoExtensions.end(), extension) != videoExtensions.end();
}

std::optional<WebAddress> webSource(const std::optional<std::string>& url) {
    if (!url) {
        return std::nullopt;
    }
    std::optional<WebAddress> address = WebAddress::parse(*url);
    if (!address) {
        return std::nullopt;
    }
    const std::string scheme = Text::lowercased(address->scheme());
    if (scheme != "http" && scheme != "https") {
        return std::nullopt;
    }
    return address;
}

std::optional<PageTarget> videoByRoleOrWording(std::span<const PointerNode> nodes) {
    for (const PointerNode& node : nodes.first(std::min(nodes.size(), PageTarget::videoSearchDepth))) {
        // A small video-like element (a play button, a thumbnail strip) is passed over, not decisive.
        if (node.frame.covers(PageTarget::minimumVideoSize) && isVideoLike(node)) {
            return PageTarget::video(node.frame);
        }
    }
    return std::nullopt;
}

std::optional<PageTarget> videoByFileAddress(std::span<const PointerNode> nodes) {
    const auto link = std::find_if(nodes.begin(), nodes.end(), namesVideoFile);
    if (link == nodes.end()) {
        return std::nullopt;
    }
    // The link itself is usually small text; the player it belongs to lies nearer the pointer.
    for (auto node = nodes.begin(); node != link; ++node) {
        if (node->frame.covers(PageTarget::minimumVideoSize)) {
            return PageTarget::video(node->frame);
        }
    }
    return std::nullopt;
}

PageTarget imageOrWindow(std::span<const PointerNode> nodes) {
    for (const PointerNode& node : nodes.first(std::min(nodes.size(), PageTarget::imageSearchDepth))) {
        if (node.role != imageRole) {
            continue;
        }
        const ScreenSize minimum{PageTarget::minimumImageSide, PageTarget::minimumImageSide};
        if (!node.frame.covers(minimum)) {
            return PageTarget::window();
        }
        return PageTarget::image(webSource(node.url), node.frame);
    }
    return PageTarget::window();
}

} // namespace

PageTarget PageTarget::decide(std::span<const PointerNode> nodes) {
    if (auto video = videoByRoleOrWording(nodes)) {
        return *video;
    }
    if (auto video = videoByFileAddress(nodes)) {
        return *video;
    }
    return imageOrWindow(nodes);
}

} // namespace keepery
