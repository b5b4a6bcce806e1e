#include "Platform/ModelService.h"

#include "support/EnvironmentOverride.h"

#include <cstdlib>
#include <gtest/gtest.h>

using namespace keepery;

TEST(ModelService, ReadsTheUsualFormsOfTheHostVariable) {
    EXPECT_EQ(ModelService::hostFromVariable(""), "http://127.0.0.1:11434");
    EXPECT_EQ(ModelService::hostFromVariable("   "), "http://127.0.0.1:11434");
    EXPECT_EQ(ModelService::hostFromVariable("127.0.0.1:11434"), "http://127.0.0.1:11434");
    EXPECT_EQ(ModelService::hostFromVariable("http://127.0.0.1:11434"), "http://127.0.0.1:11434");
    EXPECT_EQ(ModelService::hostFromVariable("localhost:8080"), "http://localhost:8080");
    EXPECT_EQ(ModelService::hostFromVariable("0.0.0.0"), "http://0.0.0.0:11434");
    EXPECT_EQ(ModelService::hostFromVariable(":11435"), "http://127.0.0.1:11435");
    EXPECT_EQ(ModelService::hostFromVariable("example.com"), "http://example.com:11434");
    EXPECT_EQ(ModelService::hostFromVariable("http://example.com"), "http://example.com:80");
    EXPECT_EQ(ModelService::hostFromVariable("https://example.com"), "https://example.com:443");
    EXPECT_EQ(ModelService::hostFromVariable("HTTP://Box:9000/"), "http://Box:9000");
    EXPECT_EQ(ModelService::hostFromVariable("https://example.com:8443/ollama/"),
              "https://example.com:8443/ollama");
    EXPECT_EQ(ModelService::hostFromVariable("\"127.0.0.1:7000\""), "http://127.0.0.1:7000");
    EXPECT_EQ(ModelService::hostFromVariable("[::1]:7000"), "http://[::1]:7000");
    EXPECT_EQ(ModelService::hostFromVariable("::1"), "http://[::1]:11434");
    EXPECT_EQ(ModelService::hostFromVariable("localhost:port"), "http://localhost:11434")
        << "a bad port is the default";
    EXPECT_EQ(ModelService::hostFromVariable("localhost:99999"), "http://localhost:11434");
}

TEST(ModelService, HostComesFromTheEnvironment) {
    {
        keepery::testing::EnvironmentOverride env{{"OLLAMA_HOST", nullptr}};
        EXPECT_EQ(ModelService::host(), "http://127.0.0.1:11434");
    }
    keepery::testing::EnvironmentOverride env{{"OLLAMA_HOST", "127.0.0.1:4321"}};
    EXPECT_EQ(ModelService::host(), "http://127.0.0.1:4321");
}
