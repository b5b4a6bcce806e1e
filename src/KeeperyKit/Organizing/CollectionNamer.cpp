#include "Organizing/CollectionNamer.h"

#include "Model/Capture.h"
#include "Platform/Text.h"
#include "Understanding/Describer.h"
#include "Understanding/JSONObject.h"

#include <algorithm>

namespace keepery {

CollectionNamer::CollectionNamer(OllamaClient client, std::string model, OllamaClient::Timeout wait)
    : client_(std::move(client)), model_(std::move(model)), wait_(wait) {}

CollectionNamer::Naming CollectionNamer::name(std::span<const Capture> captures) const {
    return parse(client_.generate({.model = model_,
                                   .prompt = prompt(captures),
                                   .json = true,
                                   .maxTokens = maxTokens,
                                   .timeout = wait_}));
}

std::string CollectionNamer::prompt(std::span<const Capture> captures) {
    std::string text = "These items were saved together in a personal library:\n";
    const std::size_t count = std::min(captures.size(), promptItems);
    for (std::size_t i = 0; i < count; ++i) {
        const Capture& capture = captures[i];
        if (i > 0) {
            text += "\n";
        }
        text += "- " + capture.displayTitle() + ": " + capture.summary.value_or("");
        if (!capture.tags.empty()) {
            text += " [";
            for (std::size_t t = 0; t < capture.tags.size(); ++t) {
                text += (t > 0 ? ", " : "") + capture.tags[t];
            }
            text += "]";
        }
    }
    return text +
           "\n\nName the collection they form. Answer with JSON only:\n"
           "{\"name\": \"2 to 4 words, title case, specific (not 'Miscellaneous' or 'Screenshots')\",\n"
           " \"emoji\": \"one emoji that fits\"}";
}

CollectionNamer::Naming CollectionNamer::parse(std::string_view reply) {
    const JSONObject object = Describer::jsonObject(reply).value_or(JSONObject{});
    Naming naming{Describer::clean(object.string("name"), nameLimit).value_or(std::string(untitled)),
                  std::string(folderEmoji)};
    if (const auto emoji = object.string("emoji")) {
        for (const std::string& character : Text::characters(*emoji)) {
            if (isEmoji(character)) {
                naming.emoji = character;
                break;
            }
        }
    }
    return naming;
}

bool CollectionNamer::isEmoji(std::string_view character) {
    const std::u32string points = Text::codePoints(character);
    if (points.size() == 2 && Text::isRegionalIndicator(points[0]) && Text::isRegionalIndicator(points[1])) {
        return true;
    }
    return std::any_of(points.begin(), points.end(),
                       [](char32_t c) { return c == U'\uFE0F' || Text::isEmojiPresentation(c); });
}

} // namespace keepery
