#include "Platform/URI.h"

#include <uriparser/Uri.h>

namespace keepery {
namespace {

// uriparser allocates the parsed members; this owner frees them on every way out, a throwing copy included.
class ParsedMembers {
public:
    ParsedMembers() = default;
    ~ParsedMembers() {
        if (parsed_) {
            uriFreeUriMembersA(&uri_);
        }
    }
    ParsedMembers(const ParsedMembers&) = delete;
    ParsedMembers& operator=(const ParsedMembers&) = delete;

    [[nodiscard]] bool parse(std::string_view text) {
        const char* errorPosition = nullptr;
        parsed_ = uriParseSingleUriExA(&uri_, text.data(), text.data() + text.size(), &errorPosition) ==
                  URI_SUCCESS;
        return parsed_;
    }

    [[nodiscard]] const UriUriA& get() const { return uri_; }

private:
    UriUriA uri_{};
    bool parsed_ = false;
};

std::string rangeText(const UriTextRangeA& range) {
    if (range.first == nullptr || range.afterLast == nullptr || range.afterLast <= range.first) {
        return {};
    }
    return std::string(range.first, range.afterLast);
}

} // namespace

std::optional<URI> URI::parse(std::string_view text) {
    ParsedMembers members;
    if (!members.parse(text)) {
        return std::nullopt;
    }
    const UriUriA& uri = members.get();
    URI parsed;
    parsed.scheme_ = rangeText(uri.scheme);
    if (std::string host = rangeText(uri.hostText); !host.empty()) {
        parsed.host_ = std::move(host);
    }
    for (const UriPathSegmentA* segment = uri.pathHead; segment != nullptr; segment = segment->next) {
        parsed.segments_.push_back(rangeText(segment->text));
    }
    return parsed;
}

std::string URI::percentDecoded(std::string segment) {
    segment.push_back('\0');
    const char* end = uriUnescapeInPlaceExA(segment.data(), URI_FALSE, URI_BR_DONT_TOUCH);
    segment.resize(static_cast<std::size_t>(end - segment.data()));
    return segment;
}

} // namespace keepery
