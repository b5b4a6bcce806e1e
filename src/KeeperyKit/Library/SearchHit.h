#pragma once

#include "Library/SearchReason.h"
#include "Model/Capture.h"

#include <set>
#include <string>

namespace keepery {

// One capture a search found, with every kind of evidence that found it (empty only when none was
// recorded). Identified by the capture's id. A value.
struct SearchHit {
    Capture capture;
    std::set<SearchReason> reasons;

    [[nodiscard]] const std::string& id() const { return capture.id; }

    bool operator==(const SearchHit&) const = default;
};

} // namespace keepery
