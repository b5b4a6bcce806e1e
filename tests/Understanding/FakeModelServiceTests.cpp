// The fake model service is what every later model-service test stands on: its embeddings must rank
// texts by shared words, and its script must reach the wire.
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

// The benchmarks script the service program's embeddings from a file.
TEST(FakeModelService, ScriptedEmbeddingsReachTheWire) {
    FakeModelService service;
    service.applyScript(R"({"embeddings": [{"text": "ramen", "vector": [3, 4]}]})");
    const OllamaClient client(service.host());
    const std::vector<OllamaClient::EmbedInput> ramen{{.text = "ramen"}};
    EXPECT_EQ(client.embed("m", ramen, 10s), (std::vector<std::vector<float>>{{0.6f, 0.8f}}));
    EXPECT_THROW(service.applyScript("[1]"), std::runtime_error);
    EXPECT_THROW(service.applyScript(R"({"embeddings": [{"text": 1}]})"), std::runtime_error);
}
