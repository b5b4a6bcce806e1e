#include "Store/Database.h"
#include "keepery/KeeperyHome.h"
#include "support/FakeClock.h"
#include "support/MediaFixtures.h"

#include <gmock/gmock.h>
#include <random>
#include <set>

using namespace keepery;
using namespace keepery::testing;
namespace fs = std::filesystem;
using Seconds = std::chrono::duration<double>;

namespace {

// `keepery import`, `keep` and `work` killed with SIGKILL at random moments of their run on one library,
// then checked: the database is whole, every row's files are there and whole, whatever a killed command
// said it kept is kept, and one more `work` finishes everything. KEEPERY_CRASH_SEED repeats a run's choices.
class KeeperyCrash : public KeeperyHome {
protected:
    static constexpr int batchSize = 3;
    std::vector<std::vector<std::uint8_t>> photos;
    std::map<std::string, std::uintmax_t> sourceBytes; // by file stem, which is the capture's title

    void SetUp() override {
        for (const auto& [width, height] : {std::pair{900, 600}, {640, 960}, {1200, 800}, {700, 700}}) {
            photos.push_back(jpegWith(quadrants(width, height)));
        }
    }

    // A folder of new photos, named after `round` so that every capture's title is unique.
    fs::path batch(int round) {
        const fs::path folder = home / ("batch-" + std::to_string(round));
        fs::create_directories(folder);
        for (int i = 0; i < batchSize; ++i) {
            const std::string stem = "photo-" + std::to_string(round) + "-" + std::to_string(i);
            const auto& bytes = photos[static_cast<std::size_t>(round + i) % photos.size()];
            writeFile(folder / (stem + ".jpg"), bytes);
            sourceBytes[stem] = bytes.size();
        }
        return folder;
    }

    static std::vector<std::uint8_t> bytesOf(const fs::path& file) {
        std::ifstream in(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    struct Run {
        bool killed = false; // the kill landed before the command ended by itself
        double seconds = 0;
        std::string output;
    };

    // Runs `keepery` with `arguments`, and kills it `killAfter` seconds after its start unless it ended.
    Run run(const std::vector<std::string>& arguments, std::optional<double> killAfter = std::nullopt) {
        const auto start = std::chrono::steady_clock::now();
        RunningChild child(KEEPERY_PATH, arguments, environment(), home / "run.log");
        if (killAfter) {
            std::this_thread::sleep_until(
                start + std::chrono::duration_cast<std::chrono::nanoseconds>(Seconds(*killAfter)));
            child.signal(SIGKILL);
        }
        const int status = child.finish();
        Run result{status == -1, Seconds(std::chrono::steady_clock::now() - start).count(), child.output()};
        if (!killAfter) {
            EXPECT_EQ(status, 0) << result.output;
        }
        return result;
    }

    // What the output says was kept, added to the titles of imported files and the ids of kept screens;
    // returns how many it names.
    static int reported(const std::string& output, std::set<std::string>& titles,
                        std::set<std::string>& ids) {
        int named = 0;
        std::istringstream lines(output);
        for (std::string line; std::getline(lines, line);) {
            if (line.starts_with("Imported /")) {
                titles.insert(fs::path(line.substr(std::string("Imported ").size())).stem().string());
                ++named;
            } else if (line.starts_with("Kept ") && line.ends_with(").")) {
                const auto id = line.rfind("(id ");
                ids.insert(line.substr(id + 4, line.size() - id - 6));
                ++named;
            }
        }
        return named;
    }
};

TEST_F(KeeperyCrash, KillsAtRandomMomentsLoseNothingKeptAndLeaveTheLibraryWhole) {
    const auto began = std::chrono::steady_clock::now();
    const char* given = std::getenv("KEEPERY_CRASH_SEED");
    const std::uint32_t seed =
        given != nullptr ? static_cast<std::uint32_t>(std::stoul(given)) : std::random_device{}();
    std::cout << "KEEPERY_CRASH_SEED=" << seed << "\n" << std::flush;
    RecordProperty("seed", std::to_string(seed));
    SCOPED_TRACE("KEEPERY_CRASH_SEED=" + std::to_string(seed));
    std::mt19937 random(seed);

    // Each command's whole run, measured once unkilled, is the range its kills are drawn from, so that
    // they land in start-up, keeping and processing alike.
    int round = 0;
    const fs::path screenFile = home / "screen.png";
    writeFile(screenFile, pngOf(quadrants(1280, 800)));
    enum Command { importOnly, importAndProcess, keepScreen, work };
    const auto arguments = [&](Command command) -> std::vector<std::string> {
        ++round;
        switch (command) {
        case importOnly:
            return {"import", "--no-process", batch(round).string()};
        case importAndProcess:
            return {"import", batch(round).string()};
        case keepScreen:
            return {"keep", screenFile.string(), "--title", "Screen " + std::to_string(round)};
        case work:
            return {"work"};
        }
        return {};
    };
    std::map<Command, double> runTime;
    for (Command command : {importOnly, work, importAndProcess, keepScreen}) {
        runTime[command] = run(arguments(command)).seconds;
    }

    std::set<std::string> keptTitles;
    std::set<std::string> keptIDs;
    std::map<Command, int> kills;
    // Imports killed before they kept a file, amid their files, and after the last.
    std::array<int, 3> importsKilled{};
    int killed = 0;
    std::discrete_distribution<int> pick{3, 3, 1, 3};
    for (int attempt = 0; killed < 100 && attempt < 300; ++attempt) {
        const auto command = static_cast<Command>(pick(random));
        const double after = std::uniform_real_distribution<double>(0, runTime[command])(random);
        const Run done = run(arguments(command), after);
        const int named = reported(done.output, keptTitles, keptIDs);
        if (done.killed) {
            ++kills[command];
            ++killed;
            if (command == importOnly || command == importAndProcess) {
                ++importsKilled[named == 0 ? 0 : named < batchSize ? 1 : 2];
            }
        }
    }
    ASSERT_GE(killed, 100);

    const ChildResult finished = keepery({"work"});
    ASSERT_EQ(finished.exitStatus, 0) << finished.err;

    Database database((library() / "library.sqlite").string());
    ASSERT_EQ(database.query("PRAGMA integrity_check").at(0).begin()->second.asText(), "ok");
    EXPECT_TRUE(database.query("PRAGMA foreign_key_check").empty());
    // The full-text index agrees with its rows.
    database.execute("INSERT INTO captures_fts(captures_fts) VALUES ('integrity-check')");

    // An hour on, every file a killed keep wrote before its row counts as left behind.
    const FakeClock later(Clock::system().secondsSince1970() + 7200);
    LibraryStore store(library(), later);
    const LibraryStore::Leftovers leftovers = store.removeLeftovers();
    EXPECT_TRUE(store.leftovers().files.empty());

    const std::vector<Capture> captures = store.captures(LibraryFilter::recent(), 100000);
    std::set<std::string> titles;
    std::set<std::string> ids;
    for (const Capture& capture : captures) {
        SCOPED_TRACE(capture.id + " " + capture.windowTitle);
        titles.insert(capture.windowTitle);
        ids.insert(capture.id);
        EXPECT_EQ(capture.stage.rawValue(), "organized");
        EXPECT_GT(decoded(bytesOf(store.imageURL(capture))).width, 0);
        EXPECT_GT(decoded(bytesOf(store.thumbURL(capture.id))).width, 0);
        if (capture.media == CaptureMedia::photo) {
            const auto original = store.originalURL(capture);
            ASSERT_TRUE(original);
            std::error_code error;
            EXPECT_EQ(fs::file_size(*original, error), sourceBytes[capture.windowTitle]);
        }
    }
    std::int64_t lost = 0;
    for (const std::string& title : keptTitles) {
        lost += titles.contains(title) ? 0 : 1;
        EXPECT_TRUE(titles.contains(title)) << "reported imported, not in the library: " << title;
    }
    for (const std::string& id : keptIDs) {
        lost += ids.contains(id) ? 0 : 1;
        EXPECT_TRUE(ids.contains(id)) << "reported kept, not in the library: " << id;
    }
    EXPECT_TRUE(store.failing(10).empty());

    std::cout << "KEEPERY_CRASH_SEED=" << seed << ": " << killed << " kills survived (import --no-process "
              << kills[importOnly] << ", import " << kills[importAndProcess] << ", keep " << kills[keepScreen]
              << ", work " << kills[work] << ") in " << round
              << " runs; imports killed before their first file " << importsKilled[0] << ", amid their files "
              << importsKilled[1] << ", after their last " << importsKilled[2] << "; " << captures.size()
              << " captures kept, " << keptTitles.size() + keptIDs.size()
              << " of them reported kept by killed or whole runs, " << lost << " lost; "
              << leftovers.files.size() << " files left behind removed; "
              << Seconds(std::chrono::steady_clock::now() - began).count() << " s\n";
}

} // namespace
