#include "Store/Database.h"
#include "support/ChildProcess.h"
#include "support/TemporaryDirectory.h"

#include <fstream>
#include <functional>
#include <gtest/gtest.h>

using namespace keepery;
namespace fs = std::filesystem;

namespace {

class Startup : public ::testing::Test {
protected:
    keepery::testing::TemporaryDirectory home;

    keepery::testing::ChildResult run(const std::string& input,
                                      std::map<std::string, std::string> extra = {}) {
        extra.insert(
            {{"HOME", home.path().string()}, {"PATH", "/usr/bin:/bin"}, {"OLLAMA_HOST", "127.0.0.1:9"}});
        return keepery::testing::runChild(KEEPERY_MCP_PATH, {}, extra, input);
    }

    fs::path library() const { return home / ".local/share/Keepery"; }
};

} // namespace

TEST_F(Startup, EmptyInputCreatesTheLibraryWhereTheDataHomeSaysAndExitsQuietly) {
    const auto result = run("");
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.out + result.err, "");
    EXPECT_TRUE(fs::exists(library() / "library.sqlite"));
    EXPECT_TRUE(fs::is_directory(library() / "thumbs"));

    EXPECT_EQ(run("", {{"XDG_DATA_HOME", (home / "data").string()}}).exitStatus, 0);
    EXPECT_TRUE(fs::exists(home / "data" / "Keepery" / "library.sqlite"));
}

// Blank lines are skipped, a notification gets no reply, and lines the reader refuses (NUL bytes in them,
// an id deep enough to overflow the stack of a release build that echoed it) get a parse error each.
TEST_F(Startup, EachRequestLineGetsOneReplyLineInOrder) {
    using namespace std::string_literals;
    const std::string ping = "{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"ping\"}";
    const std::string pong = "{\"id\":1,\"jsonrpc\":\"2.0\",\"result\":{}}\n";
    const std::string parseError =
        "{\"error\":{\"code\":-32700,\"message\":\"Parse error\"},\"id\":null,\"jsonrpc\":\"2.0\"}\n";
    const std::string deepID =
        "{\"id\":" + std::string(200'000, '[') + std::string(200'000, ']') + ",\"method\":\"ping\"}";
    const auto result =
        run(ping + "\n \t \n\n  " + ping + "  \r\n{\"method\":\"notifications/initialized\"}\n" +
            "garbage\n" + deepID + "\n" + ping + "\0x\n"s + "{\"method\":\"ping\"}\0\n"s +
            "{\"id\":2,\"method\":\"ping\"}"); // the last line has no line feed
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.out, pong + pong + parseError + parseError + parseError + parseError +
                              "{\"id\":2,\"jsonrpc\":\"2.0\",\"result\":{}}\n");
    EXPECT_EQ(result.err, "");
}

// A database file that is not one, and a table the first migration creates already there (so that the
// migration's multi-line statement fails): each ends the program with one line that names the statement.
TEST_F(Startup, ALibraryThatCannotBeOpenedEndsWithOneLineOnStandardError) {
    const std::vector<std::pair<std::function<void()>, std::string>> cases{
        {[&] { std::ofstream(library() / "library.sqlite") << std::string(4096, 'x'); },
         "SQLite: file is not a database \u2014 PRAGMA journal_mode = WAL\n"},
        {[&] { Database((library() / "library.sqlite").string()).run("CREATE TABLE captures (x)"); },
         "SQLite: table captures already exists \u2014  CREATE TABLE captures (     id TEXT "},
    };
    for (const auto& [prepare, reason] : cases) {
        fs::remove_all(library());
        fs::create_directories(library());
        prepare();
        const auto result = run("{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"ping\"}\n");
        EXPECT_EQ(result.exitStatus, 1) << reason;
        EXPECT_EQ(result.out, "");
        EXPECT_TRUE(result.err.starts_with("keepery-mcp: cannot open the library at " + library().string() +
                                           ": " + reason))
            << result.err;
        EXPECT_EQ(result.err.find('\n'), result.err.size() - 1) << result.err;
    }
}
