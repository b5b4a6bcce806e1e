#pragma once

#include "Platform/URI.h"

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace keepery {

// An address (URI reference) that parsed under RFC 3986, with the parts the capture rules look at. A
// value; equal when the texts are equal. Relative references parse too and have no scheme.
class WebAddress {
public:
    // The parsed address, or absent when `text` is not a valid URI reference (for example when it holds a
    // blank or an unescaped "<").
    [[nodiscard]] static std::optional<WebAddress> parse(std::string_view text);

    // The address exactly as given.
    [[nodiscard]] const std::string& text() const { return text_; }

    // The scheme as written ("HTTPS" stays upper-case); empty for a relative reference.
    [[nodiscard]] const std::string& scheme() const { return parts_.scheme(); }

    // The host as written, when the address has a non-empty one.
    [[nodiscard]] const std::optional<std::string>& host() const { return parts_.host(); }

    // The path's segments as written (still percent-encoded), empty segments included.
    [[nodiscard]] const std::vector<std::string>& pathSegments() const { return parts_.pathSegments(); }

    // The extension of the path's last non-empty segment, percent-decoded, as written: the text after its
    // last "." when that dot is neither the segment's first nor last character; empty otherwise. The query
    // and fragment play no part ("/clip.MP4?t=3" gives "MP4").
    [[nodiscard]] std::string pathExtension() const;

    bool operator==(const WebAddress& other) const { return text_ == other.text_; }

private:
    WebAddress(std::string text, URI parts) : text_(std::move(text)), parts_(std::move(parts)) {}

    std::string text_;
    URI parts_;
};

} // namespace keepery
