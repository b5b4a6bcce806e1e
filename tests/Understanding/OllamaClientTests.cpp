#include "Understanding/OllamaClient.h"

#include "support/FakeModelService.h"

#include <cmath>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <nlohmann/json.hpp>

using namespace keepery;
using namespace std::chrono_literals;
using keepery::testing::FakeModelService;
using nlohmann::json;
using Failure = OllamaClient::Failure;
using Reply = FakeModelService::Reply;

namespace {

// Runs `operation` and returns the Failure it throws; fails the test when it throws nothing.
template <typename Operation>
Failure failureOf(Operation operation) {
    try {
        operation();
    } catch (const Failure& failure) {
        return failure;
    }
    ADD_FAILURE() << "no OllamaClient::Failure was thrown";
    return Failure::badReply("(none)");
}

json lastBody(const FakeModelService& service, std::string_view path) {
    const auto requests = service.requests(path);
    return requests.empty() ? json() : json::parse(requests.back().body);
}

OllamaClient::GenerateRequest plainGenerate() {
    return {.model = "qwen3.5:4b", .prompt = "Say hi", .maxTokens = 80, .timeout = 10s};
}

const std::vector<OllamaClient::EmbedInput> two{{.text = "a"}, {.text = "b"}};

} // namespace

// The texts of the other kinds reach the user through the pipeline's recorded errors.
TEST(OllamaClientFailure, UnreachableTextNamesTheCause) {
    EXPECT_STREQ(Failure::unreachable("Could not connect").what(),
                 "Ollama is not reachable (Could not connect)");
}

TEST(OllamaClient, AsksForTheVersionAndTheInstalledModels) {
    FakeModelService service;
    service.setVersion("0.41.2");
    const OllamaClient client(service.host() + "/"); // a trailing slash on the address is no part of a path
    EXPECT_EQ(client.version(), "0.41.2");
    EXPECT_FALSE(service.requests("/api/version").at(0).hasContentType) << "no body, no content type";

    service.failWith("/api/tags",
                     Reply::json(200, R"({"models":[{"name":"a:latest"},{"model":"b"},{"name":"c:2b"}]})"));
    EXPECT_EQ(client.models(), (std::vector<std::string>{"a:latest", "c:2b"}));
    // A list holding anything but objects is not a list of models.
    for (const char* reply : {"{}", R"({"models":"none"})", R"({"models":[{"name":"a"},7]})"}) {
        service.failWith("/api/tags", Reply::json(200, reply));
        EXPECT_TRUE(client.models().empty()) << reply;
    }
}

// Every way a reply fails, met by each operation that reads one.
TEST(OllamaClient, ErrorStatusesAndUnreadableRepliesBecomeTheirFailure) {
    FakeModelService service;
    const OllamaClient client(service.host());
    const std::map<std::string, std::function<void()>> call{
        {"/api/version", [&] { (void)client.version(); }},
        {"/api/generate", [&] { (void)client.generate(plainGenerate()); }},
        {"/api/embed", [&] { (void)client.embed("m", two, 60s); }}};
    const std::string deep = std::string(100'000, '[') + std::string(100'000, ']');
    const auto notAnObject = Failure::badReply("not a JSON object");
    const auto expectedTwo = Failure::badReply("expected 2 embeddings");
    const std::vector<std::tuple<std::string, Reply, Failure>> cases{
        // Without an "error" text the message is the body's first 200 bytes; a character cut there is U+FFFD.
        {"/api/version", Reply::json(503, R"({"error":{"code":1}})"),
         Failure::server(503, R"({"error":{"code":1}})")},
        {"/api/version", Reply::text(502, std::string(199, 'x') + "\u00E9tait"),
         Failure::server(502, std::string(199, 'x') + "\uFFFD")},
        {"/api/version", Reply::empty(500), Failure::server(500, "")},
        // A success whose body is no JSON object, or one nested past the reader's bound, is a bad reply.
        {"/api/version", Reply::json(200, R"(["0.41.0"])"), notAnObject},
        {"/api/version", Reply::text(200, "0.41.0 at your service"), notAnObject},
        {"/api/version", Reply::empty(204), notAnObject},
        {"/api/version", Reply::json(200, R"({"version":"0.41.0","x":)" + deep + "}"), notAnObject},
        {"/api/version", Reply::json(200, R"({"version":41})"), Failure::badReply("no version")},
        {"/api/generate", Reply::json(200, "\"just a string\""), notAnObject},
        {"/api/generate", Reply::json(200, R"({"done":true})"), Failure::badReply("no response text")},
        // One list of numbers per input, each still finite once scaled: beyond a float's range every element
        // becomes infinite, and infinity over infinity is NaN.
        {"/api/embed", Reply::json(200, R"({})"), expectedTwo},
        {"/api/embed", Reply::json(200, R"({"embeddings":"no"})"), expectedTwo},
        {"/api/embed", Reply::json(200, R"({"embeddings":[[1,0],"x"]})"), expectedTwo},
        {"/api/embed", Reply::json(200, R"({"embeddings":[[1,0],[1,"0"]]})"), expectedTwo},
        {"/api/embed", Reply::json(200, R"({"embeddings":[[1,0],[1,0],[1,0]]})"), expectedTwo},
        {"/api/embed", Reply::json(200, R"({"embeddings":[[1e300,1e300,1e300],[1,0,0]]})"), expectedTwo},
        {"/api/embed", Reply::json(200, R"({"embeddings":[[1,0,0],[0.5,1e39,0.5]]})"), expectedTwo},
        {"/api/embed", Reply::json(200, R"({"embeddings":[[-1e39],[1]]})"), expectedTwo},
    };
    for (const auto& [path, reply, expected] : cases) {
        SCOPED_TRACE(path + " " + reply.body.substr(0, 60));
        service.failWith(path, reply);
        EXPECT_EQ(failureOf(call.at(path)), expected);
    }
}

TEST(OllamaClient, AnAbsentOrSilentServiceIsUnreachable) {
    FakeModelService service;
    OllamaClient client(service.host());
    service.stall("/api/generate", 5);
    auto request = plainGenerate();
    request.timeout = 300ms;
    EXPECT_EQ(failureOf([&] { (void)client.generate(request); }),
              Failure::unreachable("The request timed out."));

    service.refuseConnections();
    EXPECT_EQ(failureOf([&] { (void)client.version(); }).kind(), Failure::Kind::unreachable);
    client.setHost("gopher://127.0.0.1:70");
    EXPECT_EQ(failureOf([&] { (void)client.models(); }).kind(), Failure::Kind::unreachable);
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
}

TEST(OllamaClient, GenerateSendsTheDocumentedBody) {
    FakeModelService service;
    const OllamaClient client(service.host());
    service.answerNext("  Hello there.\n");
    EXPECT_EQ(client.generate(plainGenerate()), "  Hello there.\n") << "the response comes back untrimmed";
    const auto sent = service.requests("/api/generate").at(0);
    EXPECT_EQ(sent.contentType, "application/json");
    EXPECT_EQ(sent.body.find('\n'), std::string::npos) << "compact JSON";
    EXPECT_EQ(json::parse(sent.body), json::parse(R"({"model":"qwen3.5:4b","prompt":"Say hi","stream":false,
        "think":false,"keep_alive":"10m","options":{"temperature":0.2,"num_predict":80,"num_ctx":8192}})"));
    EXPECT_TRUE(json::parse(sent.body)["options"]["num_predict"].is_number_integer());

    // Images in standard base64, in order; an empty system text is still a system text.
    const std::vector<std::uint8_t> hello{'h', 'e', 'l', 'l', 'o'}, high{0xFB, 0xFF, 0xFE}, ab{'a', 'b'};
    auto full = plainGenerate();
    full.system = "";
    full.images = {hello, high, ab};
    full.json = true;
    (void)client.generate(full);
    EXPECT_EQ(lastBody(service, "/api/generate"), json::parse(R"({"model":"qwen3.5:4b","prompt":"Say hi",
        "stream":false,"think":false,"keep_alive":"10m","options":{"temperature":0.2,"num_predict":80,
        "num_ctx":8192},"system":"","format":"json","images":["aGVsbG8=", "+//+", "YWI="]})"));
}

TEST(OllamaClient, EmbedSendsEachInputInItsShapeAndScalesTheVectors) {
    FakeModelService service;
    const OllamaClient client(service.host());
    const std::vector<std::uint8_t> image{'p', 'n', 'g', '!'};
    const std::vector<OllamaClient::EmbedInput> inputs{
        {.text = "espresso"}, {.image = image}, {.text = "latte", .image = image}, {}};
    EXPECT_EQ(client.embed("embeddinggemma-2:440m", inputs, 60s).size(), 4u);
    const auto sent = service.requests("/api/embed").at(0);
    EXPECT_EQ(sent.contentType, "application/json");
    EXPECT_EQ(json::parse(sent.body), json::parse(R"({"model":"embeddinggemma-2:440m","keep_alive":"10m",
        "input":["espresso", {"image":"cG5nIQ=="}, {"text":"latte","image":"cG5nIQ=="}, {}]})"));

    EXPECT_TRUE(client.embed("m", {}, 60s).empty());
    EXPECT_EQ(lastBody(service, "/api/embed")["input"], json::array());

    service.failWith("/api/embed", Reply::json(200, R"({"embeddings":[[2,0],[]]})"));
    EXPECT_EQ(client.embed("m", two, 60s), (std::vector<std::vector<float>>{{1.0f, 0.0f}, {}}))
        << "an empty vector stays empty";
    // The largest floats still scale: their squares overflow the norm, which leaves zeros, not NaN.
    service.failWith("/api/embed", Reply::json(200, R"({"embeddings":[[3e38,-3e38],[1,0]]})"));
    const auto largest = client.embed("m", two, 60s);
    for (const float x : largest.at(0)) {
        EXPECT_TRUE(std::isfinite(x));
    }
}

TEST(OllamaClient, PullReportsProgressLineByLineAndStopsAtAnErrorLineOrStatus) {
    FakeModelService service;
    const OllamaClient client(service.host());
    // Lines that are no object, or whose numbers nest past the reader's bound, are skipped.
    service.setPullLines(
        {R"({"status":"pulling manifest"})", R"({"status":"pulling 1a2b","completed":10,"total":100})",
         "not json at all", "[1,2]",
         R"({"status":"deep","completed":)" + std::string(100'000, '[') + std::string(100'000, ']') + "}",
         R"({"status":"success","completed":"many","total":2.9})"});
    std::vector<std::tuple<std::int64_t, std::int64_t, std::string>> seen;
    const auto record = [&](std::int64_t completed, std::int64_t total, const std::string& status) {
        seen.emplace_back(completed, total, status);
    };
    client.pull("qwen3.5:4b", record);
    EXPECT_EQ(seen,
              (decltype(seen){{0, 0, "pulling manifest"}, {10, 100, "pulling 1a2b"}, {0, 2, "success"}}));
    const auto sent = service.requests("/api/pull").at(0);
    EXPECT_EQ(sent.contentType, "application/json");
    EXPECT_EQ(json::parse(sent.body), json::parse(R"({"model":"qwen3.5:4b","stream":true})"));

    seen.clear();
    service.setPullLines({R"({"status":"pulling manifest"})",
                          R"({"error":"pull model manifest: file does not exist"})",
                          R"({"status":"success"})"});
    EXPECT_EQ(failureOf([&] { client.pull("nope", record); }),
              Failure::server(200, "pull model manifest: file does not exist"));
    EXPECT_EQ(seen.size(), 1u);

    seen.clear();
    service.failWith("/api/pull", Reply::error(500, "disk full"));
    EXPECT_EQ(failureOf([&] { client.pull("qwen3.5:4b", record); }), Failure::server(500, "pull qwen3.5:4b"));
    service.failWith("/api/pull", Reply::json(201, R"({"status":"success"})"));
    EXPECT_EQ(failureOf([&] { client.pull("qwen3.5:4b", record); }), Failure::server(201, "pull qwen3.5:4b"))
        << "only exactly 200 starts a pull";
    EXPECT_TRUE(seen.empty());

    // A stream that ends without a success line counts as done.
    service.clearFailures();
    service.setPullLines({R"({"status":"pulling manifest"})"});
    EXPECT_NO_THROW(client.pull("qwen3.5:4b", record));
    service.refuseConnections();
    EXPECT_THROW(client.pull("qwen3.5:4b", record), OllamaClient::TransportError);
}
