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

using namespace keepery;
using nlohmann::json;

namespace {

std::optional<std::string> optionalString(const json& object, const char* key) {
    const auto it = object.find(key);
    return it != object.end() && it->is_string() ? std::optional(it->get<std::string>()) : std::nullopt;
}

std::optional<double> optionalNumber(const json& object, const char* key) {
    return object.contains(key) ? std::optional(object.at(key).get<double>()) : std::nullopt;
}

std::vector<std::string> strings(const json& object, const char* key) {
    return object.value(key, std::vector<std::string>{});
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
        capture.duration = optionalNumber(c, "duration");
        capture.takenAt = optionalNumber(c, "takenAt");
        store.insert(capture);

        store.setRead(capture.id, c.value("ocrText", ""), optionalString(c, "transcript"));
        if (c.contains("title")) {
            store.setDescribed(capture.id,
                               {c.at("title").get_ref<const std::string&>(), c.value("summary", ""),
                                CaptureKind::parse(c.value("kind", "other")), strings(c, "tags"),
                                strings(c, "highlights"), strings(c, "links")});
        }
        if (auto text = optionalString(c, "embed")) {
            const std::vector<double> raw = testing::FakeModelService::embedding(*text);
            const std::vector<float> vector = VectorMath::unit(std::vector<float>(raw.begin(), raw.end()));
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
            throw std::runtime_error(std::string("cannot read ") + argv[2]);
        }
        LibraryStore store(argv[1]);
        seed(store, json::parse(file));
    } catch (const std::exception& failure) {
        std::cerr << "seed-library: " << failure.what() << "\n";
        return 1;
    }
    return 0;
}
