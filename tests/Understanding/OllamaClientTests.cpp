#include "Understanding/OllamaClient.h"

#include "support/FakeModelService.h"

#include <cmath>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

using namespace keepery;
using namespace std::chrono_literals;
using keepery::testing::FakeModelService;
using nlohmann::json;
using Kind = OllamaClient::Failure::Kind;

namespace {

// Runs `operation` and returns the Failure it throws; fails the test when it throws nothing.
template <typename Operation>
OllamaClient::Failure failureOf(Operation operation) {
    try {
        operation();
    } catch (const OllamaClient::Failure& failure) {
        return failure;
    }
    ADD_FAILURE() << "no OllamaClient::Failure was thrown";
    return OllamaClient::Failure::badReply("(none)");
}

std::vector<std::uint8_t> bytes(std::string_view text) {
    return {text.begin(), text.end()};
}

json lastBody(const FakeModelService& service, std::string_view path) {
    const auto requests = service.requests(path);
    if (requests.empty()) {
        ADD_FAILURE() << "no request to " << path;
        return json();
    }
    return json::parse(requests.back().body);
}

OllamaClient::GenerateRequest plainGenerate() {
    return {.model = "qwen3.5:4b", .prompt = "Say hi", .maxTokens = 80, .timeout = 10s};
}

} // namespace

TEST(OllamaClientFailure, TextFormsAndEquality) {
    EXPECT_EQ(OllamaClient::Failure::unreachable("Could not connect").description(),
              "Ollama is not reachable (Could not connect)");
    EXPECT_EQ(OllamaClient::Failure::server(404, "model 'x' not found").description(),
              "Ollama answered 404: model 'x' not found");
    EXPECT_EQ(OllamaClient::Failure::badReply("no version").description(),
              "Unexpected reply from Ollama: no version");
    EXPECT_STREQ(OllamaClient::Failure::server(500, "boom").what(), "Ollama answered 500: boom");

    EXPECT_EQ(OllamaClient::Failure::server(404, "a"), OllamaClient::Failure::server(404, "a"));
    EXPECT_NE(OllamaClient::Failure::server(404, "a"), OllamaClient::Failure::server(500, "a"));
    EXPECT_NE(OllamaClient::Failure::badReply("a"), OllamaClient::Failure::unreachable("a"));
}

TEST(OllamaClient, AsksForTheVersionAndTheInstalledModels) {
    FakeModelService service;
    service.setVersion("0.41.2");
    const OllamaClient client(service.host() + "/"); // a trailing slash on the address is no part of a path
    EXPECT_EQ(client.version(), "0.41.2");

    const auto versionRequest = service.requests("/api/version").at(0);
    EXPECT_EQ(versionRequest.method, "GET");
    EXPECT_FALSE(versionRequest.hasContentType) << "a request without a body sets no content type";
    EXPECT_TRUE(versionRequest.body.empty());

    service.failWith("/api/tags",
                     FakeModelService::Reply::json(
                         200, R"({"models":[{"name":"a:latest"},{"model":"b"},{"name":"c:2b"}]})"));
    EXPECT_EQ(client.models(), (std::vector<std::string>{"a:latest", "c:2b"}));
    EXPECT_EQ(service.requests("/api/tags").at(0).method, "GET");

    // A list holding anything but objects is not a list of models.
    for (const char* reply : {"{}", R"({"models":"none"})", R"({"models":[{"name":"a"},7]})"}) {
        service.failWith("/api/tags", FakeModelService::Reply::json(200, reply));
        EXPECT_TRUE(client.models().empty()) << reply;
    }

    service.failWith("/api/version", FakeModelService::Reply::json(200, R"({"version":41})"));
    EXPECT_EQ(failureOf([&] { (void)client.version(); }), OllamaClient::Failure::badReply("no version"));
}

TEST(OllamaClient, ErrorStatusesBecomeServerFailures) {
    FakeModelService service;
    const OllamaClient client(service.host());

    service.failWith("/api/version", FakeModelService::Reply::error(404, "model 'qwen3.5:4b' not found"));
    auto failure = failureOf([&] { (void)client.version(); });
    EXPECT_EQ(failure, OllamaClient::Failure::server(404, "model 'qwen3.5:4b' not found"));

    // Without an "error" text, the message is the start of the body.
    const auto page = FakeModelService::Reply::html(500, 1000);
    service.failWith("/api/version", page);
    failure = failureOf([&] { (void)client.version(); });
    EXPECT_EQ(failure.kind(), Kind::server);
    EXPECT_EQ(failure.status(), 500);
    EXPECT_EQ(failure.message(), page.body.substr(0, 200));

    service.failWith("/api/version", FakeModelService::Reply::json(503, R"({"error":{"code":1}})"));
    EXPECT_EQ(failureOf([&] { (void)client.version(); }),
              OllamaClient::Failure::server(503, R"({"error":{"code":1}})"));

    // A character cut by the 200-byte limit becomes U+FFFD.
    service.failWith("/api/version",
                     FakeModelService::Reply::text(502, std::string(199, 'x') + "\u00E9tait"));
    EXPECT_EQ(failureOf([&] { (void)client.version(); }).message(), std::string(199, 'x') + "\uFFFD");

    service.failWith("/api/version", FakeModelService::Reply::empty(500));
    EXPECT_EQ(failureOf([&] { (void)client.version(); }), OllamaClient::Failure::server(500, ""));
}

// A success whose body is no JSON object, or one nested past the reader's bound, is a bad reply.
TEST(OllamaClient, SuccessWithoutAReadableObjectIsABadReply) {
    FakeModelService service;
    const OllamaClient client(service.host());
    const auto notAnObject = OllamaClient::Failure::badReply("not a JSON object");
    const std::string deep = std::string(100'000, '[') + std::string(100'000, ']');

    for (const auto& reply :
         {FakeModelService::Reply::json(200, R"(["0.41.0"])"),
          FakeModelService::Reply::text(200, "0.41.0 at your service"), FakeModelService::Reply::empty(204),
          FakeModelService::Reply::json(200, R"({"version":"0.41.0","x":)" + deep + "}")}) {
        service.failWith("/api/version", reply);
        EXPECT_EQ(failureOf([&] { (void)client.version(); }), notAnObject) << reply.body.substr(0, 40);
    }
    service.failWith("/api/generate", FakeModelService::Reply::json(200, "\"just a string\""));
    EXPECT_EQ(failureOf([&] { (void)client.generate(plainGenerate()); }), notAnObject);
    service.failWith("/api/tags", FakeModelService::Reply::json(200, R"({"models":)" + deep + "}"));
    EXPECT_EQ(failureOf([&] { (void)client.models(); }), notAnObject);

    // A progress line whose numbers nest that deep is skipped like any line that is not an object.
    service.setPullLines({R"({"status":"one","completed":)" + deep + "}", R"({"status":"two"})"});
    std::vector<std::string> statuses;
    client.pull("m",
                [&](std::int64_t, std::int64_t, const std::string& status) { statuses.push_back(status); });
    EXPECT_EQ(statuses, std::vector<std::string>{"two"});
}

TEST(OllamaClient, AnAbsentOrSilentServiceIsUnreachable) {
    FakeModelService service;
    OllamaClient client(service.host());

    service.stall("/api/generate", 5);
    auto request = plainGenerate();
    request.timeout = 300ms;
    auto failure = failureOf([&] { (void)client.generate(request); });
    EXPECT_EQ(failure.kind(), Kind::unreachable);
    EXPECT_EQ(failure.message(), "The request timed out.");

    service.refuseConnections();
    failure = failureOf([&] { (void)client.version(); });
    EXPECT_EQ(failure.kind(), Kind::unreachable);
    EXPECT_TRUE(failure.description().starts_with("Ollama is not reachable (")) << failure.description();
    EXPECT_TRUE(failure.description().ends_with(")"));

    client.setHost("gopher://127.0.0.1:70");
    EXPECT_EQ(failureOf([&] { (void)client.models(); }).kind(), Kind::unreachable);
}

TEST(OllamaClient, FindsModelsWithAndWithoutATag) {
    const std::vector<std::string> installed{"qwen3.5:latest", "embeddinggemma-2:440m", "plain"};
    // Found as given, or under its :latest form.
    for (const char* name : {"qwen3.5", "plain", "embeddinggemma-2:440m"}) {
        EXPECT_TRUE(OllamaClient::has(name, installed)) << name;
    }
    // Another tag of the model is not enough; a tagged name is found only as given; comparison is exact.
    for (const char* name : {"embeddinggemma-2", "plain:latest", "Qwen3.5"}) {
        EXPECT_FALSE(OllamaClient::has(name, installed)) << name;
    }
    EXPECT_FALSE(OllamaClient::has("qwen3.5", {}));
}

TEST(OllamaClient, GenerateSendsTheDocumentedBody) {
    FakeModelService service;
    const OllamaClient client(service.host());
    service.answerNext("  Hello there.\n");
    EXPECT_EQ(client.generate(plainGenerate()), "  Hello there.\n") << "the response comes back untrimmed";

    const auto sent = service.requests("/api/generate").at(0);
    EXPECT_EQ(sent.method, "POST");
    EXPECT_EQ(sent.contentType, "application/json");
    EXPECT_EQ(sent.body.find('\n'), std::string::npos) << "compact JSON";
    const json body = json::parse(sent.body);
    EXPECT_EQ(body, json::parse(R"({"model":"qwen3.5:4b","prompt":"Say hi","stream":false,"think":false,
        "keep_alive":"10m","options":{"temperature":0.2,"num_predict":80,"num_ctx":8192}})"));
    EXPECT_TRUE(body["options"]["num_predict"].is_number_integer());

    const auto png = bytes("hello");
    const std::vector<std::uint8_t> high{0xFB, 0xFF, 0xFE};
    const std::vector<std::uint8_t> two{'a', 'b'};
    auto full = plainGenerate();
    full.system = "You file screenshots.";
    full.images = {png, high, two};
    full.json = true;
    full.maxTokens = 700;
    (void)client.generate(full);
    // Images in standard base64, in order.
    EXPECT_EQ(lastBody(service, "/api/generate"),
              json::parse(R"({"model":"qwen3.5:4b","prompt":"Say hi","stream":false,"think":false,
        "keep_alive":"10m","options":{"temperature":0.2,"num_predict":700,"num_ctx":8192},
        "system":"You file screenshots.","format":"json","images":["aGVsbG8=", "+//+", "YWI="]})"));

    // An empty system text is still a system text.
    auto emptySystem = plainGenerate();
    emptySystem.system = "";
    (void)client.generate(emptySystem);
    EXPECT_EQ(lastBody(service, "/api/generate")["system"], "");

    service.failWith("/api/generate", FakeModelService::Reply::json(200, R"({"done":true})"));
    EXPECT_EQ(failureOf([&] { (void)client.generate(plainGenerate()); }),
              OllamaClient::Failure::badReply("no response text"));
}

TEST(OllamaClient, EmbedSendsEachInputInItsShapeAndScalesTheVectors) {
    FakeModelService service;
    const OllamaClient client(service.host());
    const auto image = bytes("png!");
    const std::vector<OllamaClient::EmbedInput> inputs{
        {.text = "espresso"}, {.image = image}, {.text = "latte", .image = image}, {}};
    const auto vectors = client.embed("embeddinggemma-2:440m", inputs, 60s);

    const auto sent = service.requests("/api/embed").at(0);
    EXPECT_EQ(sent.contentType, "application/json");
    EXPECT_EQ(json::parse(sent.body), json::parse(R"({"model":"embeddinggemma-2:440m","keep_alive":"10m",
        "input":["espresso", {"image":"cG5nIQ=="}, {"text":"latte","image":"cG5nIQ=="}, {}]})"));

    ASSERT_EQ(vectors.size(), 4u);
    for (const auto& vector : vectors) {
        ASSERT_EQ(vector.size(), 768u);
        double squares = 0;
        for (float x : vector) {
            squares += double{x} * x;
        }
        EXPECT_NEAR(squares, 1.0, 1e-5);
    }

    service.setEmbedding("three four", {3, 4});
    service.setEmbedding("zero", {0, 0});
    const std::vector<OllamaClient::EmbedInput> pair{{.text = "three four"}, {.text = "zero"}};
    EXPECT_EQ(client.embed("m", pair, 60s), (std::vector<std::vector<float>>{{0.6f, 0.8f}, {0.0f, 0.0f}}));

    EXPECT_TRUE(client.embed("m", {}, 60s).empty());
    EXPECT_EQ(lastBody(service, "/api/embed")["input"], json::array());
}

TEST(OllamaClient, EmbedWantsOneListOfNumbersPerInput) {
    FakeModelService service;
    const OllamaClient client(service.host());
    const std::vector<OllamaClient::EmbedInput> two{{.text = "a"}, {.text = "b"}};
    const auto expectedTwo = OllamaClient::Failure::badReply("expected 2 embeddings");

    for (const char* reply :
         {R"({"embeddings":[[1,0]]})", R"({})", R"({"embeddings":"no"})", R"({"embeddings":[[1,0],"x"]})",
          R"({"embeddings":[[1,0],[1,"0"]]})", R"({"embeddings":[[1,0],[1,0],[1,0]]})"}) {
        service.failWith("/api/embed", FakeModelService::Reply::json(200, reply));
        EXPECT_EQ(failureOf([&] { (void)client.embed("m", two, 60s); }), expectedTwo) << reply;
    }
    service.failWith("/api/embed", FakeModelService::Reply::json(200, R"({"embeddings":[[2,0],[]]})"));
    const auto odd = client.embed("m", two, 60s);
    EXPECT_EQ(odd, (std::vector<std::vector<float>>{{1.0f, 0.0f}, {}})) << "an empty vector stays empty";
}

TEST(OllamaClient, AVectorThatIsNotFiniteOnceScaledIsABadReply) {
    FakeModelService service;
    const OllamaClient client(service.host());
    const std::vector<OllamaClient::EmbedInput> one{{.text = "a"}};
    const auto expectedOne = OllamaClient::Failure::badReply("expected 1 embeddings");
    // Beyond a float's range every element becomes infinite, and infinity over infinity is NaN.
    for (const char* reply : {R"({"embeddings":[[1e300,1e300,1e300]]})", R"({"embeddings":[[0.5,1e39,0.5]]})",
                              R"({"embeddings":[[-1e39]]})"}) {
        service.failWith("/api/embed", FakeModelService::Reply::json(200, reply));
        EXPECT_EQ(failureOf([&] { (void)client.embed("m", one, 60s); }), expectedOne) << reply;
    }
    // The largest floats still scale: their squares overflow the norm, which leaves zeros, not NaN.
    service.failWith("/api/embed", FakeModelService::Reply::json(200, R"({"embeddings":[[3e38,-3e38]]})"));
    const auto largest = client.embed("m", one, 60s);
    for (const float x : largest.at(0)) {
        EXPECT_TRUE(std::isfinite(x));
    }
}

TEST(OllamaClient, PullReportsProgressLineByLine) {
    FakeModelService service;
    const OllamaClient client(service.host());
    service.setPullLines({R"({"status":"pulling manifest"})",
                          R"({"status":"pulling 1a2b","completed":10,"total":100})", "not json at all",
                          "[1,2]", R"({"status":"success","completed":"many","total":2.9})"});
    std::vector<std::tuple<std::int64_t, std::int64_t, std::string>> seen;
    client.pull("qwen3.5:4b", [&](std::int64_t completed, std::int64_t total, const std::string& status) {
        seen.emplace_back(completed, total, status);
    });
    EXPECT_EQ(seen,
              (decltype(seen){{0, 0, "pulling manifest"}, {10, 100, "pulling 1a2b"}, {0, 2, "success"}}));

    const auto sent = service.requests("/api/pull").at(0);
    EXPECT_EQ(sent.method, "POST");
    EXPECT_EQ(sent.contentType, "application/json");
    EXPECT_EQ(json::parse(sent.body), json::parse(R"({"model":"qwen3.5:4b","stream":true})"));
}

TEST(OllamaClient, PullStopsAtAnErrorLineOrStatus) {
    FakeModelService service;
    const OllamaClient client(service.host());
    service.setPullLines({R"({"status":"pulling manifest"})",
                          R"({"error":"pull model manifest: file does not exist"})",
                          R"({"status":"success"})"});
    std::vector<std::string> statuses;
    const auto record = [&](std::int64_t, std::int64_t, const std::string& status) {
        statuses.push_back(status);
    };
    EXPECT_EQ(failureOf([&] { client.pull("nope", record); }),
              OllamaClient::Failure::server(200, "pull model manifest: file does not exist"));
    EXPECT_EQ(statuses, std::vector<std::string>{"pulling manifest"});

    statuses.clear();
    service.failWith("/api/pull", FakeModelService::Reply::error(500, "disk full"));
    EXPECT_EQ(failureOf([&] { client.pull("qwen3.5:4b", record); }),
              OllamaClient::Failure::server(500, "pull qwen3.5:4b"));
    service.failWith("/api/pull", FakeModelService::Reply::json(201, R"({"status":"success"})"));
    EXPECT_EQ(failureOf([&] { client.pull("qwen3.5:4b", record); }),
              OllamaClient::Failure::server(201, "pull qwen3.5:4b"))
        << "only exactly 200 starts a pull";
    EXPECT_TRUE(statuses.empty());

    // A stream that ends without a success line counts as done.
    service.clearFailures();
    service.setPullLines({R"({"status":"pulling manifest"})"});
    EXPECT_NO_THROW(client.pull("qwen3.5:4b", record));

    service.refuseConnections();
    EXPECT_THROW(client.pull("qwen3.5:4b", record), OllamaClient::TransportError);
}
