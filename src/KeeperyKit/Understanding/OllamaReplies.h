#pragma once

#include "Understanding/OllamaClient.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace keepery::OllamaReplies {

// How the model service's replies are read. Each takes the HTTP status and the whole body of one exchange
// as they arrived and returns what the operation answers, or throws the OllamaClient::Failure that the
// status and body call for: `server` for a status outside 200 to 299 (the body's "error" text, else its
// first 200 bytes), `badReply("not a JSON object")` for a success whose body is not a JSON object, and the
// operation's own `badReply` below. Pure functions; any thread.

// The "version" text; badReply("no version") without one.
[[nodiscard]] std::string version(int status, std::string_view body);

// The "name" of every object of the "models" list, in order; empty when there is no list of objects.
[[nodiscard]] std::vector<std::string> models(int status, std::string_view body);

// The "response" text as it stands; badReply("no response text") without one.
[[nodiscard]] std::string response(int status, std::string_view body);

// The `count` lists of numbers under "embeddings", each scaled to unit length. badReply("expected <count>
// embeddings") when there are not exactly `count` lists of numbers, or when a list is not a vector at all
// once scaled: a number beyond the range of a 32-bit float turns every element into infinity or NaN.
[[nodiscard]] std::vector<std::vector<float>> embeddings(int status, std::string_view body,
                                                         std::size_t count);

// One line of a pull stream.
struct PullLine {
    // The line's "error" text; when present, the pull stops with it.
    std::optional<std::string> error;
    // "completed" and "total" as 64-bit integers (0 when missing or not numbers) and the "status" text.
    std::int64_t completed = 0;
    std::int64_t total = 0;
    std::string status;
};

// The line read, or nothing for a line that is not a JSON object (it is skipped).
[[nodiscard]] std::optional<PullLine> pullLine(std::string_view line);

} // namespace keepery::OllamaReplies
