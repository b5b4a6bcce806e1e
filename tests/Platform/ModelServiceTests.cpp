#include "Platform/ModelService.h"

#include "support/EnvironmentOverride.h"

#include <gtest/gtest.h>

namespace keepery {
namespace {

TEST(ModelService, ReadsTheUsualFormsOfTheHostVariableFromTheEnvironment) {
    for (const auto& [variable, host] : std::vector<std::pair<std::string, std::string>>{
             {"   ", "http://127.0.0.1:11434"},
             {"localhost:8080", "http://localhost:8080"},
             {"0.0.0.0", "http://0.0.0.0:11434"},
             {":11435", "http://127.0.0.1:11435"},
             {"http://example.com", "http://example.com:80"},
             {"https://example.com", "https://example.com:443"},
             {"HTTP://Box:9000/", "http://Box:9000"},
             {"https://example.com:8443/ollama/", "https://example.com:8443/ollama"},
             {"\"127.0.0.1:7000\"", "http://127.0.0.1:7000"},
             {"[::1]:7000", "http://[::1]:7000"},
             {"::1", "http://[::1]:11434"},
             {"localhost:port", "http://localhost:11434"}, // a bad port is the default
             {"localhost:99999", "http://localhost:11434"},
         }) {
        EXPECT_EQ(ModelService::hostFromVariable(variable), host) << variable;
    }
    {
        testing::EnvironmentOverride env{{"OLLAMA_HOST", nullptr}};
        EXPECT_EQ(ModelService::host(), "http://127.0.0.1:11434");
    }
    testing::EnvironmentOverride env{{"OLLAMA_HOST", "127.0.0.1:4321"}};
    EXPECT_EQ(ModelService::host(), "http://127.0.0.1:4321");
}

} // namespace
} // namespace keepery
