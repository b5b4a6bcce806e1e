#pragma once

#include "Model/Capture.h"
#include "Understanding/CaptureDescription.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace keepery {
class LibraryStore;
}

namespace keepery::testing {

// How a sample library is made. Everything follows from these values: the same options give the same
// library, capture for capture and bit for bit.
struct SampleLibraryOptions {
    std::size_t captures = 1000;
    std::size_t collections = 0; // 0: one per 200 captures (at least one)
    std::uint64_t seed = 1;
    std::size_t dimensions = 768;
    Instant firstKeptAt = 1'700'000'000;
    double secondsBetween = 900; // on average, between two captures
    std::string embeddingModel = "nomic-embed-text";
};

// One generated capture: the record as it is kept, and everything processing adds to it.
struct SampleCapture {
    using Description = CaptureDescription; // what the describer would say

    Capture kept; // stage captured; only the fields a capture is kept with
    std::string ocrText;
    std::optional<std::string> transcript;
    Description description;
    std::vector<float> look;    // unit length, near its collection's look direction
    std::vector<float> meaning; // unit length, near its collection's meaning direction
    std::optional<std::string> collectionID;
    std::size_t topic = 0;
    bool favorite = false;
    std::optional<std::string> note;
};

// A deterministic, realistic library of N captures over a few dozen topics: texts of common, topic and rare
// words; descriptions; screens, photos and videos from plausible apps and sites; collections of one topic
// each; two unit vectors per capture clustered by collection. Captures are made on demand from (seed,
// index), so a library of any size costs no memory until written. Pure; any thread.
class SampleLibrary {
public:
    explicit SampleLibrary(SampleLibraryOptions options = {});

    [[nodiscard]] std::size_t size() const { return options_.captures; }

    // Every collection as written (counts 0: listings compute them), one topic each.
    [[nodiscard]] const std::vector<CaptureCollection>& collections() const { return collections_; }

    // The capture at `index` (0 ≤ index < size()), kept `secondsBetween` apart on average in index order.
    [[nodiscard]] SampleCapture capture(std::size_t index) const;
    [[nodiscard]] std::string captureID(std::size_t index) const;

    // The topics, the words a person would type to find each one's captures ("tokyo ramen"), and the unit
    // direction its captures' vectors lie near.
    [[nodiscard]] std::size_t topicCount() const;
    [[nodiscard]] std::string topicName(std::size_t topic) const;
    [[nodiscard]] std::string topicQuery(std::size_t topic) const;
    [[nodiscard]] std::vector<float> topicVector(std::size_t topic, VectorSpace space) const;

    // Writes the collections, captures [first, first + count), or both for every capture, through the
    // store's own writes as the pipeline would. Throws what the store throws.
    void writeCollections(LibraryStore& store) const;
    void writeCaptures(LibraryStore& store, std::size_t first, std::size_t count) const;
    void write(LibraryStore& store) const;

private:
    SampleLibraryOptions options_;
    std::vector<CaptureCollection> collections_;
    std::vector<std::size_t> collectionTopics_;
    std::vector<std::vector<float>> collectionLooks_; // per collection, its direction in each space
    std::vector<std::vector<float>> collectionMeanings_;
};

} // namespace keepery::testing
