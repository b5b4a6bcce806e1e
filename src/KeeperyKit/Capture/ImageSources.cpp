#include "Capture/ImageSources.h"

#include "Platform/Text.h"

#include <algorithm>
#include <string>

namespace keepery {

std::vector<WebAddress> ImageSources::candidates(const WebAddress& address) {
    if (!address.host()) {
        return {address};
    }
    const std::string host = Text::lowercased(*address.host());
    if (host != uploadHost && host != thumbnailHost) {
        return {address};
    }
    std::vector<std::string> segments;
    for (const std::string& segment : address.pathSegments()) {
        if (!segment.empty()) {
            segments.push_back(segment);
        }
    }
    const auto thumb = std::find(segments.begin(), segments.end(), "thumb");
    if (thumb == segments.end() || segments.end() - thumb < 3) {
        return {address};
    }
    // The segments are reused as written, percent-encoding included, so the original keeps the file's
    // name byte for byte.
    std::string original = "https://";
    original += uploadHost;
    for (auto segment = segments.begin(); segment != segments.end() - 1; ++segment) {
        if (segment != thumb) {
            original += '/';
            original += *segment;
        }
    }
    std::optional<WebAddress> parsed = WebAddress::parse(original);
    if (!parsed) {
        return {address};
    }
    return {std::move(*parsed), address};
}

} // namespace keepery
