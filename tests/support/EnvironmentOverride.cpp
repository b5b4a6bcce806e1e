#include "support/EnvironmentOverride.h"

#include <cstdlib>

namespace keepery::testing {
namespace {

void assign(const char* name, const char* value) {
    if (value != nullptr) {
        ::setenv(name, value, 1);
    } else {
        ::unsetenv(name);
    }
}

} // namespace

EnvironmentOverride::EnvironmentOverride(std::initializer_list<std::pair<const char*, const char*>> values) {
    for (const auto& [name, value] : values) {
        const char* old = std::getenv(name);
        saved_.emplace_back(name, old != nullptr ? std::optional<std::string>(old) : std::nullopt);
        assign(name, value);
    }
}

EnvironmentOverride::~EnvironmentOverride() {
    // Backwards, so that a name given twice ends with its first old value.
    for (auto it = saved_.rbegin(); it != saved_.rend(); ++it) {
        assign(it->first.c_str(), it->second ? it->second->c_str() : nullptr);
    }
}

} // namespace keepery::testing
