#include "Capture/WebAddress.h"

#include <uriparser/Uri.h>

namespace keepery {
namespace {

std::string rangeText(const UriTextRangeA& range) {
    if (range.first == nullptr || range.afterLast == nullptr || range.afterLast <= range.first) {
        return {};
    }
    return std::string(range.first, range.afterLast);
}

std::string percentDecoded(std::string segment) {
    segment.push_back('\0');
    const char* end = uriUnescapeInPlaceExA(segment.data(), URI_FALSE, URI_BR_DONT_TOUCH);
    segment.resize(static_cast<std::size_t>(end - segment.data()));
    return segment;
}

} // namespace

std::optional<WebAddress> WebAddress::parse(std::string_view address) {
    UriUriA uri;
    const char* errorPos = nullptr;
    if (uriParseSingleUriExA(&uri, address.data(), address.data() + address.size(), &errorPos) !=
        URI_SUCCESS) {
        return std::nullopt;
    }
    WebAddress parsed;
    parsed.text_ = std::string(address);
    parsed.scheme_ = rangeText(uri.scheme);
    if (std::string host = rangeText(uri.hostText); !host.empty()) {
        parsed.host_ = std::move(host);
    }
    for (const UriPathSegmentA* segment = uri.pathHead; segment != nullptr; segment = segment->next) {
        parsed.segments_.push_back(rangeText(segment->text));
    }
    uriFreeUriMembersA(&uri);
    return parsed;
}

std::string WebAddress::pathExtension() const {
    for (auto it = segments_.rbegin(); it != segments_.rend(); ++it) {
        if (it->empty()) {
            continue;
        }
        const std::string name = percentDecoded(*it);
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
