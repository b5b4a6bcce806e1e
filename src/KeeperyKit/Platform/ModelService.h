#pragma once

#include <string>
#include <string_view>

// Where the local model service listens. Reads the environment; any thread.
namespace keepery::ModelService {

// The service's usual address: http on the IPv4 loopback address, port 11434.
inline constexpr std::string_view defaultHost = "http://127.0.0.1:11434";

// The base address for a value of the OLLAMA_HOST variable, read the way the service's own tools read
// it: surrounding blanks and quotes are ignored; "host", "host:port", "scheme://host[:port]" and
// "[v6]:port" are accepted, with an optional path after the host. A missing scheme is http; a missing
// host is 127.0.0.1; a missing or invalid port is 11434 without a scheme, 80 for http and 443 for https.
// The result is "scheme://host:port" followed by "/path" when one was given; an empty value gives
// `defaultHost`.
[[nodiscard]] std::string hostFromVariable(std::string_view value);

// `hostFromVariable` of $OLLAMA_HOST when it is set and not blank; `defaultHost` otherwise.
[[nodiscard]] std::string host();

} // namespace keepery::ModelService
