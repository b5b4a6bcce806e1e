#pragma once

#include "Capture/WebAddress.h"

#include <string_view>
#include <vector>

namespace keepery {

// Where to fetch a picture found on a page from, best first. Pure; any thread.
struct ImageSources {
    ImageSources() = delete;

    // The public encyclopedia's media servers: the upload server holds the originals, the thumbnail
    // server the sized copies under ".../thumb/<hash>/<name>/<width>px-<name>".
    static constexpr std::string_view uploadHost = "upload.wikimedia.org";
    static constexpr std::string_view thumbnailHost = "thumb.wikimedia.org";

    // The addresses to try for `address`, never empty. For a sized copy on either media server (host
    // compared in lower case, a "thumb" segment followed by at least two more), first the full-size
    // original on the upload server over https (the path without that "thumb" segment and without the
    // last segment), then `address` itself; for every other address just `address`.
    [[nodiscard]] static std::vector<WebAddress> candidates(const WebAddress& address);
};

} // namespace keepery
