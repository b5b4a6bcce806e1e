#pragma once

#include "Library/SearchFindings.h"
#include "Model/Capture.h"
#include "Store/LibraryStore.h"
#include "Understanding/OllamaClient.h"

#include <cstdint>
#include <string>
#include <vector>

namespace keepery::testing {

// Search and related captures done the straightforward way: every step reads what it needs from the
// database afresh (every vector of both spaces, every capture of the listing), scores one vector at a
// time and sorts every scored pair. The Library must answer exactly as this does; the benchmark measures
// how much faster it is.
class ReferenceSearch {
public:
    ReferenceSearch(LibraryStore& store, OllamaClient client, std::string embeddingModel)
        : store_(store), client_(std::move(client)), embeddingModel_(std::move(embeddingModel)) {}

    [[nodiscard]] SearchFindings findings(const std::string& query);
    [[nodiscard]] std::vector<Capture> related(const std::string& captureID, std::int64_t limit);

private:
    LibraryStore& store_;
    OllamaClient client_;
    std::string embeddingModel_;
};

} // namespace keepery::testing
