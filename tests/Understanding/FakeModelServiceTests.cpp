// The benchmarks script the service program's embeddings from a file: the script must reach the wire.
#include "support/FakeModelService.h"

#include "Understanding/OllamaClient.h"

#include <gtest/gtest.h>

using namespace keepery;
using namespace std::chrono_literals;
using keepery::testing::FakeModelService;

TEST(FakeModelService, ScriptedEmbeddingsReachTheWire) {
    FakeModelService service;
    service.applyScript(R"({"embeddings": [{"text": "ramen", "vector": [3, 4]}]})");
    const OllamaClient client(service.host());
    const std::vector<OllamaClient::EmbedInput> ramen{{.text = "ramen"}};
    EXPECT_EQ(client.embed("m", ramen, 10s), (std::vector<std::vector<float>>{{0.6f, 0.8f}}));
    EXPECT_THROW(service.applyScript("[1]"), std::runtime_error);
    EXPECT_THROW(service.applyScript(R"({"embeddings": [{"text": 1}]})"), std::runtime_error);
}
