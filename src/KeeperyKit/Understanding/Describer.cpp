#include "Understanding/Describer.h"

#include "Platform/Dates.h"
#include "Platform/JSONReader.h"
#include "Platform/Regex.h"
#include "Platform/Text.h"
#include "Platform/URI.h"
#include "Understanding/JSONObject.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace keepery {
namespace {

constexpr std::size_t titleLimit = 90;
constexpr std::size_t summaryLimit = 400;
constexpr std::size_t tagLimit = 32;
constexpr std::size_t tagCount = 5;
constexpr std::size_t highlightLimit = 280;
constexpr std::size_t highlightCount = 3;
constexpr std::size_t linkCount = 6;
constexpr std::size_t notJSONStart = 200;

const Regex& whiteSpaceRuns() {
    static const Regex pattern("\\s+");
    return pattern;
}

std::string takenText(const std::optional<Instant>& takenAt) {
    return takenAt ? " Taken " + Dates::longDateShortTime(*takenAt) + "." : std::string();
}

// A length that cannot be rounded to whole seconds is left out, as if unknown.
std::string lengthText(const std::optional<double>& duration) {
    if (!duration || !std::isfinite(*duration)) {
        return {};
    }
    // Appended piece by piece: GCC 12 at -O3 misreports `" " + std::string` (-Wrestrict).
    std::string text = " ";
    text += std::to_string(static_cast<long long>(std::round(*duration)));
    text += " seconds long";
    return text;
}

std::string head(const Describer::Context& context) {
    switch (context.media) {
    case CaptureMedia::photo:
        return "This is a photo (file \"" + context.windowTitle + "\")." + takenText(context.takenAt) +
               " Describe what it shows: the subject, the place, the moment, any text in it.\n"
               "Text read from the photo (may be empty):";
    case CaptureMedia::video: {
        std::string spoken;
        if (context.transcript) {
            spoken = "\nWhat is said in it:\n\"\"\"\n" + Describer::excerpt(*context.transcript) + "\n\"\"\"";
        }
        return "This is a video (file \"" + context.windowTitle + "\")" + lengthText(context.duration) + "." +
               takenText(context.takenAt) +
               " The image shows key frames in order, left to right, top to bottom. Describe what happens in "
               "it." +
               spoken + "\nText read from the frames (may be empty):";
    }
    case CaptureMedia::screen:
        break;
    }
    std::string text = "App: " + context.app + "\nWindow: " +
                       (context.windowTitle.empty() ? std::string("(untitled)") : context.windowTitle) + "\n";
    if (context.url) {
        text += "URL: " + *context.url + "\n";
    }
    return text + "Text read from the screen (may be partial):";
}

std::string replacingAll(std::string text, std::string_view what) {
    for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at)) {
        text.erase(at, what.size());
    }
    return text;
}

// True when the squashed form of `text` is not empty and occurs in `haystack` (already squashed).
bool occursIn(std::string_view text, std::string_view haystack) {
    const std::string needle = Describer::squashed(text);
    return !needle.empty() && haystack.find(needle) != std::string_view::npos;
}

} // namespace

Describer::Context Describer::Context::from(const Capture& capture) {
    return {.media = capture.media,
            .app = capture.app,
            .windowTitle = capture.windowTitle,
            .url = capture.url,
            .duration = capture.duration,
            .takenAt = capture.takenAt,
            .transcript = capture.transcript};
}

Describer::ParseError::ParseError(std::string replyStart)
    : reply_(std::move(replyStart)), text_("notJSON(\"" + reply_ + "\")") {}

Describer::ParseError Describer::ParseError::notJSON(std::string replyStart) {
    return ParseError(std::move(replyStart));
}

Describer::Describer(OllamaClient client, std::string model, OllamaClient::Timeout wait)
    : client_(std::move(client)), model_(std::move(model)), wait_(wait) {}

CaptureDescription Describer::describe(std::span<const std::uint8_t> image, const Context& context,
                                       std::string_view ocrText) const {
    const std::string reply = client_.generate({.model = model_,
                                                .prompt = prompt(context, excerpt(ocrText)),
                                                .system = std::string(system),
                                                .images = {image},
                                                .json = true,
                                                .maxTokens = maxTokens,
                                                .timeout = wait_});
    // The transcript is checked too, after a line feed that is there even without one.
    const std::string checked = std::string(ocrText) + "\n" + context.transcript.value_or("");
    return parse(reply, checked, context.url,
                 context.windowTitle.empty() ? context.app : context.windowTitle);
}

CaptureDescription Describer::describe(std::span<const std::uint8_t> image, std::string_view app,
                                       std::string_view windowTitle, const std::optional<std::string>& url,
                                       std::string_view ocrText) const {
    return describe(image,
                    Context{.app = std::string(app), .windowTitle = std::string(windowTitle), .url = url},
                    ocrText);
}

std::string Describer::prompt(const Context& context, std::string_view ocrExcerpt) {
    std::string text = head(context);
    text += "\n\"\"\"\n";
    text += ocrExcerpt;
    text += "\n\"\"\"\n\nAnswer with this JSON object:\n";
    text +=
        "{\"title\": \"the subject itself in 2 to 7 words, like a good bookmark (e.g. 'Espresso', 'Refunding "
        "Stripe payments'); not the site or app name\",\n";
    text +=
        " \"summary\": \"one or two sentences about the content itself; never start with 'A screenshot' or "
        "'A page'\",\n";
    text += " \"kind\": \"one of: ";
    text += CaptureKind::rawValueList();
    text += "\",\n";
    text += " \"tags\": [\"2 to 5 short lowercase topic tags about the subject (not the website, app or "
            "'screenshot')\"],\n";
    text += " \"highlights\": [\"up to 3 short passages copied exactly from the screen that are worth "
            "remembering\"],\n";
    text += " \"links\": [\"URLs visible on the screen, if any\"]}";
    return text;
}

std::string Describer::prompt(std::string_view app, std::string_view windowTitle,
                              const std::optional<std::string>& url, std::string_view ocrExcerpt) {
    return prompt(Context{.app = std::string(app), .windowTitle = std::string(windowTitle), .url = url},
                  ocrExcerpt);
}

CaptureDescription Describer::parse(std::string_view reply, std::string_view ocrText,
                                    const std::optional<std::string>& url, std::string_view fallbackTitle) {
    const auto object = jsonObject(reply);
    if (!object) {
        throw ParseError::notJSON(Text::prefix(reply, notJSONStart));
    }

    CaptureDescription description;
    auto title = clean(object->string("title"), titleLimit);
    if (!title) {
        title = clean(std::string(fallbackTitle), titleLimit);
    }
    description.title = withoutSiteName(title.value_or("Untitled"), url);
    description.summary = withoutPreamble(clean(object->string("summary"), summaryLimit).value_or(""));
    description.kind = CaptureKind::parse(object->string("kind"));

    for (const std::string& raw : object->strings("tags")) {
        if (description.tags.size() == tagCount) {
            break;
        }
        std::string tag = Text::lowercased(Text::trimWhitespaceAndNewlines(raw, U"#"));
        if (!tag.empty() && Text::characterCount(tag) <= tagLimit &&
            std::find(description.tags.begin(), description.tags.end(), tag) == description.tags.end()) {
            description.tags.push_back(std::move(tag));
        }
    }

    const std::string haystack = squashed(ocrText);
    for (const std::string& raw : object->strings("highlights")) {
        if (description.highlights.size() == highlightCount) {
            break;
        }
        if (auto highlight = clean(raw, highlightLimit); highlight && occursIn(*highlight, haystack)) {
            description.highlights.push_back(std::move(*highlight));
        }
    }

    if (url && isWebLink(*url)) {
        description.links.push_back(*url);
    }
    for (const std::string& raw : object->strings("links")) {
        if (description.links.size() >= linkCount) {
            break;
        }
        const std::string link = Text::trimWhitespaceAndNewlines(raw, U".,;)");
        if (!isWebLink(link) && !isWebLink("https://" + link)) {
            continue;
        }
        std::string full = link.starts_with("http") ? link : "https://" + link;
        const std::string bare = replacingAll(replacingAll(link, "https://"), "http://");
        if (occursIn(bare, haystack) &&
            std::find(description.links.begin(), description.links.end(), full) == description.links.end()) {
            description.links.push_back(std::move(full));
        }
    }
    return description;
}

std::string Describer::excerpt(std::string_view text) {
    const std::string trimmed = Text::trimWhitespaceAndNewlines(text);
    return trimmed.empty() ? std::string("(none)") : Text::cut(trimmed, excerptLength);
}

std::optional<JSONObject> Describer::jsonObject(std::string_view text) {
    const auto open = text.find('{');
    const auto close = text.rfind('}');
    if (open == std::string_view::npos || close == std::string_view::npos || close <= open) {
        return std::nullopt;
    }
    std::optional<nlohmann::json> value = JSONReader::read(text.substr(open, close - open + 1));
    if (!value || !value->is_object()) {
        return std::nullopt;
    }
    return JSONObject{std::move(*value)};
}

std::optional<std::string> Describer::clean(const std::optional<std::string>& text, std::size_t max) {
    if (!text) {
        return std::nullopt;
    }
    std::string cleaned = Text::trimWhitespaceAndNewlines(whiteSpaceRuns().replacingAll(*text, " "), U"\"");
    if (cleaned.empty()) {
        return std::nullopt;
    }
    if (Text::characterCount(cleaned) <= max) {
        return cleaned;
    }
    return Text::trimWhitespace(Text::prefix(cleaned, max == 0 ? 0 : max - 1)) + "\u2026";
}

std::string Describer::withoutSiteName(std::string_view title, const std::optional<std::string>& url) {
    const std::string unchanged(title);
    if (!url) {
        return unchanged;
    }
    const std::optional<URI> address = URI::parse(*url);
    if (!address || !address->host()) {
        return unchanged;
    }
    std::vector<std::string> labels;
    const std::string host = Text::lowercased(*address->host());
    for (std::size_t start = 0; start <= host.size();) {
        const std::size_t end = std::min(host.find('.', start), host.size());
        if (end > start) {
            labels.push_back(host.substr(start, end - start));
        }
        start = end + 1;
    }
    if (labels.size() < 2) {
        return unchanged;
    }
    const std::string& site = labels[labels.size() - 2];

    const Regex trailingSite("(?i)\\s*[-\u2013\u2014|:\u00B7]?\\s*" + Regex::escaped(site) +
                             "(\\s+(article|page|entry))?\\s*$");
    const auto match = trailingSite.firstMatch(title);
    if (!match || match->before.empty()) {
        return unchanged;
    }
    static const Regex trailingWord("(?i)\\s+(article|page)$");
    const std::string candidate = trailingWord.replacingAll(Text::trimWhitespace(match->before), "");
    if (candidate.empty()) {
        return unchanged;
    }
    std::string lastWord;
    for (const std::string& character : Text::characters(candidate)) {
        const std::u32string points = Text::codePoints(character);
        if (points.size() == 1 && Text::isWhitespace(points.front())) {
            lastWord.clear();
        } else {
            lastWord += character;
        }
    }
    static constexpr std::array<std::string_view, 10> prepositions{"on",  "at", "from", "in", "via",
                                                                   "for", "of", "to",   "by", "with"};
    if (std::find(prepositions.begin(), prepositions.end(), Text::lowercased(lastWord)) !=
        prepositions.end()) {
        return unchanged;
    }
    return candidate;
}

std::string Describer::withoutPreamble(std::string_view summary) {
    static const Regex preamble("^(?i)(a |this |the )?(screenshot|screen ?shot|webpage|web page|page|image)"
                                "( of| from| shows| displays| showing)?( the| a| an)?\\s+");
    const auto match = preamble.firstMatch(summary);
    if (!match || match->after.empty()) {
        return std::string(summary);
    }
    return Text::uppercasingFirstCharacter(match->after);
}

std::string Describer::squashed(std::string_view text) {
    return Text::alphanumerics(Text::lowercased(text));
}

bool Describer::isWebLink(std::string_view text) {
    const std::optional<URI> address = URI::parse(text);
    if (!address || !address->host()) {
        return false;
    }
    const std::string scheme = Text::lowercased(address->scheme());
    return (scheme == "http" || scheme == "https") && address->host()->find('.') != std::string::npos;
}

} // namespace keepery
