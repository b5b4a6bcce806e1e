#include "Store/Database.h"
#include "keepery/KeeperyHome.h"
#include "support/FakeClock.h"
#include "support/MediaFixtures.h"

#include <random>
#include <set>

using namespace keepery;
using namespace keepery::testing;
namespace fs = std::filesystem;
using Seconds = std::chrono::duration<double>;

namespace {

std::vector<std::uint8_t> bytesOf(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// `keepery import`, `keep` and `work` killed with SIGKILL at random moments of their run on one library,
// then checked: the database is whole, every row's files are there and whole, whatever a killed command
// said it kept is kept, and one more `work` finishes everything. KEEPERY_CRASH_SEED repeats a run's choices.
using KeeperyCrash = KeeperyHome;

TEST_F(KeeperyCrash, KillsAtRandomMomentsLoseNothingKeptAndLeaveTheLibraryWhole) {
    const auto began = std::chrono::steady_clock::now();
    const char* given = std::getenv("KEEPERY_CRASH_SEED");
    const std::uint32_t seed =
        given != nullptr ? static_cast<std::uint32_t>(std::stoul(given)) : std::random_device{}();
    SCOPED_TRACE("KEEPERY_CRASH_SEED=" + std::to_string(seed));
    std::mt19937 random(seed);

    std::vector<std::vector<std::uint8_t>> photos;
    for (const auto& [width, height] : {std::pair{900, 600}, {640, 960}, {1200, 800}, {700, 700}}) {
        photos.push_back(jpegWith(quadrants(width, height)));
    }
    std::map<std::string, std::uintmax_t> sourceBytes; // by file stem, which is the capture's title
    const fs::path screenFile = home / "screen.png";
    writeFile(screenFile, pngOf(quadrants(1280, 800)));
    // Each run keeps new photos (three, named after the run so that every title is unique) or a screen.
    int round = 0;
    enum Command { importOnly, importAndProcess, keepScreen, work };
    const auto arguments = [&](Command command) -> std::vector<std::string> {
        const fs::path folder = home / ("batch-" + std::to_string(++round));
        fs::create_directories(folder);
        for (int i = 0; i < 3 && command <= importAndProcess; ++i) {
            const std::string stem = "photo-" + std::to_string(round) + "-" + std::to_string(i);
            const auto& bytes = photos[static_cast<std::size_t>(round + i) % photos.size()];
            writeFile(folder / (stem + ".jpg"), bytes);
            sourceBytes[stem] = bytes.size();
        }
        switch (command) {
        case importOnly:
            return {"import", "--no-process", folder.string()};
        case importAndProcess:
            return {"import", folder.string()};
        case keepScreen:
            return {"keep", screenFile.string(), "--title", "Screen " + std::to_string(round)};
        case work:
            return {"work"};
        }
        return {};
    };
    // Runs a command, killed `killAfter` seconds after its start unless it ended; returns how long it ran
    // when it ended by itself. What its output says it kept is added to the titles of imported files and the
    // ids of kept screens.
    std::set<std::string> keptTitles;
    std::set<std::string> keptIDs;
    const auto run = [&](Command command, std::optional<double> killAfter) {
        const std::vector<std::string> commandLine = arguments(command);
        const auto start = std::chrono::steady_clock::now();
        RunningChild child(KEEPERY_PATH, commandLine, environment(), home / "run.log");
        if (killAfter) {
            std::this_thread::sleep_until(
                start + std::chrono::duration_cast<std::chrono::nanoseconds>(Seconds(*killAfter)));
            child.signal(SIGKILL);
        }
        const int status = child.finish();
        std::istringstream lines(child.output());
        for (std::string line; std::getline(lines, line);) {
            if (line.starts_with("Imported /")) {
                keptTitles.insert(fs::path(line.substr(std::string("Imported ").size())).stem().string());
            } else if (line.starts_with("Kept ") && line.ends_with(").")) {
                const auto id = line.rfind("(id ");
                keptIDs.insert(line.substr(id + 4, line.size() - id - 6));
            }
        }
        EXPECT_TRUE(killAfter || status == 0) << child.output();
        return status == -1 ? std::nullopt
                            : std::optional(Seconds(std::chrono::steady_clock::now() - start).count());
    };

    // Each command's whole run, measured once unkilled, is the range its kills are drawn from, so that they
    // land in start-up, keeping and processing alike.
    std::map<Command, double> runTime;
    for (Command command : {importOnly, work, importAndProcess, keepScreen}) {
        runTime[command] = run(command, std::nullopt).value_or(0);
    }
    std::map<Command, int> kills;
    int killed = 0;
    std::discrete_distribution<int> pick{3, 3, 1, 3};
    for (int attempt = 0; killed < 100 && attempt < 300; ++attempt) {
        const auto command = static_cast<Command>(pick(random));
        if (!run(command, std::uniform_real_distribution<double>(0, runTime[command])(random))) {
            ++kills[command];
            ++killed;
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
    std::set<std::string> titles;
    std::set<std::string> ids;
    const std::vector<Capture> captures = store.captures(LibraryFilter::recent(), 100000);
    for (const Capture& capture : captures) {
        SCOPED_TRACE(capture.id + " " + capture.windowTitle);
        titles.insert(capture.windowTitle);
        ids.insert(capture.id);
        EXPECT_EQ(capture.stage.rawValue(), "organized");
        EXPECT_GT(decoded(bytesOf(store.imageURL(capture))).width, 0);
        EXPECT_GT(decoded(bytesOf(store.thumbURL(capture.id))).width, 0);
        if (capture.media == CaptureMedia::photo) {
            std::error_code error;
            EXPECT_EQ(fs::file_size(store.originalURL(capture).value_or(""), error),
                      sourceBytes[capture.windowTitle]);
        }
    }
    std::vector<std::string> lost;
    std::set_difference(keptTitles.begin(), keptTitles.end(), titles.begin(), titles.end(),
                        std::back_inserter(lost));
    std::set_difference(keptIDs.begin(), keptIDs.end(), ids.begin(), ids.end(), std::back_inserter(lost));
    EXPECT_EQ(lost, std::vector<std::string>{}) << "reported kept, not in the library";
    EXPECT_TRUE(store.failing(10).empty());

    std::cout << "KEEPERY_CRASH_SEED=" << seed << ": " << killed << " kills survived (import --no-process "
              << kills[importOnly] << ", import " << kills[importAndProcess] << ", keep " << kills[keepScreen]
              << ", work " << kills[work] << ") in " << round << " runs, " << captures.size() << " captures, "
              << lost.size() << " lost, " << leftovers.files.size() << " left-behind files removed, "
              << Seconds(std::chrono::steady_clock::now() - began).count() << " s\n";
}

} // namespace
