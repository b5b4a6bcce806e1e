#include "Platform/ModelService.h"

#include "Platform/Text.h"

#include <charconv>
#include <cstdlib>

namespace keepery::ModelService {
namespace {

bool isPort(std::string_view text) {
    int port = 0;
    const auto* end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, port);
    return !text.empty() && error == std::errc() && rest == end && port >= 0 && port <= 65535;
}

} // namespace

std::string hostFromVariable(std::string_view value) {
    std::string text = Text::trimWhitespaceAndNewlines(value);
    // Shells and service files often keep the quotes of OLLAMA_HOST="...".
    while (text.size() >= 2 && (text.front() == '"' || text.front() == '\'') && text.back() == text.front()) {
        text = Text::trimWhitespaceAndNewlines(std::string_view(text).substr(1, text.size() - 2));
    }
    if (text.empty()) {
        return std::string(defaultHost);
    }

    std::string scheme = "http";
    std::string defaultPort = "11434";
    std::string_view rest = text;
    if (const auto separator = rest.find("://"); separator != std::string_view::npos) {
        scheme = Text::lowercased(rest.substr(0, separator));
        rest = rest.substr(separator + 3);
        if (scheme == "http") {
            defaultPort = "80";
        } else if (scheme == "https") {
            defaultPort = "443";
        }
    }

    std::string path;
    if (const auto slash = rest.find('/'); slash != std::string_view::npos) {
        path = rest.substr(slash);
        rest = rest.substr(0, slash);
        while (path.size() > 1 && path.back() == '/') {
            path.pop_back();
        }
        if (path == "/") {
            path.clear();
        }
    }

    std::string host;
    std::string port = defaultPort;
    if (rest.starts_with('[')) {
        // A bracketed IPv6 address, with or without a port after it.
        const auto close = rest.find(']');
        host = std::string(rest.substr(0, close == std::string_view::npos ? rest.size() : close + 1));
        if (close != std::string_view::npos && close + 1 < rest.size() && rest[close + 1] == ':') {
            port = std::string(rest.substr(close + 2));
        }
    } else if (rest.find(':') != rest.rfind(':')) {
        // A bare IPv6 address: its colons are not a port separator.
        host = "[" + std::string(rest) + "]";
    } else if (const auto colon = rest.rfind(':'); colon != std::string_view::npos) {
        host = std::string(rest.substr(0, colon));
        port = std::string(rest.substr(colon + 1));
    } else {
        host = std::string(rest);
    }
    if (host.empty() || host == "[]") {
        host = "127.0.0.1";
    }
    if (!isPort(port)) {
        port = defaultPort;
    }
    return scheme + "://" + host + ":" + port + path;
}

std::string host() {
    const char* value = std::getenv("OLLAMA_HOST");
    return value == nullptr ? std::string(defaultHost) : hostFromVariable(value);
}

} // namespace keepery::ModelService
