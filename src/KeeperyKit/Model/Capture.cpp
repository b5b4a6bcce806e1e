#include "Model/Capture.h"

#include "Platform/URI.h"

namespace keepery {

const std::string& Capture::displayTitle() const {
    if (title && !title->empty()) {
        return *title;
    }
    if (!windowTitle.empty()) {
        return windowTitle;
    }
    return app;
}

std::string Capture::sourceName() const {
    if (url) {
        if (auto host = urlHost(*url)) {
            // Only the lower-case prefix counts: "WWW.example.com" keeps its letters.
            if (host->starts_with("www.")) {
                return host->substr(4);
            }
            return *host;
        }
    }
    switch (media) {
    case CaptureMedia::photo:
        return "Photos";
    case CaptureMedia::video:
        return "Videos";
    case CaptureMedia::screen:
        break;
    }
    return app;
}

std::optional<std::string> urlHost(std::string_view address) {
    std::optional<URI> uri = URI::parse(address);
    return uri ? uri->host() : std::nullopt;
}

} // namespace keepery

namespace {

template <typename T>
void combine(std::size_t& seed, const T& value) {
    seed ^= std::hash<T>{}(value) + 0x9e3779b97f4a7c15ULL + (seed << 6) + (seed >> 2);
}

template <typename T>
void combine(std::size_t& seed, const std::optional<T>& value) {
    combine(seed, value.has_value());
    if (value) {
        combine(seed, *value);
    }
}

void combine(std::size_t& seed, const std::vector<std::string>& values) {
    combine(seed, values.size());
    for (const auto& value : values) {
        combine(seed, value);
    }
}

} // namespace

std::size_t std::hash<keepery::Capture>::operator()(const keepery::Capture& c) const noexcept {
    std::size_t seed = 0;
    combine(seed, c.id);
    combine(seed, c.createdAt);
    combine(seed, c.app);
    combine(seed, c.bundleID);
    combine(seed, c.windowTitle);
    combine(seed, c.url);
    combine(seed, c.documentPath);
    combine(seed, c.width);
    combine(seed, c.height);
    combine(seed, c.stage);
    combine(seed, c.ocrText);
    combine(seed, c.title);
    combine(seed, c.summary);
    combine(seed, c.kind);
    combine(seed, c.tags);
    combine(seed, c.highlights);
    combine(seed, c.links);
    combine(seed, c.note);
    combine(seed, c.favorite);
    combine(seed, c.collectionID);
    combine(seed, c.lastError);
    combine(seed, c.media);
    combine(seed, c.duration);
    combine(seed, c.takenAt);
    combine(seed, c.imageFile);
    combine(seed, c.originalFile);
    combine(seed, c.transcript);
    return seed;
}

std::size_t
std::hash<keepery::CaptureCollection>::operator()(const keepery::CaptureCollection& c) const noexcept {
    std::size_t seed = 0;
    combine(seed, c.id);
    combine(seed, c.name);
    combine(seed, c.emoji);
    combine(seed, c.createdAt);
    combine(seed, c.updatedAt);
    combine(seed, c.count);
    combine(seed, c.namedAtCount);
    combine(seed, c.userNamed);
    return seed;
}
