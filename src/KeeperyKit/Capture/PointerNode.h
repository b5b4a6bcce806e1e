#pragma once

#include "Capture/ScreenRect.h"

#include <optional>
#include <string>
#include <vector>

namespace keepery {

// One accessibility element under the pointer. A value; equal when every field is.
struct PointerNode {
    // The accessibility role, for example "AXImage" or "AXVideo".
    std::string role{};
    // The role's human-readable description; empty when none.
    std::string roleDescription{};
    std::string title{};
    // The element's accessibility description; empty when none.
    std::string description{};
    // The address the element carries (an image's or a link's), when it has one.
    std::optional<std::string> url{};
    ScreenRect frame{};
    // The class names of the web page element behind it; empty when it is not a web element.
    std::vector<std::string> domClasses{};
    // The identifier of that web page element; empty when none.
    std::string domIdentifier{};

    bool operator==(const PointerNode&) const = default;
};

} // namespace keepery
