#include "Store/LibraryStore.h"

#include "Store/StoreTesting.h"

#include "Platform/Text.h"

#include <functional>
#include <random>

namespace keepery::testing {
namespace {

using Listings = StoreTest;

using Strings = std::vector<std::string>;

TEST_F(Listings, EachFilterListsItsCapturesNewestFirst) {
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
    store.setFavorite("s4", true);

    EXPECT_EQ(idsOf(store.captures(LibraryFilter::recent(), 3)), (Strings{"photo", "s12", "s11"}));
    EXPECT_EQ(store.captures(LibraryFilter::recent(), 10).size(), 10u);
    EXPECT_EQ(idsOf(store.captures(LibraryFilter::source("Xcode"), 2)), (Strings{"s12", "s10"}));
    EXPECT_TRUE(store.captures(LibraryFilter::source("xcode"), 10).empty()) << "sources compare exactly";
    EXPECT_EQ(idsOf(store.captures(LibraryFilter::media(CaptureMedia::video), 10)), Strings{"video"});
    EXPECT_EQ(idsOf(store.captures(LibraryFilter::favorites(), 10)), Strings{"s4"});
    // `since` compares the time kept, never the time taken.
    EXPECT_EQ(idsOf(store.captures(LibraryFilter::since(1100), 10)), (Strings{"photo", "s12", "s11"}));
    EXPECT_EQ(idsOf(store.captures(LibraryFilter::since(1200), 10)), (Strings{"photo", "s12"}));

    EXPECT_EQ(store.count(), 14);
    EXPECT_EQ(store.count(1200), 2);
    EXPECT_EQ(store.count(1e12), 0);
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
        EXPECT_EQ(store.captures(LibraryFilter::media(CaptureMedia::screen), limit).size(),
                  std::min<std::size_t>(n, 80));
    }
    EXPECT_TRUE(store.captures(LibraryFilter::kind(CaptureKind::email), 10).empty());
    EXPECT_EQ(store.captures(LibraryFilter::kind(CaptureKind::code), -1).size(), 73u)
        << "a negative limit lists all";
}

TEST_F(Listings, CountsByKindMediaAndSource) {
    int n = 0;
    auto add = [&](const std::string& app, CaptureMedia media,
                   std::optional<std::string> url = std::nullopt) {
        ++n;
        Capture c = screen("c" + std::to_string(n), n, app);
        c.media = media;
        c.url = std::move(url);
        store.insert(c);
        return c.id;
    };
    add("Safari", CaptureMedia::screen, "https://www.b.example/x");
    add("Safari", CaptureMedia::screen, "https://b.example/y");
    add("Safari", CaptureMedia::screen, "https://a.example/y");
    add("Mail", CaptureMedia::screen);
    add("", CaptureMedia::screen); // no source word
    add("Photos", CaptureMedia::photo);
    add("Photos", CaptureMedia::photo);
    add("Videos", CaptureMedia::video, "https://b.example/video"); // host, but not a screen capture
    add("Mail", CaptureMedia::screen);
    raw.run("UPDATE captures SET kind = 'recipe' WHERE id IN ('c1', 'c2', 'c3')");
    raw.run("UPDATE captures SET kind = 'email' WHERE id = 'c4'");
    raw.run("UPDATE captures SET kind = 'Recipe', media = 'hologram' WHERE id = 'c5'");

    auto kinds = store.kindCounts();
    ASSERT_EQ(kinds.size(), 2u) << "an unknown kind is skipped";
    EXPECT_EQ(kinds[0], std::make_pair(CaptureKind(CaptureKind::recipe), std::int64_t{3}));
    EXPECT_EQ(kinds[1], std::make_pair(CaptureKind(CaptureKind::email), std::int64_t{1}));

    auto media = store.mediaCounts();
    EXPECT_EQ(media.size(), 3u);
    EXPECT_EQ(media[CaptureMedia::screen], 5);
    EXPECT_EQ(media[CaptureMedia::photo], 2);
    EXPECT_EQ(media[CaptureMedia::video], 1);

    using Counts = std::vector<std::pair<std::string, std::int64_t>>;
    EXPECT_EQ(store.sourceCounts(10), (Counts{{"Mail", 2}, {"b.example", 2}, {"a.example", 1}}))
        << "ties go by the word in ascending order; photos, videos and empty sources are not counted";
    EXPECT_EQ(store.sourceCounts(1), (Counts{{"Mail", 2}}));

    raw.run("DELETE FROM captures WHERE media != 'photo'");
    EXPECT_EQ(store.mediaCounts().size(), 1u) << "a media without captures has no entry";
}

TEST(FullTextQuery, WordsBecomeQuotedPrefixTerms) {
    EXPECT_EQ(LibraryStore::ftsQuery("what was that Tokyo ramen place?"), "\"tokyo\"* \"ramen\"* \"place\"*");
    EXPECT_EQ(LibraryStore::ftsQuery("e-mail"), "\"e\"* \"mail\"*");
    EXPECT_EQ(LibraryStore::ftsQuery("the page"), "");
    EXPECT_EQ(LibraryStore::ftsQuery("  ...  "), "");
    EXPECT_EQ(LibraryStore::ftsQuery(""), "");
    EXPECT_EQ(LibraryStore::ftsQuery("ramen ramen"), "\"ramen\"* \"ramen\"*") << "duplicates are kept";
    EXPECT_EQ(LibraryStore::ftsQuery("snake_case file.txt"), "\"snake\"* \"case\"* \"file\"* \"txt\"*");
    EXPECT_EQ(LibraryStore::ftsQuery("\u00C9COLE 2024-05 \u00BD"),
              "\"\u00E9cole\"* \"2024\"* \"05\"* \"\u00BD\"*");
    // Letters, marks and numbers of every script make words; emoji and symbols separate them.
    EXPECT_EQ(LibraryStore::ftsQuery("\u6771\u4EAC\u3000\u30E9\u30FC\u30E1\u30F3\U0001F35C"),
              "\"\u6771\u4EAC\"* \"\u30E9\u30FC\u30E1\u30F3\"*");
    EXPECT_EQ(LibraryStore::ftsQuery("\u0939\u093F\u0928\u094D\u0926\u0940"),
              "\"\u0939\u093F\u0928\u094D\u0926\u0940\"*");
    EXPECT_EQ(LibraryStore::ftsQuery("caf\u00E9\U0001F600latte"), "\"caf\u00E9\"* \"latte\"*");
    EXPECT_EQ(LibraryStore::ftsQuery("\xFF"
                                     "abc"),
              "\"abc\"*")
        << "broken UTF-8 separates";
    EXPECT_EQ(LibraryStore::stopwords().size(), 26u);
}

TEST(FullTextQuery, OnlyTheFirstWordsOfAnAbsurdlyLongQueryAreSearched) {
    const auto terms = [](std::size_t first, std::size_t count, const std::string& word = "w") {
        std::string query;
        for (std::size_t i = first; i < first + count; ++i) {
            query += (query.empty() ? "\"" : " \"") + word + (word == "w" ? std::to_string(i) : "") + "\"*";
        }
        return query;
    };
    const auto words = [](std::size_t count, const std::string& word = "w") {
        std::string text;
        for (std::size_t i = 0; i < count; ++i) {
            text += word + (word == "w" ? std::to_string(i) : "") + " the ";
        }
        return text;
    };
    constexpr std::size_t most = LibraryStore::mostQueryTerms;
    EXPECT_EQ(LibraryStore::ftsQuery(words(most)), terms(0, most)) << "up to the bound nothing changes";
    EXPECT_EQ(LibraryStore::ftsQuery(words(most + 1)), terms(0, most));
    EXPECT_EQ(LibraryStore::ftsQuery(words(10'000)), terms(0, most));
    EXPECT_EQ(LibraryStore::ftsQuery(words(16'000, "ramen")), terms(0, most, "ramen")) << "repeats count";
}

TEST_F(Listings, HostileInputYieldsNoSyntaxOfItsOwnAndNeverRaises) {
    store.insert(screen("a", 1, "Safari", "Ramen"));
    EXPECT_EQ(LibraryStore::ftsQuery("\"tokyo\" OR ramen* AND NOT sushi"),
              "\"tokyo\"* \"ramen\"* \"not\"* \"sushi\"*");
    EXPECT_EQ(LibraryStore::ftsQuery("NEAR(tokyo ramen, 2)"), "\"near\"* \"tokyo\"* \"ramen\"* \"2\"*");
    EXPECT_EQ(LibraryStore::ftsQuery("title:ramen {ocr note}: ^start"),
              "\"title\"* \"ramen\"* \"ocr\"* \"note\"* \"start\"*");
    EXPECT_EQ(LibraryStore::ftsQuery("\"\"\"*** ::: ()"), "");

    // Every term is a quote, letters, marks and numbers only, a quote and a star; terms are one blank apart.
    auto wellFormed = [](const std::string& query) {
        std::size_t start = 0;
        while (start <= query.size()) {
            const std::size_t end = std::min(query.find(' ', start), query.size());
            const std::string_view term = std::string_view(query).substr(start, end - start);
            if (term.size() < 4 || !term.starts_with('"') || !term.ends_with("\"*")) {
                return false;
            }
            for (char32_t c : Text::codePoints(term.substr(1, term.size() - 3))) {
                if (!Text::isAlphanumeric(c)) {
                    return false;
                }
            }
            start = end + 1;
        }
        return true;
    };
    const std::vector<std::string> pieces{"\"",     "*",
                                          ":",      "(",
                                          ")",      "^",
                                          "+",      "-",
                                          "NEAR",   "AND",
                                          "OR",     "NOT",
                                          "{",      "}",
                                          "title",  "ocr",
                                          " ",      "x",
                                          "\u00E9", "\U0001F35C",
                                          "\u0301", std::string("\0", 1),
                                          "\\",     "'",
                                          "ramen",  "rank",
                                          "id",     "captures_fts",
                                          "\n",     ","};
    std::mt19937 random(7);
    for (int i = 0; i < 2000; ++i) {
        std::string text;
        const int length = 1 + static_cast<int>(random() % 12);
        for (int j = 0; j < length; ++j) {
            text += pieces[random() % pieces.size()];
        }
        const std::string query = LibraryStore::ftsQuery(text);
        EXPECT_TRUE(query.empty() || wellFormed(query)) << text << " -> " << query;
        EXPECT_NO_THROW((void)store.textSearch(text, 10)) << text;
    }
}

TEST_F(Listings, TextSearchRanksWithBm25) {
    Capture titled = screen("titled", 1, "Safari", "Ramen guide");
    store.insert(titled);
    store.setDescribed(
        "titled",
        Described{"Best ramen in Tokyo", "Bowls worth the queue.", CaptureKind::food, {"ramen"}, {}, {}});
    Capture mention = screen("mention", 2, "Preview", "Quarterly report");
    store.insert(mention);
    std::string longText;
    for (int i = 0; i < 300; ++i) {
        longText += "revenue grew steadily across every region and quarter ";
    }
    store.setRead("mention", longText + "we had ramen at the offsite " + longText, std::nullopt);
    store.insert(screen("other", 3, "Notes", "Groceries"));

    auto found = store.textSearch("ramen", 10);
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[0].id, "titled");
    EXPECT_EQ(found[1].id, "mention");
    EXPECT_LT(found[0].rank, found[1].rank);
    EXPECT_LT(found[1].rank, 0);

    EXPECT_EQ(store.textSearch("ram", 10).size(), 2u) << "words match as prefixes";
    EXPECT_EQ(store.textSearch("tokyo ramen", 10).size(), 1u) << "every word is required";
    EXPECT_EQ(store.textSearch("ramen", 1).size(), 1u);
    EXPECT_TRUE(store.textSearch("the page", 10).empty());
    EXPECT_EQ(store.textSearch("Safari", 10).size(), 1u) << "the app is indexed with the source";
    std::string huge = "tokyo";
    while (huge.size() < 10'000'000) {
        huge += " ramen";
    }
    EXPECT_EQ(store.textSearch(huge, 10).size(), 1u) << "a 10 MB query is searched by its first words";

    store.deleteCapture("titled");
    EXPECT_EQ(store.textSearch("ramen", 10).size(), 1u);
}

} // namespace
} // namespace keepery::testing
