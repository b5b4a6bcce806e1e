#pragma once

#include <set>
#include <string>

namespace keepery {

// The browsers built on Chromium, known by their application bundle identifiers.
struct ChromiumBrowsers {
    ChromiumBrowsers() = delete;

    // The 11 identifiers; membership is exact and case-sensitive, and `contains` takes a string_view.
    // Built once; any thread.
    [[nodiscard]] static const std::set<std::string, std::less<>>& bundleIDs();
};

} // namespace keepery
