// Filing embedded captures: staying unsorted, forming and joining collections, naming them when they have
// doubled, and deciding from the kept vectors exactly as from everything read afresh.
#include "Library/Library.h"

#include "Store/StoreTesting.h"
#include "Understanding/VectorMath.h"
#include "support/FakeModelService.h"

#include <algorithm>
#include <array>
#include <gtest/gtest.h>
#include <random>

using namespace keepery;
using namespace std::chrono_literals;
using keepery::testing::axis;
using keepery::testing::FakeModelService;
using keepery::testing::idsOf;

namespace {

class OrganizingStep : public keepery::testing::StoreTest {
protected:
    // A capture at stage `embedded` with `vector` in both spaces.
    void embedded(const std::string& id, Instant createdAt, const std::vector<float>& vector,
                  const std::string& windowTitle = "Window") {
        store.insert(screen(id, createdAt, "Safari", windowTitle));
        store.setEmbedding(id, FakeModelService::embeddingModel,
                           {{VectorSpace::look, vector}, {VectorSpace::meaning, vector}});
    }

    void organized(const std::string& id, Instant createdAt, const std::vector<float>& vector,
                   const std::optional<std::string>& collectionID = std::nullopt) {
        embedded(id, createdAt, vector);
        store.setCollection(id, collectionID);
    }

    std::size_t namingRequests() const { return service.requests("/api/generate").size(); }

    FakeModelService service;
    Library library{
        {.store = store, .client = OllamaClient(service.host()), .clock = clock, .files = files},
        {.visionModel = FakeModelService::visionModel, .embeddingModel = FakeModelService::embeddingModel}};
};

TEST_F(OrganizingStep, ACaptureStaysUnsortedOrFormsANamedCollectionWithCloseUnsortedOnes) {
    organized("far", 1, axis(3));
    embedded("lone", 2, axis(0));
    library.organize("lone");
    EXPECT_EQ(store.capture("lone")->stage, CaptureStage::organized);
    EXPECT_FALSE(store.capture("lone")->collectionID);
    EXPECT_TRUE(store.collections().empty());

    organized("u1", 3, axis(1));
    organized("u2", 4, axis(1));
    embedded("still-embedded", 5, axis(1)); // in the pipeline: not a companion
    embedded("new", 6, axis(1), "espresso notes");
    clock.advance(10s);
    library.organize("new");
    const std::vector<CaptureCollection> all = store.collections();
    ASSERT_EQ(all.size(), 1u);
    for (const char* id : {"new", "u1", "u2"}) {
        EXPECT_EQ(store.capture(id)->collectionID, all[0].id) << id;
    }
    EXPECT_FALSE(store.capture("still-embedded")->collectionID);
    // Named by the model at once, from the newest member.
    const Instant now = clock.secondsSince1970();
    EXPECT_EQ(all[0], (CaptureCollection{all[0].id, "Espresso Notes", all[0].emoji, now, now, 3, 3, false}));
}

TEST_F(OrganizingStep, CollectionsAreRenamedFromTheirNewestMemberWhenTheyDouble) {
    store.insertCollection({.id = "auto", .name = "Trains", .emoji = "🚆", .namedAtCount = 3});
    for (int i = 0; i < 3; ++i) {
        organized("a" + std::to_string(i), i, axis(0), "auto");
    }
    for (int member = 4; member <= 6; ++member) {
        embedded("a" + std::to_string(member), 20 + member, axis(0), "Rail " + std::to_string(member));
        library.organize("a" + std::to_string(member));
        EXPECT_EQ(store.capture("a" + std::to_string(member))->collectionID, "auto");
        EXPECT_EQ(namingRequests(), member == 6 ? 1u : 0u) << member << " members";
    }
    EXPECT_EQ(store.collection("auto")->name, "Rail 6");
    EXPECT_EQ(store.collection("auto")->namedAtCount, 6);
}

TEST_F(OrganizingStep, ANamingFailureIsRecordedOnTheFiledCaptureWhichIsNotRetried) {
    store.insertCollection({.id = "c", .name = "New collection", .emoji = "📁"});
    organized("first", 1, axis(2), "c");
    // Moved there by the user before it was filed: it counts as a member all the same.
    embedded("moved", 2, axis(2));
    store.moveCapture("moved", "c");
    embedded("second", 3, axis(2));
    service.removeModel(FakeModelService::visionModel);
    int announcements = 0;
    library.setOnChange([&] { ++announcements; });
    library.advance(*store.capture("second"));

    const auto filed = store.capture("second");
    EXPECT_EQ(filed->stage, CaptureStage::organized);
    EXPECT_EQ(filed->collectionID, "c");
    EXPECT_EQ(filed->lastError, "A model is missing: model \"qwen3.5:4b\" not found, try pulling it first");
    EXPECT_EQ(column("second", "attempts").asInt(), 1);
    EXPECT_EQ(store.collection("c")->name, "New collection");
    EXPECT_EQ(announcements, 1);
    clock.advance(1h);
    EXPECT_EQ(idsOf(store.pending(clock.secondsSince1970(), 10)), std::vector<std::string>{"moved"});
}

// What the organizer decides from the lists read afresh, as the organizing step would gather them.
Organizer::Decision decidedAfresh(LibraryStore& store, const std::string& id) {
    const std::vector<float> own = *store.vector(id, VectorSpace::meaning);
    const LibraryStore::VectorRows rows =
        store.vectorRows(FakeModelService::embeddingModel, VectorSpace::meaning);
    std::map<std::string, std::span<const float>> vectors;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        vectors[rows.ids[i]] = rows.row(i);
    }
    std::vector<Organizer::Group> groups;
    std::vector<Organizer::Candidate> unsorted;
    for (const Capture& capture : store.captures(LibraryFilter::recent(), Library::membershipListing)) {
        const auto vector = vectors.find(capture.id);
        if (capture.id == id || vector == vectors.end()) {
            continue;
        }
        if (capture.collectionID) {
            auto group = std::find_if(groups.begin(), groups.end(), [&](const Organizer::Group& g) {
                return g.id == *capture.collectionID;
            });
            if (group == groups.end()) {
                groups.push_back({*capture.collectionID, {}});
                group = groups.end() - 1;
            }
            group->members.push_back(vector->second);
        } else if (capture.stage == CaptureStage::organized) {
            unsorted.push_back({vector->first, vector->second});
        }
    }
    return Organizer().decide(own, groups, unsorted);
}

TEST_F(OrganizingStep, FilesEveryCaptureAsTheListsReadAfreshDecide) {
    std::mt19937 random(11);
    std::normal_distribution<float> noise(0.0f, 0.22f);
    std::vector<std::vector<float>> topics(8, std::vector<float>(12));
    for (std::vector<float>& topic : topics) {
        for (float& x : topic) {
            x = noise(random);
        }
        topic = VectorMath::unit(topic);
    }
    std::array<std::size_t, 3> decided{}; // how often each case came: join, form, stay unsorted
    LibraryStore other(directory.path() / "Library");
    for (int i = 0; i < 160; ++i) {
        std::vector<float> v = topics[static_cast<std::size_t>(i) % topics.size()];
        for (float& x : v) {
            x += noise(random) * 0.45f;
        }
        const std::string id = "c" + std::to_string(i);
        embedded(id, i / 3, VectorMath::unit(v)); // three captures share each time
        const Organizer::Decision expected = decidedAfresh(store, id);
        library.organize(id);
        ++decided.at(expected.value.index());
        const std::optional<std::string> filedIn = store.capture(id)->collectionID;
        if (const auto* join = expected.asJoin()) {
            EXPECT_EQ(filedIn, join->collectionID) << id;
        } else if (const auto* form = expected.asForm()) {
            ASSERT_TRUE(filedIn) << id;
            std::vector<std::string> members = form->with;
            members.push_back(id);
            std::sort(members.begin(), members.end());
            std::vector<std::string> stored = idsOf(store.captures(LibraryFilter::collection(*filedIn), 100));
            std::sort(stored.begin(), stored.end());
            EXPECT_EQ(stored, members) << id;
        } else {
            EXPECT_FALSE(filedIn) << id;
        }
        // Now and then the user moves or deletes a capture, or another program writes.
        if (i % 23 == 5) {
            library.move("c" + std::to_string(i - 3), std::nullopt);
        } else if (i % 23 == 11) {
            library.deleteCapture("c" + std::to_string(i - 7));
        } else if (i % 23 == 14) {
            // The oldest unsorted capture goes: newer ones stand after its vectors.
            const std::vector<Capture> unsorted = store.captures(LibraryFilter::unsorted(), 1000);
            if (!unsorted.empty()) {
                library.deleteCapture(unsorted.back().id);
            }
        } else if (i % 23 == 17) {
            other.setCollection("c" + std::to_string(i - 2), std::nullopt);
        }
    }
    EXPECT_GT(decided[0], 20u);
    EXPECT_GT(decided[1], 3u);
    EXPECT_GT(decided[2], 3u);
}

} // namespace
