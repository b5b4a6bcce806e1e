// Search and related captures through the Library, with the model service up, down and answering
// garbage, and checked against the straightforward search that reads everything afresh.
#include "Library/Library.h"

#include "Store/StoreTesting.h"
#include "Understanding/EmbeddingText.h"
#include "support/FakeModelService.h"
#include "support/ReferenceSearch.h"
#include "support/SampleLibrary.h"

#include <gtest/gtest.h>
#include <limits>
#include <nlohmann/json.hpp>
#include <thread>

using namespace keepery;
using keepery::testing::FakeModelService;
using keepery::testing::ReferenceSearch;

namespace {

constexpr const char* model = "embed-test";

std::vector<std::string> idsOf(const std::vector<Capture>& captures) {
    std::vector<std::string> ids;
    for (const Capture& capture : captures) {
        ids.push_back(capture.id);
    }
    return ids;
}

std::vector<std::string> idsOf(const SearchFindings& findings) {
    std::vector<std::string> ids;
    for (const SearchHit& hit : findings.hits) {
        ids.push_back(hit.id());
    }
    return ids;
}

std::set<SearchReason> reasonsOf(const SearchFindings& findings, const std::string& id) {
    for (const SearchHit& hit : findings.hits) {
        if (hit.id() == id) {
            return hit.reasons;
        }
    }
    ADD_FAILURE() << id << " was not found";
    return {};
}

// A unit vector along axis `axis` of four.
std::vector<float> axis(int axis) {
    std::vector<float> v(4, 0.0f);
    v[static_cast<std::size_t>(axis)] = 1.0f;
    return v;
}

class LibrarySearch : public keepery::testing::StoreTest {
protected:
    // A described capture whose indexed text is `text`, with vectors when given.
    void add(const std::string& id, Instant createdAt, const std::string& text,
             std::optional<std::vector<float>> look = std::nullopt,
             std::optional<std::vector<float>> meaning = std::nullopt) {
        store.insert(screen(id, createdAt, "App", "Window"));
        keepery::testing::Described described{.title = text};
        store.setDescribed(id, described);
        std::map<VectorSpace, std::vector<float>> vectors;
        if (look) {
            vectors[VectorSpace::look] = *look;
        }
        if (meaning) {
            vectors[VectorSpace::meaning] = *meaning;
        }
        if (!vectors.empty()) {
            store.setEmbedding(id, model, vectors);
        }
    }

    void collect(const std::string& collectionID, const std::vector<std::string>& ids) {
        store.insertCollection(CaptureCollection{.id = collectionID, .name = collectionID, .emoji = "📁"});
        for (const std::string& id : ids) {
            store.setCollection(id, collectionID);
        }
    }

    void answerQuery(const std::string& query, const std::vector<float>& vector) {
        service.setEmbedding(EmbeddingText::query(query), std::vector<double>(vector.begin(), vector.end()));
    }

    std::vector<std::string> wordOrder(const std::string& query) {
        std::vector<std::string> ids;
        for (const auto& match : store.textSearch(query, 100)) {
            ids.push_back(match.id);
        }
        return ids;
    }

    FakeModelService service;
    Library library{{.store = store, .client = OllamaClient(service.host())},
                    {.visionModel = "vision", .embeddingModel = model}};
    ReferenceSearch reference{store, OllamaClient(service.host()), model};
};

// A blank query finds nothing and asks nothing; any other is embedded once, trimmed and cut, with the search
// prefix and the library's model.
TEST_F(LibrarySearch, TheQueryIsEmbeddedOnceTrimmedAndCutUnlessItIsBlank) {
    add("a", 1, "ramen", axis(0), axis(0));
    for (const char* query : {"", "   ", " \n\t "}) {
        EXPECT_EQ(library.findings(query), SearchFindings{}) << '"' << query << '"';
    }
    EXPECT_TRUE(service.requests("/api/embed").empty());
    const auto embedded = [&](const std::string& query) {
        const std::size_t before = service.requests("/api/embed").size();
        (void)library.findings(query);
        const auto requests = service.requests("/api/embed");
        EXPECT_EQ(requests.size(), before + 1);
        const auto body = nlohmann::json::parse(requests.back().body);
        EXPECT_EQ(body.at("model"), model);
        EXPECT_EQ(body.at("input").size(), 1u);
        return body.at("input").at(0).get<std::string>();
    };
    EXPECT_EQ(embedded("  tonkotsu ramen \n"), "task: search result | query: tonkotsu ramen");
    // Only the first characters of an absurdly long query are embedded.
    constexpr std::size_t most = Library::mostEmbeddedQueryCharacters;
    const std::string atTheBound = "\u00E9" + std::string(most - 2, 'x') + "y"; // more bytes than characters
    EXPECT_EQ(embedded(atTheBound), EmbeddingText::query(atTheBound));
    EXPECT_EQ(embedded(atTheBound + "zz"), EmbeddingText::query(atTheBound));
    const std::string words = "ramen " + std::string(10'000'000, 'w');
    EXPECT_EQ(embedded(words), EmbeddingText::query(words.substr(0, most)));
}

// With the service down the words rank alone: the first 60 in full-text order, then the members that
// complete the collections those 60 cover (3 of 4 found, at least 3 members).
TEST_F(LibrarySearch, WithoutTheModelServiceWordsRankAloneAndCollectionsComplete) {
    for (int i = 0; i < 70; ++i) {
        // Ever more filler words push a capture's bm25 further down.
        std::string text = "ramen";
        for (int w = 0; w < i; ++w) {
            text.append(" filler").append(std::to_string(w));
        }
        add(std::string("r").append(std::to_string(i)), i, text);
    }
    add("quiet", 100, "nothing to see");
    add("alone", 101, "nothing either");
    const std::vector<std::string> words = wordOrder("ramen");
    ASSERT_EQ(words.size(), 70u);
    const std::vector<std::string> ranked(words.begin(), words.begin() + 60);
    collect("A", {ranked[0], ranked[1], ranked[2], "quiet"});   // 3 of 4 found: "quiet" completes it
    collect("B", {ranked[3], ranked[4], ranked[5], words[65]}); // completed by a capture past the cut
    collect("C", {ranked[6], ranked[7]});                       // 2 of 2: too small to cover
    collect("D", {ranked[8], words[61], words[62], "alone"});   // 1 of 4: not covered
    service.refuseConnections();

    const SearchFindings found = library.findings("ramen");
    std::vector<std::string> expected = ranked;
    expected.push_back("quiet");
    expected.push_back(words[65]);
    EXPECT_EQ(idsOf(found), expected);
    EXPECT_EQ(found.collectionIDs, (std::vector<std::string>{"A", "B"}));
    EXPECT_EQ(reasonsOf(found, ranked[0]), std::set<SearchReason>{SearchReason::words});
    EXPECT_EQ(reasonsOf(found, "quiet"), std::set<SearchReason>{SearchReason::collection});
    EXPECT_EQ(reasonsOf(found, words[65]), std::set<SearchReason>{SearchReason::words})
        << "a completion found by words keeps its evidence";
    EXPECT_EQ(idsOf(library.search("ramen")), expected);
}

TEST_F(LibrarySearch, AServiceFailingStallingOrAnsweringUnfitVectorsGivesNoVectorEvidence) {
    add("words", 1, "ramen shop", axis(1), axis(1));
    add("look", 2, "something else", axis(0), axis(0));
    const auto wordsAlone = [&](const std::string& what, Library& searching) {
        const SearchFindings found = searching.findings("ramen");
        EXPECT_EQ(idsOf(found), (std::vector<std::string>{"words"})) << what;
        EXPECT_EQ(reasonsOf(found, "words"), std::set<SearchReason>{SearchReason::words}) << what;
    };
    for (int i = 0; i < 5; ++i) {
        add("crowd" + std::to_string(i), 10 + i, "crowd", axis(3), axis(3));
    }
    // Its vectors have another length: it scores 0, which stood out above a row of NaN scores.
    add("odd", 3, "unrelated", std::vector<float>{1.0f, 0.0f}, std::vector<float>{1.0f, 0.0f});
    answerQuery("ramen", axis(0));
    EXPECT_EQ(idsOf(library.findings("ramen")), (std::vector<std::string>{"look", "words"}));
    for (const FakeModelService::Reply& garbage :
         {FakeModelService::Reply::json(200, "[]"),
          FakeModelService::Reply::json(200, R"({"embeddings": []})"),
          FakeModelService::Reply::text(200, "not json"), FakeModelService::Reply::html(500, 300),
          FakeModelService::Reply::error(404, "model not found"),
          FakeModelService::Reply::json(200, R"({"embeddings": [[NaN, 1, 0, 0]]})"),
          FakeModelService::Reply::json(200, R"({"embeddings": [[]]})")}) {
        service.failWith("/api/embed", garbage);
        wordsAlone(garbage.body, library);
    }
    service.clearFailures();
    for (const std::vector<double>& answer :
         {std::vector<double>(4, 1e300), std::vector<double>{0.5, 1e39, 0.5, 0.5}}) {
        service.setEmbedding(EmbeddingText::query("ramen"), answer);
        wordsAlone(std::to_string(answer[1]), library);
    }

    // A service that takes the request and never answers costs the search its time-out, no more.
    Library impatient{{.store = store, .client = OllamaClient(service.host())},
                      {.visionModel = "vision",
                       .embeddingModel = model,
                       .timeouts = {.embedding = std::chrono::seconds(1)}}};
    service.stall("/api/embed", 10);
    const auto started = std::chrono::steady_clock::now();
    wordsAlone("a stalled reply", impatient);
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(10))
        << "it waited for the stall";
}

TEST_F(LibrarySearch, StoredVectorsThatAreNotFiniteAreNoVectors) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float infinity = std::numeric_limits<float>::infinity();
    add("good", 1, "alpha", axis(0), axis(0));
    add("nan", 2, "beta", std::vector<float>{nan, 0, 0, 0}, std::vector<float>{1, nan, 0, 0});
    add("infinite", 3, "gamma", std::vector<float>{infinity, 0, 0, 0},
        std::vector<float>{0.99f, 0.1f, 0, infinity});
    for (int i = 0; i < 5; ++i) {
        add("crowd" + std::to_string(i), 10 + i, "crowd", axis(3), axis(3));
    }
    answerQuery("query", axis(0));
    const SearchFindings found = library.findings("query");
    EXPECT_EQ(idsOf(found), std::vector<std::string>{"good"});
    EXPECT_EQ(found, reference.findings("query"));

    EXPECT_EQ(store.vector("nan", VectorSpace::look), std::nullopt);
    EXPECT_TRUE(library.related("nan", 10).empty()) << "its own vector is none";
    add("near", 4, "delta", std::nullopt, std::vector<float>{0.99f, 0.1f, 0, 0});
    EXPECT_EQ(idsOf(library.related("good", 10)), std::vector<std::string>{"near"});
}

TEST_F(LibrarySearch, EvidenceFromWordsLookAndMeaningIsFusedAndKept) {
    add("both", 1, "ramen broth", axis(0), axis(2)); // words and look
    add("meant", 2, "unrelated", axis(2), axis(0));  // meaning only
    for (int i = 0; i < 5; ++i) {                    // the crowd the standouts must beat
        add("crowd" + std::to_string(i), 10 + i, "crowd", axis(3), axis(3));
    }
    // Only vectors of the library's model count.
    add("theirs", 3, "other");
    store.setEmbedding("theirs", "another-model",
                       {{VectorSpace::look, axis(0)}, {VectorSpace::meaning, axis(0)}});
    answerQuery("ramen broth", axis(0));
    const SearchFindings found = library.findings("ramen broth");
    EXPECT_EQ(idsOf(found), (std::vector<std::string>{"both", "meant"}));
    EXPECT_EQ(reasonsOf(found, "both"), (std::set<SearchReason>{SearchReason::words, SearchReason::look}));
    EXPECT_EQ(reasonsOf(found, "meant"), std::set<SearchReason>{SearchReason::meaning});
    EXPECT_TRUE(found.collectionIDs.empty());
    EXPECT_EQ(found, reference.findings("ramen broth"));
}

TEST_F(LibrarySearch, RelatedKeepsCapturesFromTheFloorUpClosestFirst) {
    const auto along = [](float x) { return std::vector<float>{x, 0.5f, 0.0f, 0.0f}; };
    add("self", 1, "self", std::nullopt, std::vector<float>{1.0f, 0.0f, 0.0f, 0.0f});
    add("floor", 2, "x", std::nullopt, along(0.76f));      // exactly the floor: related
    add("below", 3, "x", std::nullopt, along(0.7599999f)); // just below: not related
    add("close1", 4, "x", std::nullopt, along(0.9f));
    add("close2", 5, "x", std::nullopt, along(0.9f)); // equal scores keep the store's order
    add("closest", 6, "x", std::nullopt, along(0.95f));
    add("bare", 7, "never embedded");
    add("other", 8, "x");
    store.setEmbedding("other", "another-model", {{VectorSpace::meaning, along(1.0f)}});

    const auto related = idsOf(library.related("self", 10));
    ASSERT_EQ(related.size(), 4u);
    EXPECT_EQ(related.front(), "closest");
    EXPECT_EQ(related.back(), "floor");
    EXPECT_EQ(related, idsOf(reference.related("self", 10)));
    EXPECT_EQ(idsOf(library.related("self", 2)),
              (std::vector<std::string>(related.begin(), related.begin() + 2)));
    EXPECT_TRUE(library.related("self", 0).empty());
    EXPECT_TRUE(library.related("bare", 10).empty());
    EXPECT_TRUE(library.related("missing", 10).empty());
    EXPECT_TRUE(service.requests().empty()) << "related asks nothing of the model service";
}

TEST_F(LibrarySearch, ChangesByAnotherConnectionAreSeenByTheNextSearch) {
    add("a", 1, "alpha", axis(0), axis(0));
    add("b", 2, "beta", axis(1), axis(1));
    answerQuery("query", axis(0));
    EXPECT_EQ(idsOf(library.findings("query")), (std::vector<std::string>{"a"}));
    EXPECT_EQ(idsOf(library.related("b", 5)), std::vector<std::string>{});

    // Behind the Library's back: a's vectors go, b turns towards the query, a collection forms.
    LibraryStore other(directory.path() / "Library");
    other.deleteCapture("a");
    other.setEmbedding("b", model, {{VectorSpace::look, axis(0)}, {VectorSpace::meaning, axis(0)}});
    add("c", 3, "gamma", axis(0), axis(0));
    EXPECT_EQ(idsOf(library.findings("query")), (std::vector<std::string>{"b", "c"}));
    EXPECT_EQ(idsOf(library.related("b", 5)), (std::vector<std::string>{"c"}));

    raw.run("UPDATE vectors SET vector = ? WHERE capture_id = 'c'",
            {Database::Blob(std::vector<std::uint8_t>(16, 0))});
    EXPECT_EQ(idsOf(library.findings("query")), (std::vector<std::string>{"b"}));
    EXPECT_EQ(library.findings("query"), reference.findings("query"));
}

// The kept vectors and memberships answer exactly as reading everything afresh does, through the
// Library's own writes, another connection's, ties in time and vectors of an unexpected length; whether
// the scan is shared between threads, and whether a search races the background load or comes after a
// write that made the load stale.
TEST(LibrarySearchAtScale, AnswersExactlyAsReadingEverythingAfresh) {
    keepery::testing::TemporaryDirectory directory;
    LibraryStore store(directory.path() / "Library");
    keepery::testing::SampleLibraryOptions options;
    options.captures = 400;
    options.seed = 7;
    options.secondsBetween = 0.5;
    options.collections = 60; // small collections, so rankings complete them
    const keepery::testing::SampleLibrary sample(options);
    sample.write(store);
    // About twenty captures share each kept time, so the listing's order among equals matters.
    Database((directory.path() / "Library" / "library.sqlite").string())
        .execute("UPDATE captures SET created_at = CAST(created_at / 10 AS INTEGER) * 10");
    FakeModelService service;
    std::vector<std::string> queries;
    for (std::size_t t = 0; t < 6; ++t) {
        queries.push_back(sample.topicQuery(t));
        const auto v = sample.topicVector(t, t % 2 == 0 ? VectorSpace::look : VectorSpace::meaning);
        service.setEmbedding(EmbeddingText::query(queries.back()), std::vector<double>(v.begin(), v.end()));
    }
    queries.push_back("the and of");
    // Three uneven parts of the scan on threads of their own.
    const auto makeLibrary = [&] {
        return std::make_unique<Library>(
            Library::Services{.store = store, .client = OllamaClient(service.host())},
            Library::Options{.visionModel = "vision",
                             .embeddingModel = options.embeddingModel,
                             .scan = {.threads = 3, .leastRowsPerThread = 1}});
    };
    const std::unique_ptr<Library> threaded = makeLibrary();
    Library& library = *threaded;
    ReferenceSearch reference(store, OllamaClient(service.host()), options.embeddingModel);

    const auto agreeOf = [&](Library& searched, const char* when) {
        for (const std::string& query : queries) {
            const SearchFindings expected = reference.findings(query);
            EXPECT_EQ(searched.findings(query), expected) << when << ": " << query;
            SearchFindings firstThree = expected;
            firstThree.hits.resize(std::min<std::size_t>(3, expected.hits.size()));
            EXPECT_EQ(searched.findings(query, 3), firstThree) << when << ": the first three for " << query;
        }
        for (std::size_t i = 0; i < sample.size(); i += 37) {
            const std::string id = sample.captureID(i);
            EXPECT_EQ(searched.related(id, 8), reference.related(id, 8)) << when << ": related to " << id;
        }
    };
    const auto agree = [&](const char* when) { agreeOf(library, when); };
    // A search straight after the load starts waits for it; one well after finds it done.
    const std::unique_ptr<Library> racing = makeLibrary();
    racing->preload();
    agreeOf(*racing, "racing the load");
    const std::unique_ptr<Library> waited = makeLibrary();
    waited->preload();
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    agreeOf(*waited, "after the load");
    agree("fresh");
    // Two captures of another topic kept in the same second join the collection each query finds first,
    // so rankings complete collections and the listing's order among equal times decides theirs.
    std::size_t next = 200;
    for (std::size_t t = 0; t < 6; ++t) {
        const SearchFindings found = library.findings(queries[t]);
        const auto filed = std::find_if(found.hits.begin(), found.hits.end(), [](const SearchHit& hit) {
            return hit.capture.collectionID.has_value();
        });
        for (int added = 0; filed != found.hits.end() && added < 2; ++next) {
            if (sample.capture(next).topic != t) {
                library.move(sample.captureID(next), filed->capture.collectionID);
                ++added;
            }
        }
    }
    agree("after collections gained members");

    std::size_t withLook = 0;
    std::size_t completions = 0;
    for (const auto& query : queries) {
        for (const SearchHit& hit : library.findings(query).hits) {
            withLook += hit.reasons.count(SearchReason::look);
            completions += hit.reasons.count(SearchReason::collection);
        }
    }
    EXPECT_GT(withLook, 0u) << "the queries must exercise the vectors";
    EXPECT_GT(completions, 0u) << "the queries must complete collections";

    library.deleteCapture(sample.captureID(3));
    library.move(sample.captureID(5), std::nullopt);
    agree("after the Library's edits");

    // A load that a later write makes stale is not used, whoever wrote.
    const std::unique_ptr<Library> stale = makeLibrary();
    stale->preload();
    LibraryStore other(directory.path() / "Library");
    other.deleteCapture(sample.captureID(8));
    other.setEmbedding(sample.captureID(9), options.embeddingModel,
                       {{VectorSpace::look, std::vector<float>(5, 0.1f)}});
    agree("after another connection's writes, with a vector of another length");
    agreeOf(*stale, "after writes made the load stale");
    const std::unique_ptr<Library> ownWrite = makeLibrary();
    ownWrite->preload();
    ownWrite->deleteCapture(sample.captureID(11));
    agreeOf(*ownWrite, "after the Library's own write made the load stale");
    // A Library dropped while it loads stops the load.
    makeLibrary()->preload();
}

} // namespace
