#pragma once

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
    EnvironmentOverride(std::initializer_list<std::pair<const char*, const char*>> values);
    ~EnvironmentOverride();
    EnvironmentOverride(const EnvironmentOverride&) = delete;
    EnvironmentOverride& operator=(const EnvironmentOverride&) = delete;

private:
    std::vector<std::pair<std::string, std::optional<std::string>>> saved_;
};

} // namespace keepery::testing
