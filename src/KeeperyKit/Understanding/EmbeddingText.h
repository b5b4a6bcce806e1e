#pragma once

#include <string>
#include <string_view>

namespace keepery {

struct Capture;

// The texts sent to the embedding model, in the prompt forms of the default embedding model. Nothing is
// trimmed or lower-cased; tags keep their stored order. Pure; any thread.
namespace EmbeddingText {

// The most recognized-text or transcript characters a document text carries (grapheme clusters).
inline constexpr std::size_t documentExcerptLength = 1200;

// "task: search result | query: " followed by `text` unchanged.
[[nodiscard]] std::string query(std::string_view text);

// The text that travels with a capture's image: "title: " + (app and display title joined by " — ",
// leaving out empty ones, or "none") + " | text: " + the summary, the tags joined by ", ", the note and the
// first 1,200 characters of the transcript and of the recognized text, each only when not empty, one per
// line.
[[nodiscard]] std::string document(const Capture& capture);

// "title: none | text: " + the display title, then ". Topics: " + the tags joined by ", " when there are
// tags, then ". " + the note when there is a non-empty note.
[[nodiscard]] std::string meaning(const Capture& capture);

} // namespace EmbeddingText
} // namespace keepery
