#pragma once

#include <string>

namespace keepery {

// A new random (version 4) UUID in its standard text form: 36 characters, upper-case hexadecimal digits
// in groups of 8-4-4-4-12. Any thread.
[[nodiscard]] std::string randomUUID();

} // namespace keepery
