#include "Capture/ChromiumBrowsers.h"

namespace keepery {

const std::set<std::string, std::less<>>& ChromiumBrowsers::bundleIDs() {
    static const std::set<std::string, std::less<>> identifiers{
        "com.google.Chrome",       "com.google.Chrome.beta",     "com.google.Chrome.canary",
        "ai.perplexity.comet",     "company.thebrowser.Browser", "company.thebrowser.dia",
        "com.brave.Browser",       "com.microsoft.edgemac",      "com.vivaldi.Vivaldi",
        "com.operasoftware.Opera", "org.chromium.Chromium"};
    return identifiers;
}

} // namespace keepery
