#include "Platform/Settings.h"

#include "support/EnvironmentOverride.h"
#include "support/TemporaryDirectory.h"

#include <fstream>
#include <gtest/gtest.h>

namespace keepery {
namespace {

TEST(Settings, OnlyAReadableJsonObjectUnderTheConfigHomeCountsAsSettings) {
    testing::TemporaryDirectory dir;
    EXPECT_FALSE(Settings::load(dir / "missing.json").has_value());
    EXPECT_FALSE(Settings::load(dir.path()).has_value()); // a directory
    std::ofstream(dir / "array.json") << "[\"visionModel\"]";
    EXPECT_FALSE(Settings::load(dir / "array.json").has_value());
    std::ofstream(dir / "broken.json") << "{\"visionModel\": ";
    EXPECT_FALSE(Settings::load(dir / "broken.json").has_value());

    std::ofstream(dir / "settings.json") << "{\"visionModel\": \" llava:7b \", \"other\": 3}";
    const auto settings = Settings::load(dir / "settings.json");
    ASSERT_TRUE(settings.has_value());
    EXPECT_EQ(settings->string("visionModel"), " llava:7b "); // used unchanged, never trimmed
    EXPECT_EQ(settings->string("other"), std::nullopt);
    EXPECT_EQ(settings->string("missing"), std::nullopt);

    testing::EnvironmentOverride env{{"XDG_CONFIG_HOME", "/config"}};
    EXPECT_EQ(Settings::defaultFile(), std::filesystem::path("/config") / Settings::domain / "settings.json");
}

} // namespace
} // namespace keepery
