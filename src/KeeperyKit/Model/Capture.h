#pragma once

#include "Model/CaptureKind.h"
#include "Model/Vocabularies.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace keepery {

// An instant: seconds since 1970-01-01 00:00:00 UTC, as the database stores it.
using Instant = double;

// One kept item: a window capture, an imported photo or an imported video. A value; equality takes every
// field. Optional fields are absent unless set.
struct Capture {
    std::string id;
    Instant createdAt = 0;
    std::string app;
    std::optional<std::string> bundleID;
    std::string windowTitle;
    std::optional<std::string> url;
    std::optional<std::string> documentPath;
    std::int64_t width = 0;
    std::int64_t height = 0;
    CaptureStage stage = CaptureStage::captured;
    std::optional<std::string> ocrText;
    std::optional<std::string> title;
    std::optional<std::string> summary;
    std::optional<CaptureKind> kind;
    std::vector<std::string> tags;
    std::vector<std::string> highlights;
    std::vector<std::string> links;
    std::optional<std::string> note;
    bool favorite = false;
    std::optional<std::string> collectionID;
    std::optional<std::string> lastError;
    CaptureMedia media = CaptureMedia::screen;
    std::optional<double> duration;
    std::optional<Instant> takenAt;
    // Relative to the library directory; absent for a screen capture, whose image is captures/<id>.png.
    std::optional<std::string> imageFile;
    std::optional<std::string> originalFile;
    std::optional<std::string> transcript;

    bool operator==(const Capture&) const = default;

    // The title when present and not empty, else the window title when not empty, else the app.
    [[nodiscard]] const std::string& displayTitle() const;

    // Where the item came from: the page's host without a leading "www." when the address has a host;
    // otherwise "Photos" or "Videos" for imported media, and the app for a screen capture.
    [[nodiscard]] std::string sourceName() const;
};

// A named group of captures that formed by itself (or was named by the user). A value.
struct CaptureCollection {
    std::string id;
    std::string name;
    std::string emoji;
    Instant createdAt = 0;
    Instant updatedAt = 0;
    std::int64_t count = 0;
    // `count` when the collection was last named automatically.
    std::int64_t namedAtCount = 0;
    bool userNamed = false;

    bool operator==(const CaptureCollection&) const = default;
};

// The host of `address` exactly as written there, when it parses as a URL (RFC 3986) and has a non-empty
// host; absent otherwise. Shared by every rule that names a page's site.
[[nodiscard]] std::optional<std::string> urlHost(std::string_view address);

} // namespace keepery

template <>
struct std::hash<keepery::Capture> {
    std::size_t operator()(const keepery::Capture& capture) const noexcept;
};

template <>
struct std::hash<keepery::CaptureCollection> {
    std::size_t operator()(const keepery::CaptureCollection& collection) const noexcept;
};
