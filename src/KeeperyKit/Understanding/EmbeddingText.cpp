#include "Understanding/EmbeddingText.h"

#include "Model/Capture.h"
#include "Platform/Text.h"

#include <vector>

namespace keepery::EmbeddingText {
using Text::joined;

std::string query(std::string_view text) {
    return "task: search result | query: " + std::string(text);
}

std::string document(const Capture& capture) {
    std::vector<std::string> head;
    for (const std::string* part : {&capture.app, &capture.displayTitle()}) {
        if (!part->empty()) {
            head.push_back(*part);
        }
    }

    std::vector<std::string> body;
    const auto add = [&body](std::string line) {
        if (!line.empty()) {
            body.push_back(std::move(line));
        }
    };
    add(capture.summary.value_or(""));
    add(joined(capture.tags, ", "));
    add(capture.note.value_or(""));
    add(Text::prefix(capture.transcript.value_or(""), documentExcerptLength));
    add(Text::prefix(capture.ocrText.value_or(""), documentExcerptLength));

    return "title: " + (head.empty() ? std::string("none") : joined(head, " \u2014 ")) +
           " | text: " + joined(body, "\n");
}

std::string meaning(const Capture& capture) {
    std::string text = capture.displayTitle();
    if (!capture.tags.empty()) {
        text += ". Topics: " + joined(capture.tags, ", ");
    }
    if (capture.note && !capture.note->empty()) {
        text += ". " + *capture.note;
    }
    return "title: none | text: " + text;
}

} // namespace keepery::EmbeddingText
