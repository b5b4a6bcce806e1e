#pragma once

#include "Model/CaptureKind.h"

#include <string>
#include <vector>

namespace keepery {

// What the describer made of one capture. A value. As `Describer::parse` makes it: the title is never
// empty and has at most 90 characters, the summary at most 400, tags are 0 to 5 distinct lower-case texts
// of at most 32 characters, highlights 0 to 3 texts of at most 280 characters found in the capture's text,
// and links 0 to 6 distinct web addresses.
struct CaptureDescription {
    std::string title{};
    std::string summary{};
    CaptureKind kind = CaptureKind::other;
    std::vector<std::string> tags{};
    std::vector<std::string> highlights{};
    std::vector<std::string> links{};

    bool operator==(const CaptureDescription&) const = default;
};

} // namespace keepery
