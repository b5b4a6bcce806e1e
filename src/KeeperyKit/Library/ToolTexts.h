#pragma once

#include "Model/Capture.h"
#include "Store/LibraryFilter.h"

#include <cstdint>
#include <exception>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace keepery {

class Library;
class LibraryStore;

// The plain texts of the library's four questions (search, recent captures, one capture, the collections)
// and the argument rules behind them, shared by every front end that shows them: the assistant server and
// the command line read the same words. Functions that take the store read it on the caller's thread; the
// store's Database::Failure passes through.
namespace ToolTexts {

// A failure whose message is for the reader as it stands ("No capture with that id.").
struct Failure : std::exception {
    std::string message;
    explicit Failure(std::string text) : message(std::move(text)) {}
    const char* what() const noexcept override { return message.c_str(); }
};

inline constexpr std::int64_t searchLimit = 8;
inline constexpr std::int64_t mostSearchResults = 25;
inline constexpr std::int64_t recentLimit = 10;
inline constexpr std::int64_t mostRecent = 50;

// Collection id → "<emoji> <name>".
using Labels = std::unordered_map<std::string, std::string>;

// The labels of the collections `captures` are filed in, and of no others; empty when the collections
// cannot be read. Never throws.
[[nodiscard]] Labels labels(LibraryStore& store, std::span<const Capture> captures);

// The short form of one capture: title and kind; id, address or source, date and collection; summary;
// note; tags.
[[nodiscard]] std::string listing(const Capture& capture, const Labels& labels);
// Listings separated by a blank line.
[[nodiscard]] std::string listings(const std::vector<Capture>& captures, const Labels& labels);
// The long form: the listing, then the duration, passages, links, what was said and the text on it (both
// cut at 4000 characters), and a note while the capture is still being read.
[[nodiscard]] std::string full(const Capture& capture, const Labels& labels);

// The query trimmed of white space and line breaks. Throws Failure when nothing is left.
[[nodiscard]] std::string searchQuery(std::string_view query);
// The first `limit` captures `library` finds for the (trimmed) query. Never fails.
[[nodiscard]] std::vector<Capture> searchResults(Library& library, const std::string& query,
                                                 std::int64_t limit);
// The heading and listings of a search's results, or the sentence that says nothing matched.
[[nodiscard]] std::string searchText(const std::string& query, const std::vector<Capture>& found,
                                     const Labels& labels);

// The filter of a listing limited to a collection (its id, or its name in any capitals) or else to a kind
// (its raw value in any capitals); both absent or empty: every capture. `listCommand` is what the failure
// for an unknown collection tells the reader to run. Throws Failure for an unknown collection or kind.
[[nodiscard]] LibraryFilter recentFilter(LibraryStore& store, const std::optional<std::string>& collection,
                                         const std::optional<std::string>& kind,
                                         std::string_view listCommand = "list_collections");
// The listings, or the sentence that says nothing is there.
[[nodiscard]] std::string recentText(const std::vector<Capture>& found, const Labels& labels);

// The capture with this id. Throws Failure when the id is absent or names no capture.
[[nodiscard]] Capture capture(LibraryStore& store, const std::optional<std::string>& id);

// One line per collection that holds a capture ("🍳 Weeknight Cooking — 3 captures (id c1)"), or the
// sentence that says none has formed.
[[nodiscard]] std::string collectionsText(const std::vector<CaptureCollection>& collections);

} // namespace ToolTexts
} // namespace keepery
