#pragma once

// Internal to the engine and the server: only source files include this header, so that the JSON library
// stays out of the public ones.

#include <cstddef>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string_view>

namespace keepery::JSONReader {

// No message the system reads (a protocol line, a model-service reply, a settings file, a stored list)
// nests deeper than a handful of levels. Copying and writing a JSON value recurse once per level, so a
// deeper text is refused while it is read, long before the stack could run out.
inline constexpr std::size_t maximumDepth = 64;

// The JSON value that is the whole of `text`, blanks around it allowed; nothing when the text is not JSON,
// holds anything else after the value, holds a NUL byte anywhere, or nests arrays and objects more than
// `maximumDepth` deep. Never throws for the text's sake; any thread.
[[nodiscard]] std::optional<nlohmann::json> read(std::string_view text);

} // namespace keepery::JSONReader
