#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace keepery {

// The parts of a URI reference that parsed strictly under RFC 3986, copied out of the text as written (not
// normalised, still percent-encoded). A value; relative references parse too and have no scheme. Pure; any
// thread.
class URI {
public:
    // The parsed reference, or absent when `text` is not a valid URI reference (a blank, an unescaped "<",
    // an unclosed "[").
    [[nodiscard]] static std::optional<URI> parse(std::string_view text);

    // The scheme as written ("HTTPS" stays upper-case); empty for a relative reference.
    [[nodiscard]] const std::string& scheme() const { return scheme_; }

    // The host as written, when the reference has a non-empty one.
    [[nodiscard]] const std::optional<std::string>& host() const { return host_; }

    // The path's segments as written, empty segments included.
    [[nodiscard]] const std::vector<std::string>& pathSegments() const { return segments_; }

    // `segment` with its percent-encoded octets decoded ("%20" becomes a blank; "+" stays).
    [[nodiscard]] static std::string percentDecoded(std::string segment);

private:
    URI() = default;

    std::string scheme_;
    std::optional<std::string> host_;
    std::vector<std::string> segments_;
};

} // namespace keepery
