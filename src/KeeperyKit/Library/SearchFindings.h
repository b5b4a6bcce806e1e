#pragma once

#include "Library/SearchHit.h"

#include <string>
#include <vector>

namespace keepery {

// The answer to one search: the hits in ranking order, best first, and the ids of the collections the
// ranking covers, in ascending id order. A value.
struct SearchFindings {
    std::vector<SearchHit> hits;
    std::vector<std::string> collectionIDs;

    bool operator==(const SearchFindings&) const = default;
};

} // namespace keepery
