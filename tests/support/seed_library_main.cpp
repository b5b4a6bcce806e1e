// seed-library: writes a small library described in JSON through the store's own writes, for end-to-end
// tests of the executables. Usage: seed-library ROOT FILE
// FILE holds {"embeddingModel": name, "collections": [{"id", "name", "emoji"}], "captures": [...]}. A
// capture has the kept fields ("id", "createdAt", "media", "app", "windowTitle", "url", "duration",
// "takenAt"), what reading adds ("ocrText", "transcript"), the description ("title", "summary", "kind",
// "tags", "highlights", "links"), "embed" (a text whose fake-service embedding becomes both of its vectors),
// "collection", and "organized" (false leaves it embedded, still being read).
#include "Store/LibraryStore.h"
#include "Understanding/VectorMath.h"
#include "support/FakeModelService.h"

#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>

using namespace keepery;
using nlohmann::json;

namespace {

std::optional<std::string> optionalString(const json& object, const char* key) {
    const auto it = object.find(key);
    return it != object.end() && it->is_string() ? std::optional(it->get<std::string>()) : std::nullopt;
}

std::vector<std::string> strings(const json& object, const char* key) {
    return object.value(key, std::vector<std::string>{});
}

std::vector<float> unitEmbedding(const std::string& text) {
    const std::vector<double> raw = testing::FakeModelService::embedding(text);
    return VectorMath::unit(std::vector<float>(raw.begin(), raw.end()));
}

void seed(LibraryStore& store, const json& library) {
    const std::string model = library.value("embeddingModel", "embeddinggemma-2:440m");
    for (const json& c : library.value("collections", json::array())) {
        store.insertCollection(CaptureCollection{.id = c.at("id"),
                                                 .name = c.at("name"),
                                                 .emoji = c.at("emoji"),
                                                 .createdAt = c.value("createdAt", 1'700'000'000.0),
                                                 .updatedAt = c.value("updatedAt", 1'700'000'000.0)});
    }
    for (const json& c : library.value("captures", json::array())) {
        Capture capture;
        capture.id = c.at("id");
        capture.createdAt = c.value("createdAt", 1'700'000'000.0);
        capture.media = CaptureMedia::fromRawValue(c.value("media", "screen")).value_or(CaptureMedia::screen);
        capture.app = c.value("app", "");
        capture.windowTitle = c.value("windowTitle", "");
        capture.url = optionalString(c, "url");
        if (c.contains("duration")) {
            capture.duration = c.at("duration").get<double>();
        }
        if (c.contains("takenAt")) {
            capture.takenAt = c.at("takenAt").get<double>();
        }
        store.insert(capture);

        store.setRead(capture.id, c.value("ocrText", ""), optionalString(c, "transcript"));
        if (c.contains("title")) {
            const std::vector<std::string> tags = strings(c, "tags");
            const std::vector<std::string> highlights = strings(c, "highlights");
            const std::vector<std::string> links = strings(c, "links");
            const std::string title = c.at("title");
            const std::string summary = c.value("summary", "");
            store.setDescribed(capture.id, LibraryStore::Description{
                                               title, summary, CaptureKind::parse(c.value("kind", "other")),
                                               tags, highlights, links});
        }
        if (auto text = optionalString(c, "embed")) {
            const std::vector<float> vector = unitEmbedding(*text);
            store.setEmbedding(capture.id, model,
                               {{VectorSpace::look, vector}, {VectorSpace::meaning, vector}});
        }
        if (c.value("organized", true)) {
            store.setCollection(capture.id, optionalString(c, "collection"));
        }
    }
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: seed-library ROOT FILE\n";
        return 2;
    }
    try {
        std::ifstream file(argv[2]);
        if (!file) {
            std::cerr << "seed-library: cannot read " << argv[2] << "\n";
            return 1;
        }
        std::ostringstream text;
        text << file.rdbuf();
        LibraryStore store(argv[1]);
        seed(store, json::parse(text.str()));
    } catch (const std::exception& failure) {
        std::cerr << "seed-library: " << failure.what() << "\n";
        return 1;
    }
    return 0;
}
