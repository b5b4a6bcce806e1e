// The fake model service is what every later model-service test stands on: its embeddings must rank
// texts by shared words.
#include "support/FakeModelService.h"

#include "Understanding/OllamaClient.h"
#include "Understanding/VectorMath.h"

#include <gtest/gtest.h>

using namespace keepery;
using namespace std::chrono_literals;
using keepery::testing::FakeModelService;

TEST(FakeModelService, EmbeddingsPlaceTextsThatShareWordsClose) {
    FakeModelService service;
    const OllamaClient client(service.host());
    const std::vector<OllamaClient::EmbedInput> inputs{
        {.text = "task: search result | query: espresso grinder"},
        {.text = "title: Safari \u2014 Espresso | text: the best espresso grinder for home"},
        {.text = "title: none | text: Tax return. Topics: finance, taxes"},
    };
    const auto vectors = client.embed("m", inputs, 10s);
    const float related = VectorMath::dot(vectors[0], vectors[1]);
    const float unrelated = VectorMath::dot(vectors[0], vectors[2]);
    EXPECT_GT(related, 0.5f);
    EXPECT_LT(std::abs(unrelated), 0.2f);

    EXPECT_EQ(FakeModelService::embedding("Espresso, grinder!"),
              FakeModelService::embedding("espresso grinder"));
    EXPECT_NE(FakeModelService::embedding("espresso", "aW1hZ2U="), FakeModelService::embedding("espresso"));
    EXPECT_EQ(FakeModelService::embedding("").size(), 768u);
}
