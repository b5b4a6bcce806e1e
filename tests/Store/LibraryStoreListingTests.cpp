#include "Store/LibraryStore.h"

#include "Store/StoreTesting.h"

#include "Platform/Regex.h"

#include <functional>
#include <random>

namespace keepery::testing {
namespace {

using Listings = StoreTest;

using Strings = std::vector<std::string>;

TEST_F(Listings, RecentSourceMediaAndSinceListNewestFirst) {
    for (int i = 1; i <= 12; ++i) {
        store.insert(screen("s" + std::to_string(i), 100.0 * i, i % 2 == 0 ? "Xcode" : "Safari"));
    }
    Capture photo = screen("photo", 2000, "Photos", "IMG");
    photo.media = CaptureMedia::photo;
    photo.takenAt = 50; // taken long ago, kept late
    store.insert(photo);
    Capture video = screen("video", 150, "Videos", "clip");
    video.media = CaptureMedia::video;
    video.takenAt = 5000; // taken late, kept early
    store.insert(video);

    EXPECT_EQ(idsOf(store.captures(LibraryFilter::recent(), 3)), (Strings{"photo", "s12", "s11"}));
    EXPECT_EQ(idsOf(store.captures(LibraryFilter::source("Xcode"), 2)), (Strings{"s12", "s10"}));
    EXPECT_TRUE(store.captures(LibraryFilter::source("xcode"), 10).empty()) << "sources compare exactly";
    EXPECT_EQ(idsOf(store.captures(LibraryFilter::media(CaptureMedia::video), 10)), Strings{"video"});
    // `since` compares the time kept, never the time taken.
    EXPECT_EQ(idsOf(store.captures(LibraryFilter::since(1200), 10)), (Strings{"photo", "s12"}));
    EXPECT_EQ(store.count(), 14);
    EXPECT_EQ(store.count(1200), 2);
}

// Listings that walk the time index and those that sort their own index's matches agree on one order:
// newest first, and among captures kept at the same moment, the one stored later first.
TEST_F(Listings, FilteredListingsBreakTiesOfTimeTheSameWayWhicheverIndexFindsThem) {
    struct Kept {
        std::string id;
        Instant at;
        CaptureKind kind;
        bool favorite;
        bool filed;
    };
    std::vector<Kept> kept;
    store.insertCollection({"c", "C", "", 1, 1, 0, 0, false});
    for (int i = 0; i < 80; ++i) {
        // Eight moments, ten captures each, stored out of time order; few recipes, many code screens.
        const Kept k{"k" + std::to_string(i), 100.0 * ((i * 3) % 8),
                     i % 13 == 0 ? CaptureKind::recipe : CaptureKind::code, i % 7 == 0, i % 2 == 0};
        store.insert(screen(k.id, k.at, i % 3 == 0 ? "Xcode" : "Safari"));
        store.setDescribed(k.id, Described{"t", "", k.kind, {}, {}, {}});
        store.setFavorite(k.id, k.favorite);
        store.moveCapture(k.id, k.filed ? std::optional<std::string>("c") : std::nullopt);
        kept.push_back(k);
    }
    const auto expected = [&](const std::function<bool(const Kept&)>& passes, std::size_t limit) {
        std::vector<std::size_t> order;
        for (std::size_t i = kept.size(); i-- > 0;) {
            if (passes(kept[i])) {
                order.push_back(i);
            }
        }
        std::stable_sort(order.begin(), order.end(),
                         [&](std::size_t a, std::size_t b) { return kept[a].at > kept[b].at; });
        Strings ids;
        for (std::size_t i = 0; i < std::min(limit, order.size()); ++i) {
            ids.push_back(kept[order[i]].id);
        }
        return ids;
    };
    const std::vector<std::pair<LibraryFilter, std::function<bool(const Kept&)>>> filters{
        {LibraryFilter::kind(CaptureKind::code), [](const Kept& k) { return k.kind == CaptureKind::code; }},
        {LibraryFilter::kind(CaptureKind::recipe),
         [](const Kept& k) { return k.kind == CaptureKind::recipe; }},
        {LibraryFilter::favorites(), [](const Kept& k) { return k.favorite; }},
        {LibraryFilter::collection("c"), [](const Kept& k) { return k.filed; }},
        {LibraryFilter::unsorted(), [](const Kept& k) { return !k.filed; }},
    };
    for (const std::int64_t limit : {1, 3, 12, 100}) {
        const auto n = static_cast<std::size_t>(limit);
        for (std::size_t f = 0; f < filters.size(); ++f) {
            EXPECT_EQ(idsOf(store.captures(filters[f].first, limit)), expected(filters[f].second, n))
                << "filter " << f << ", limit " << limit;
        }
        EXPECT_EQ(store.captures(LibraryFilter::source("Xcode"), limit).size(), std::min<std::size_t>(n, 27));
    }
    EXPECT_TRUE(store.captures(LibraryFilter::kind(CaptureKind::email), 10).empty());
    EXPECT_EQ(store.captures(LibraryFilter::kind(CaptureKind::code), -1).size(), 73u)
        << "a negative limit lists all";
}

TEST_F(Listings, CountsByKindMediaAndSource) {
    int n = 0;
    for (const auto& [app, media, url] : std::vector<std::tuple<std::string, CaptureMedia, const char*>>{
             {"Safari", CaptureMedia::screen, "https://www.b.example/x"},
             {"Safari", CaptureMedia::screen, "https://b.example/y"},
             {"Safari", CaptureMedia::screen, "https://a.example/y"},
             {"Mail", CaptureMedia::screen, nullptr},
             {"", CaptureMedia::screen, nullptr}, // no source word
             {"Photos", CaptureMedia::photo, nullptr},
             {"Photos", CaptureMedia::photo, nullptr},
             {"Videos", CaptureMedia::video, "https://b.example/video"}, // host, but not a screen capture
             {"Mail", CaptureMedia::screen, nullptr},
         }) {
        ++n;
        Capture c = screen("c" + std::to_string(n), n, app);
        c.media = media;
        c.url = url ? std::optional<std::string>(url) : std::nullopt;
        store.insert(c);
    }
    raw.run("UPDATE captures SET kind = 'recipe' WHERE id IN ('c1', 'c2', 'c3')");
    raw.run("UPDATE captures SET kind = 'email' WHERE id = 'c4'");
    raw.run("UPDATE captures SET kind = 'Recipe', media = 'hologram' WHERE id = 'c5'");

    EXPECT_EQ(store.kindCounts(), (std::vector<std::pair<CaptureKind, std::int64_t>>{
                                      {CaptureKind::recipe, 3}, {CaptureKind::email, 1}}))
        << "an unknown kind is skipped";
    EXPECT_EQ(store.mediaCounts(),
              (std::unordered_map<CaptureMedia, std::int64_t>{
                  {CaptureMedia::screen, 5}, {CaptureMedia::photo, 2}, {CaptureMedia::video, 1}}));
    using Counts = std::vector<std::pair<std::string, std::int64_t>>;
    EXPECT_EQ(store.sourceCounts(10), (Counts{{"Mail", 2}, {"b.example", 2}, {"a.example", 1}}))
        << "ties go by the word in ascending order; photos, videos and empty sources are not counted";
    EXPECT_EQ(store.sourceCounts(1), (Counts{{"Mail", 2}}));
}

TEST(FullTextQuery, WordsBecomeQuotedPrefixTermsAndNoSyntaxOfTheirOwn) {
    for (const auto& [text, query] : std::vector<std::pair<std::string, std::string>>{
             {"what was that Tokyo ramen place?", "\"tokyo\"* \"ramen\"* \"place\"*"},
             {"e-mail", "\"e\"* \"mail\"*"},
             {"the page", ""},
             {"ramen ramen", "\"ramen\"* \"ramen\"*"},
             {"\u00C9COLE 2024-05 \u00BD", "\"\u00E9cole\"* \"2024\"* \"05\"* \"\u00BD\"*"},
             // Letters, marks and numbers of every script make words; emoji, symbols and broken UTF-8
             // separate them.
             {"\u6771\u4EAC\u3000\u30E9\u30FC\u30E1\u30F3\U0001F35C",
              "\"\u6771\u4EAC\"* \"\u30E9\u30FC\u30E1\u30F3\"*"},
             {"\u0939\u093F\u0928\u094D\u0926\u0940", "\"\u0939\u093F\u0928\u094D\u0926\u0940\"*"},
             {"\xFF"
              "abc",
              "\"abc\"*"},
             {"\"tokyo\" OR ramen* AND NOT sushi", "\"tokyo\"* \"ramen\"* \"not\"* \"sushi\"*"},
             {"NEAR(tokyo ramen, 2)", "\"near\"* \"tokyo\"* \"ramen\"* \"2\"*"},
         }) {
        EXPECT_EQ(LibraryStore::ftsQuery(text), query) << text;
    }
}

TEST(FullTextQuery, OnlyTheFirstWordsOfAnAbsurdlyLongQueryAreSearched) {
    const auto repeated = [](std::size_t count, const std::string& word, const char* between) {
        std::string text;
        for (std::size_t i = 0; i < count; ++i) {
            text += (i == 0 ? "" : between) + word + std::to_string(i % LibraryStore::mostQueryTerms);
        }
        return text;
    };
    constexpr std::size_t most = LibraryStore::mostQueryTerms;
    for (std::size_t words : {most, most + 1, std::size_t{10'000}}) {
        EXPECT_EQ(LibraryStore::ftsQuery(repeated(words, "w", " the ")),
                  repeated(most, "\"w", "\"* ") + "\"*")
            << words;
    }
}

TEST_F(Listings, HostileInputIsSearchedAsWordsAndNeverRaises) {
    store.insert(screen("a", 1, "Safari", "Ramen"));
    // Every term is a quote, letters, marks and numbers only, a quote and a star; terms are one blank apart.
    const Regex wellFormed("^\"[\\p{L}\\p{M}\\p{N}]+\"\\*( \"[\\p{L}\\p{M}\\p{N}]+\"\\*)*\\z");
    std::vector<std::string> pieces{"NEAR",       "AND",    "OR",    "NOT",  "title",        "ocr", "\u00E9",
                                    "\U0001F35C", "\u0301", "ramen", "rank", "captures_fts", "id"};
    constexpr std::string_view symbols("\"*:()^+-{} x\\'\n,\0", 17);
    for (const char c : symbols) {
        pieces.emplace_back(1, c);
    }
    std::mt19937 random(7);
    for (int i = 0; i < 2000; ++i) {
        std::string text;
        const int length = 1 + static_cast<int>(random() % 12);
        for (int j = 0; j < length; ++j) {
            text += pieces[random() % pieces.size()];
        }
        const std::string query = LibraryStore::ftsQuery(text);
        EXPECT_TRUE(query.empty() || wellFormed.firstMatch(query)) << text << " -> " << query;
        EXPECT_NO_THROW((void)store.textSearch(text, 10)) << text;
    }
}

TEST_F(Listings, TextSearchRanksWithBm25) {
    store.insert(screen("titled", 1, "Safari", "Ramen guide"));
    store.setDescribed(
        "titled",
        Described{"Best ramen in Tokyo", "Bowls worth the queue.", CaptureKind::food, {"ramen"}, {}, {}});
    store.insert(screen("mention", 2, "Preview", "Quarterly report"));
    std::string longText;
    for (int i = 0; i < 300; ++i) {
        longText += "revenue grew steadily across every region and quarter ";
    }
    store.setRead("mention", longText + "we had ramen at the offsite " + longText, std::nullopt);
    store.insert(screen("other", 3, "Notes", "Groceries"));

    auto found = store.textSearch("ramen", 10);
    ASSERT_EQ(idsOf(found), (Strings{"titled", "mention"}));
    EXPECT_LT(found[0].rank, found[1].rank);
    EXPECT_LT(found[1].rank, 0);

    EXPECT_EQ(store.textSearch("ram", 10).size(), 2u) << "words match as prefixes";
    EXPECT_EQ(store.textSearch("tokyo ramen", 10).size(), 1u) << "every word is required";
    EXPECT_EQ(store.textSearch("ramen", 1).size(), 1u);
}

} // namespace
} // namespace keepery::testing
