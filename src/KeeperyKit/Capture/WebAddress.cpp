#include "Capture/WebAddress.h"

namespace keepery {
std::optional<WebAddress> WebAddress::parse(std::string_view address) {
    std::optional<URI> parts = URI::parse(address);
    if (!parts) {
        return std::nullopt;
    }
    return WebAddress(std::string(address), std::move(*parts));
}

std::string WebAddress::pathExtension() const {
    for (auto it = pathSegments().rbegin(); it != pathSegments().rend(); ++it) {
        if (it->empty()) {
            continue;
        }
        const std::string name = URI::percentDecoded(*it);
        const std::size_t dot = name.rfind('.');
        // A leading dot names a hidden file ("/.mp4"), not an extension.
        if (dot == std::string::npos || dot == 0 || dot + 1 == name.size()) {
            return {};
        }
        return name.substr(dot + 1);
    }
    return {};
}

} // namespace keepery
