#pragma once

#include <cstdint>
#include <string>

// Facts about the machine and the running program. Any thread.
namespace keepery::SystemInfo {

// Installed physical memory in bytes; 0 when the system does not say.
[[nodiscard]] std::uint64_t physicalMemory();

// The program's version, compiled in from the project version ("0.1.0" when none was given).
[[nodiscard]] std::string version();

} // namespace keepery::SystemInfo
