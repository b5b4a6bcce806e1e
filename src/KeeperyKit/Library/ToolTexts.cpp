#include "Library/ToolTexts.h"

#include "Library/Library.h"
#include "Model/CaptureKind.h"
#include "Platform/Dates.h"
#include "Platform/Text.h"
#include "Store/LibraryStore.h"

#include <algorithm>
#include <cmath>

namespace keepery::ToolTexts {

using Text::joined;

namespace {

// A long text as the full form shows it: whole up to 4000 characters, else its first 4000 and "…". A text
// that fits is passed on as stored, so that bytes which are not UTF-8 reach the serialiser's own
// replacement untouched.
std::string longText(const std::string& text) {
    constexpr std::size_t most = 4000;
    return Text::characterCount(text) <= most ? text : Text::cut(text, most);
}

} // namespace

Labels labels(LibraryStore& store, std::span<const Capture> captures) {
    std::vector<std::string> ids;
    for (const Capture& capture : captures) {
        if (capture.collectionID && std::find(ids.begin(), ids.end(), *capture.collectionID) == ids.end()) {
            ids.push_back(*capture.collectionID);
        }
    }
    Labels found;
    if (ids.empty()) {
        return found;
    }
    try {
        for (const LibraryStore::CollectionName& collection : store.collectionNames(ids)) {
            found.try_emplace(collection.id, collection.emoji + " " + collection.name);
        }
    } catch (const std::exception&) {
        found.clear();
    }
    return found;
}

std::string listing(const Capture& capture, const Labels& labels) {
    std::string out = capture.displayTitle();
    out += " — ";
    out += capture.kind ? capture.kind->title() : capture.media.title();

    std::vector<std::string> facts{"id " + capture.id, capture.url ? *capture.url : capture.sourceName(),
                                   Dates::mediumDateShortTime(capture.takenAt.value_or(capture.createdAt))};
    if (capture.collectionID) {
        if (auto label = labels.find(*capture.collectionID); label != labels.end()) {
            facts.push_back(label->second);
        }
    }
    out += "\n" + joined(facts, " · ");
    if (capture.summary && !capture.summary->empty()) {
        out += "\n" + *capture.summary;
    }
    if (capture.note && !capture.note->empty()) {
        out += "\nNote: " + *capture.note;
    }
    if (!capture.tags.empty()) {
        out += "\nTags: " + joined(capture.tags, ", ");
    }
    return out;
}

std::string listings(const std::vector<Capture>& captures, const Labels& labels) {
    std::vector<std::string> texts;
    texts.reserve(captures.size());
    for (const Capture& capture : captures) {
        texts.push_back(listing(capture, labels));
    }
    return joined(texts, "\n\n");
}

std::string full(const Capture& capture, const Labels& labels) {
    std::vector<std::string> sections{listing(capture, labels)};
    if (capture.media == CaptureMedia::video && capture.duration) {
        // Whole seconds, the fraction dropped; a duration without a whole number of seconds shows no line.
        const double seconds = std::trunc(*capture.duration);
        if (std::isfinite(seconds) && std::fabs(seconds) < 9.2e18) {
            sections.push_back("Video, " + std::to_string(static_cast<std::int64_t>(seconds)) + " seconds.");
        }
    }
    if (!capture.highlights.empty()) {
        std::string section = "Worth keeping:";
        for (const std::string& highlight : capture.highlights) {
            section += "\n“" + highlight + "”";
        }
        sections.push_back(std::move(section));
    }
    if (!capture.links.empty()) {
        sections.push_back("Links:\n" + joined(capture.links, "\n"));
    }
    if (capture.transcript && !capture.transcript->empty()) {
        sections.push_back("Said in it:\n" + longText(*capture.transcript));
    }
    if (capture.ocrText && !capture.ocrText->empty()) {
        sections.push_back("Text on it:\n" + longText(*capture.ocrText));
    }
    if (capture.stage != CaptureStage::organized) {
        sections.push_back("(Still being read: the description may be incomplete.)");
    }
    return joined(sections, "\n\n");
}

std::string searchQuery(std::string_view query) {
    std::string trimmed = Text::trimWhitespaceAndNewlines(std::string(query));
    if (trimmed.empty()) {
        throw Failure("'query' must be a non-empty string.");
    }
    return trimmed;
}

std::vector<Capture> searchResults(Library& library, const std::string& query, std::int64_t limit) {
    return library.search(query, static_cast<std::size_t>(std::max<std::int64_t>(limit, 0)));
}

std::string searchText(const std::string& query, const std::vector<Capture>& found, const Labels& labels) {
    if (found.empty()) {
        return "Nothing in Keepery matches “" + query + "”.";
    }
    return "Keepery for “" + query + "” (" + std::to_string(found.size()) + "):\n\n" +
           listings(found, labels);
}

LibraryFilter recentFilter(LibraryStore& store, const std::optional<std::string>& collection,
                           const std::optional<std::string>& kind, std::string_view listCommand) {
    if (collection && !collection->empty()) {
        const std::vector<LibraryStore::CollectionName> all = store.collectionNames();
        const auto found = std::find_if(all.begin(), all.end(), [&](const LibraryStore::CollectionName& c) {
            return c.id == *collection || Text::equalsIgnoringCase(c.name, *collection);
        });
        if (found == all.end()) {
            throw Failure("No collection named “" + *collection + "”. " + std::string(listCommand) +
                          " shows them.");
        }
        return LibraryFilter::collection(found->id);
    }
    if (kind && !kind->empty()) {
        const std::optional<CaptureKind> known = CaptureKind::fromRawValue(Text::lowercased(*kind));
        if (!known) {
            throw Failure("Unknown kind “" + *kind + "”.");
        }
        return LibraryFilter::kind(*known);
    }
    return LibraryFilter::recent();
}

std::string recentText(const std::vector<Capture>& found, const Labels& labels) {
    if (found.empty()) {
        return "Nothing kept there yet.";
    }
    return listings(found, labels);
}

Capture capture(LibraryStore& store, const std::optional<std::string>& id) {
    std::optional<Capture> found = id ? store.capture(*id) : std::nullopt;
    if (!found) {
        throw Failure("No capture with that id.");
    }
    return std::move(*found);
}

std::string collectionsText(const std::vector<CaptureCollection>& collections) {
    std::vector<std::string> lines;
    for (const CaptureCollection& collection : collections) {
        if (collection.count < 1) {
            continue;
        }
        lines.push_back(collection.emoji + " " + collection.name + " — " + std::to_string(collection.count) +
                        " capture" + (collection.count == 1 ? "" : "s") + " (id " + collection.id + ")");
    }
    if (lines.empty()) {
        return "No collections yet: they form as similar captures are kept.";
    }
    return joined(lines, "\n");
}

} // namespace keepery::ToolTexts
