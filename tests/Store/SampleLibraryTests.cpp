#include "support/SampleLibrary.h"

#include "Store/StoreTesting.h"
#include "Understanding/VectorMath.h"

#include <set>

namespace keepery::testing {
namespace {

using SampleLibraries = StoreTest;

TEST_F(SampleLibraries, AreTheSameForTheSameSeedAndWriteThroughTheStore) {
    SampleLibraryOptions options;
    options.captures = 60;
    options.collections = 4;
    options.seed = 9;
    const SampleLibrary library(options);
    const SampleLibrary again(options);
    options.seed = 10;
    const SampleLibrary other(options);

    EXPECT_EQ(library.capture(17).kept, again.capture(17).kept);
    EXPECT_EQ(library.capture(17).look, again.capture(17).look);
    EXPECT_NE(library.capture(17).kept.id, other.capture(17).kept.id);
    EXPECT_EQ(library.captureID(17), library.capture(17).kept.id);
    EXPECT_LT(library.capture(3).kept.createdAt, library.capture(4).kept.createdAt);

    std::set<std::string> ids;
    for (std::size_t i = 0; i < library.size(); ++i) {
        const SampleCapture sample = library.capture(i);
        ids.insert(sample.kept.id);
        ASSERT_EQ(sample.look.size(), 768u);
        EXPECT_NEAR(VectorMath::dot(sample.look, sample.look), 1.0f, 1e-4f);
        EXPECT_NEAR(VectorMath::dot(sample.meaning, sample.meaning), 1.0f, 1e-4f);
    }
    EXPECT_EQ(ids.size(), library.size());

    // Captures of one collection lie nearer each other than captures of different topics.
    const SampleCapture a = library.capture(0);
    float together = -1;
    float apart = 2;
    for (std::size_t i = 1; i < library.size(); ++i) {
        const SampleCapture b = library.capture(i);
        if (a.collectionID && b.collectionID == a.collectionID) {
            together = std::max(together, VectorMath::dot(a.meaning, b.meaning));
        } else if (b.topic != a.topic) {
            apart = std::min(apart, VectorMath::dot(a.meaning, b.meaning));
        }
    }
    EXPECT_GT(together, apart);

    library.write(store);
    EXPECT_EQ(store.count(), 60);
    EXPECT_TRUE(store.pending(1e12, 100).empty()) << "every capture is processed to the end";
    EXPECT_EQ(store.vectorRows(options.embeddingModel, VectorSpace::meaning).size(), 60u);
    const Capture stored = *store.capture(library.captureID(5));
    EXPECT_EQ(stored.ocrText, library.capture(5).ocrText);
    EXPECT_FALSE(store.textSearch(library.topicQuery(library.capture(5).topic), 100).empty());
}

} // namespace
} // namespace keepery::testing
