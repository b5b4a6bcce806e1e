#include "Model/CaptureKind.h"

#include "Platform/Text.h"

#include <utility>

namespace keepery {
namespace {

constexpr std::array<std::string_view, 18> titles{
    "Articles",     "Code",   "Design",   "Chats",         "Email",   "Documents",
    "Spreadsheets", "Slides", "Products", "Receipts",      "Recipes", "Food & drink",
    "Places",       "Video",  "Social",   "Charts & data", "Ideas",   "Other"};

constexpr std::array<std::string_view, 18> symbols{"doc.richtext",
                                                   "chevron.left.forwardslash.chevron.right",
                                                   "paintpalette",
                                                   "bubble.left.and.bubble.right",
                                                   "envelope",
                                                   "doc.text",
                                                   "tablecells",
                                                   "rectangle.on.rectangle",
                                                   "bag",
                                                   "receipt",
                                                   "fork.knife",
                                                   "cup.and.saucer",
                                                   "mappin.and.ellipse",
                                                   "play.rectangle",
                                                   "person.2",
                                                   "chart.bar.xaxis",
                                                   "lightbulb",
                                                   "square.dashed"};

// Checked in this order; the first whole-word match wins.
constexpr std::pair<std::string_view, CaptureKind::Case> synonyms[] = {
    {"web page", CaptureKind::article},    {"webpage", CaptureKind::article},
    {"blog", CaptureKind::article},        {"news", CaptureKind::article},
    {"post", CaptureKind::article},        {"terminal", CaptureKind::code},
    {"source code", CaptureKind::code},    {"github", CaptureKind::code},
    {"message", CaptureKind::chat},        {"messages", CaptureKind::chat},
    {"slack", CaptureKind::chat},          {"pdf", CaptureKind::document},
    {"doc", CaptureKind::document},        {"notes", CaptureKind::document},
    {"note", CaptureKind::document},       {"chart", CaptureKind::data},
    {"dashboard", CaptureKind::data},      {"graph", CaptureKind::data},
    {"table", CaptureKind::data},          {"shopping", CaptureKind::product},
    {"listing", CaptureKind::product},     {"drink", CaptureKind::food},
    {"meal", CaptureKind::food},           {"dish", CaptureKind::food},
    {"pastry", CaptureKind::food},         {"coffee", CaptureKind::food},
    {"food and drink", CaptureKind::food}, {"invoice", CaptureKind::receipt},
    {"order", CaptureKind::receipt},       {"map", CaptureKind::place},
    {"location", CaptureKind::place},      {"tweet", CaptureKind::social},
    {"social media", CaptureKind::social}, {"presentation", CaptureKind::slides},
};

} // namespace

std::string CaptureKind::rawValueList() {
    return Text::joined(rawValues, ", ");
}

std::string_view CaptureKind::title() const {
    return titles[static_cast<std::size_t>(value)];
}

std::string_view CaptureKind::symbol() const {
    return symbols[static_cast<std::size_t>(value)];
}

CaptureKind CaptureKind::parse(const std::optional<std::string>& text) {
    const std::string word = Text::lowercased(Text::trimWhitespaceAndNewlines(text.value_or("")));
    if (auto kind = fromRawValue(word)) {
        return *kind;
    }
    for (const auto& [synonym, kind] : synonyms) {
        if (synonym == word) {
            return kind;
        }
    }
    return other;
}

} // namespace keepery
