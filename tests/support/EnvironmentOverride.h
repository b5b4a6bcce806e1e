#pragma once

#include <cstdlib>
#include <initializer_list>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace keepery::testing {

// Sets environment variables (a null value unsets one) for the object's lifetime, then puts back what was
// there before. The environment is the process's: only the thread that makes the object may read it
// meanwhile.
class EnvironmentOverride {
public:
    EnvironmentOverride(std::initializer_list<std::pair<const char*, const char*>> values) {
        for (const auto& [name, value] : values) {
            const char* old = std::getenv(name);
            saved_.emplace_back(name, old != nullptr ? std::optional<std::string>(old) : std::nullopt);
            assign(name, value);
        }
    }
    ~EnvironmentOverride() {
        // Backwards, so that a name given twice ends with its first old value.
        for (auto it = saved_.rbegin(); it != saved_.rend(); ++it) {
            assign(it->first.c_str(), it->second ? it->second->c_str() : nullptr);
        }
    }
    EnvironmentOverride(const EnvironmentOverride&) = delete;
    EnvironmentOverride& operator=(const EnvironmentOverride&) = delete;

private:
    static void assign(const char* name, const char* value) {
        value != nullptr ? ::setenv(name, value, 1) : ::unsetenv(name);
    }

    std::vector<std::pair<std::string, std::optional<std::string>>> saved_;
};

} // namespace keepery::testing
