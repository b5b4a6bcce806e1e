#pragma once

#include <string>

// Random identifiers. Any thread.
namespace keepery::UUID {

// A new version-4 UUID from the system's random source, in lower-case text with hyphens
// ("0f1e2d3c-4b5a-4978-8695-a4b3c2d1e0f9"). Throws std::system_error when the random source fails.
[[nodiscard]] std::string randomLowercase();

// The same in upper-case hexadecimal digits ("0F1E2D3C-4B5A-4978-8695-A4B3C2D1E0F9"). Throws as above.
[[nodiscard]] std::string randomUppercase();

} // namespace keepery::UUID
