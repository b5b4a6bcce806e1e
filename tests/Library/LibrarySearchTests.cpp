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
using Ids = std::vector<std::string>;
using Reasons = std::set<SearchReason>;
using keepery::testing::axis;
using keepery::testing::idsOf;

namespace {

constexpr const char* model = "embed-test";

using Hits = std::vector<std::pair<std::string, Reasons>>;

// Each hit's id with the reasons it was found for.
Hits hitsOf(const SearchFindings& findings) {
    Hits hits;
    for (const SearchHit& hit : findings.hits) {
        hits.emplace_back(hit.id(), hit.reasons);
    }
    return hits;
}

class LibrarySearch : public keepery::testing::StoreTest {
protected:
    // A described capture whose indexed text is `text`, with the vectors that are not empty.
    void add(const std::string& id, Instant createdAt, const std::string& text,
             const std::vector<float>& look = {}, const std::vector<float>& meaning = {}) {
        store.insert(screen(id, createdAt, "App", "Window"));
        store.setDescribed(id, keepery::testing::Described{.title = text});
        for (const auto& [space, vector] :
             {std::pair{VectorSpace::look, look}, std::pair{VectorSpace::meaning, meaning}}) {
            if (!vector.empty()) {
                store.setEmbedding(id, model, {{space, vector}});
            }
        }
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
}

// Words, look and meaning are fused with their evidence kept, and only finite vectors of the library's model
// count; a service that fails, stalls or answers an empty vector leaves the words alone.
TEST_F(LibrarySearch, EvidenceFromWordsLookAndMeaningIsFusedAndKept) {
    add("both", 1, "ramen broth", axis(0), axis(2)); // words and look
    add("meant", 2, "unrelated", axis(2), axis(0));  // meaning only
    add("infinite", 3, "other", std::vector<float>{std::numeric_limits<float>::infinity(), 0, 0, 0});
    // Its vectors have another length: it scores 0, which stood out above a row of NaN scores.
    add("odd", 4, "other", std::vector<float>{1.0f, 0.0f}, std::vector<float>{1.0f, 0.0f});
    add("theirs", 5, "other");
    store.setEmbedding("theirs", "another-model",
                       {{VectorSpace::look, axis(0)}, {VectorSpace::meaning, axis(0)}});
    for (int i = 0; i < 5; ++i) { // the crowd whose median the standouts must beat
        add("crowd" + std::to_string(i), 10 + i, "crowd", axis(3), axis(3));
    }
    service.setEmbedding(EmbeddingText::query("ramen broth"), {1, 0, 0, 0});
    const SearchFindings found = library.findings("ramen broth");
    EXPECT_EQ(hitsOf(found), (Hits{{"both", {SearchReason::words, SearchReason::look}},
                                   {"meant", {SearchReason::meaning}}}));
    EXPECT_EQ(found, reference.findings("ramen broth"));

    const auto wordsAlone = [&](const std::string& what, Library& searching) {
        EXPECT_EQ(hitsOf(searching.findings("ramen broth")), (Hits{{"both", {SearchReason::words}}})) << what;
    };
    for (const FakeModelService::Reply& garbage :
         {FakeModelService::Reply::error(404, "model not found"),
          FakeModelService::Reply::json(200, R"({"embeddings": [[]]})")}) {
        service.failWith("/api/embed", garbage);
        wordsAlone(garbage.body, library);
    }
    // A service that takes the request and never answers costs the search its time-out, no more.
    Library impatient{{.store = store, .client = OllamaClient(service.host())},
                      {.visionModel = "vision",
                       .embeddingModel = model,
                       .timeouts = {.embedding = std::chrono::seconds(1)}}};
    service.clearFailures();
    service.stall("/api/embed", 10);
    const auto started = std::chrono::steady_clock::now();
    wordsAlone("a stalled reply", impatient);
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(10))
        << "it waited for the stall";
}

TEST_F(LibrarySearch, RelatedKeepsCapturesFromTheFloorUpClosestFirst) {
    const auto along = [](float x) { return std::vector<float>{x, 0.5f, 0.0f, 0.0f}; };
    add("self", 1, "self", {}, axis(0));
    add("floor", 2, "x", {}, along(0.76f));      // exactly the floor: related
    add("below", 3, "x", {}, along(0.7599999f)); // just below: not related
    add("close1", 4, "x", {}, along(0.9f));
    add("close2", 5, "x", {}, along(0.9f)); // equal scores keep the store's order
    add("closest", 6, "x", {}, along(0.95f));
    add("bare", 7, "never embedded");
    add("other", 8, "x");
    store.setEmbedding("other", "another-model", {{VectorSpace::meaning, along(1.0f)}});

    const Ids related = idsOf(library.related("self", 10));
    ASSERT_EQ(related.size(), 4u);
    EXPECT_EQ(related.front(), "closest");
    EXPECT_EQ(related.back(), "floor");
    EXPECT_EQ(related, idsOf(reference.related("self", 10)));
    EXPECT_EQ(idsOf(library.related("self", 2)), (Ids(related.begin(), related.begin() + 2)));
    EXPECT_TRUE(library.related("self", 0).empty());
    EXPECT_TRUE(library.related("bare", 10).empty());
    EXPECT_TRUE(library.related("missing", 10).empty());
    EXPECT_TRUE(service.requests().empty()) << "related asks nothing of the model service";
}

// The kept vectors and memberships answer exactly as reading everything afresh does: with the scan on
// threads, a background load raced or made stale, ties in time, and writes by the Library or another
// connection.
TEST(LibrarySearchAtScale, AnswersExactlyAsReadingEverythingAfresh) {
    keepery::testing::TemporaryDirectory directory;
    LibraryStore store(directory.path() / "Library");
    // Small collections, so rankings complete them.
    const keepery::testing::SampleLibraryOptions options{
        .captures = 400, .collections = 60, .seed = 7, .secondsBetween = 0.5};
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
    // A query pointed at the newest capture, whose vectors are the scan's last rows.
    const std::vector<float> newest =
        *store.vector(sample.captureID(sample.size() - 1), VectorSpace::meaning);
    service.setEmbedding(EmbeddingText::query("newest"), std::vector<double>(newest.begin(), newest.end()));
    queries.push_back("newest");
    // Three uneven parts of the scan on threads of their own.
    const auto makeLibrary = [&] {
        return std::make_unique<Library>(
            Library::Services{.store = store, .client = OllamaClient(service.host())},
            Library::Options{.visionModel = "vision",
                             .embeddingModel = options.embeddingModel,
                             .scan = {.threads = 3, .leastRowsPerThread = 1}});
    };
    ReferenceSearch reference(store, OllamaClient(service.host()), options.embeddingModel);
    const auto agree = [&](Library& searched, const char* when) {
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
    // A search straight after the load starts waits for it; one well after finds it done.
    const std::unique_ptr<Library> racing = makeLibrary();
    racing->preload();
    agree(*racing, "racing the load");
    const std::unique_ptr<Library> waited = makeLibrary();
    waited->preload();
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    agree(*waited, "after the load");
    const std::unique_ptr<Library> library = makeLibrary();
    agree(*library, "fresh");
    // Two captures of another topic kept in the same second join the collection each query finds first,
    // so rankings complete collections and the listing's order among equal times decides theirs.
    std::size_t next = 200;
    for (std::size_t t = 0; t < 6; ++t) {
        const SearchFindings found = library->findings(queries[t]);
        const auto filed = std::find_if(found.hits.begin(), found.hits.end(), [](const SearchHit& hit) {
            return hit.capture.collectionID.has_value();
        });
        for (int added = 0; filed != found.hits.end() && added < 2; ++next) {
            if (sample.capture(next).topic != t) {
                library->move(sample.captureID(next), filed->capture.collectionID);
                ++added;
            }
        }
    }
    agree(*library, "after collections gained members");
    std::size_t withLook = 0;
    std::size_t completions = 0;
    for (const auto& query : queries) {
        for (const SearchHit& hit : library->findings(query).hits) {
            withLook += hit.reasons.count(SearchReason::look);
            completions += hit.reasons.count(SearchReason::collection);
        }
    }
    EXPECT_GT(withLook, 0u) << "the queries must exercise the vectors";
    EXPECT_GT(completions, 0u) << "the queries must complete collections";

    library->deleteCapture(sample.captureID(3));
    library->move(sample.captureID(5), std::nullopt);
    agree(*library, "after the Library's edits");

    // A load that a later write makes stale is not used, whoever wrote.
    const std::unique_ptr<Library> stale = makeLibrary();
    stale->preload();
    LibraryStore other(directory.path() / "Library");
    other.deleteCapture(sample.captureID(8));
    other.setEmbedding(sample.captureID(9), options.embeddingModel,
                       {{VectorSpace::look, std::vector<float>(5, 0.1f)}});
    agree(*library, "after another connection's writes, with a vector of another length");
    agree(*stale, "after writes made the load stale");
    const std::unique_ptr<Library> ownWrite = makeLibrary();
    ownWrite->preload();
    ownWrite->deleteCapture(sample.captureID(11));
    agree(*ownWrite, "after the Library's own write made the load stale");
    // A Library dropped while it loads stops the load.
    makeLibrary()->preload();
}

} // namespace
