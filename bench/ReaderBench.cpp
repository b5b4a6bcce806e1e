// Text recognition on rendered screenshots: the `tesseract` command line with its defaults against
// Reader::text, on the same images in one run: character error rate, word recall and CPU time per image.
// Then the floor that search by words gives before any model runs: each screenshot kept as a capture at
// stage `read` with the text Reader recognised, searched with two or three of its distinctive words while
// the model service is away; recall at 1 and at 5.
//
// The screenshots are 2560×1440 renders of terminal, browser, editor, mail and settings windows (11–16 px
// text, light and dark) filled with documentation installed on the machine.
//
//   make bench                                 (all benchmarks)
//   build/release/bench/ReaderBench [images]   (this one; default 20)
#include "Library/Library.h"
#include "Platform/ReadingEnvironment.h"
#include "Understanding/Reader.h"
#include "support/ChildProcess.h"
#include "support/Screenshots.h"
#include "support/TemporaryDirectory.h"
#include "support/TextMetrics.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <sys/resource.h>
#include <vector>

using namespace keepery;
namespace metrics = keepery::testing::TextMetrics;

namespace {

double processSeconds() {
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) / 1e9;
}

double childrenSeconds() {
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);
    const auto seconds = [](const timeval& v) {
        return static_cast<double>(v.tv_sec) + static_cast<double>(v.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

struct Tally {
    double errors = 0; // character error rate × expected length, summed
    double found = 0;  // word recall × expected words, summed
    double characters = 0;
    double words = 0;
    double cpu = 0;
    int images = 0;

    void add(const std::string& expected, const std::string& recognised, double seconds) {
        const auto length = static_cast<double>(metrics::words(expected).size());
        const double chars = static_cast<double>(expected.size());
        errors += metrics::characterErrorRate(expected, recognised) * chars;
        found += metrics::wordRecall(expected, recognised) * length;
        characters += chars;
        words += length;
        cpu += seconds;
        ++images;
    }
    [[nodiscard]] double cer() const { return characters > 0 ? errors / characters : 0; }
    [[nodiscard]] double recall() const { return words > 0 ? found / words : 0; }
    [[nodiscard]] double msPerImage() const { return images > 0 ? cpu * 1000 / images : 0; }
};

// Up to three words of `text` that the fewest other screenshots hold, longest first among equals.
std::string distinctiveQuery(const std::vector<std::string>& words,
                             const std::map<std::string, int>& spread) {
    std::vector<std::string> candidates;
    std::set<std::string> seen;
    for (const std::string& word : words) {
        const bool letters =
            std::all_of(word.begin(), word.end(), [](unsigned char c) { return std::isalpha(c); });
        if (letters && word.size() >= 5 && seen.insert(word).second) {
            candidates.push_back(word);
        }
    }
    std::stable_sort(candidates.begin(), candidates.end(), [&](const std::string& a, const std::string& b) {
        const int sa = spread.at(a);
        const int sb = spread.at(b);
        return sa != sb ? sa < sb : a.size() > b.size();
    });
    std::string query;
    for (std::size_t i = 0; i < std::min<std::size_t>(3, candidates.size()); ++i) {
        query += (query.empty() ? "" : " ") + candidates[i];
    }
    return query;
}

} // namespace

int main(int argc, char** argv) {
    ReadingEnvironment::ensureSingleThreaded(argv);
    const std::size_t count = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 20;
    std::printf("ReaderBench: rerun with build/release/bench/ReaderBench %zu (OMP_THREAD_LIMIT=%s)\n", count,
                std::getenv("OMP_THREAD_LIMIT"));

    keepery::testing::TemporaryDirectory directory;
    std::map<std::string, Tally> commandLineByLayout;
    std::map<std::string, Tally> readerByLayout;
    Tally commandLine;
    Tally reader;
    std::vector<std::string> expectedTexts;
    std::vector<std::string> readTexts;
    for (std::size_t i = 0; i < count; ++i) {
        const keepery::testing::RenderedScreenshot shot = keepery::testing::documentationScreenshot(i);
        const std::string expected = metrics::joined(shot.lines);
        const auto file = directory / (shot.name + ".png");
        std::ofstream(file, std::ios::binary)
            .write(reinterpret_cast<const char*>(shot.png.data()),
                   static_cast<std::streamsize>(shot.png.size()));

        const double childrenBefore = childrenSeconds();
        const auto child = keepery::testing::runChild("/usr/bin/tesseract", {file.string(), "stdout"},
                                                      {{"OMP_THREAD_LIMIT", "1"}}, "");
        const double commandLineSeconds = childrenSeconds() - childrenBefore;

        const double before = processSeconds();
        const std::string read = Reader::text(shot.png);
        const double readerSeconds = processSeconds() - before;

        const std::string layout = shot.name.substr(0, shot.name.find('-'));
        commandLine.add(expected, child.out, commandLineSeconds);
        commandLineByLayout[layout].add(expected, child.out, commandLineSeconds);
        reader.add(expected, read, readerSeconds);
        readerByLayout[layout].add(expected, read, readerSeconds);
        expectedTexts.push_back(expected);
        readTexts.push_back(read);
        std::fflush(stdout);
    }

    std::printf("\n%zu screenshots 2560×1440, %.0f characters, %.0f words\n", count, reader.characters,
                reader.words);
    std::printf("  %-10s %22s %22s\n", "layout", "command line cer/recall", "Reader cer/recall");
    for (const auto& [layout, tally] : readerByLayout) {
        const Tally& cli = commandLineByLayout[layout];
        std::printf("  %-10s %14.3f / %.3f %14.3f / %.3f\n", layout.c_str(), cli.cer(), cli.recall(),
                    tally.cer(), tally.recall());
    }
    std::printf("  character error rate: command line %.3f, Reader %.3f (%.2f× the command line's)\n",
                commandLine.cer(), reader.cer(), reader.cer() / commandLine.cer());
    std::printf("  word recall:          command line %.3f, Reader %.3f\n", commandLine.recall(),
                reader.recall());
    std::printf("  CPU per image:        command line %.0f ms, Reader %.0f ms (%.2f× the command line's)\n",
                commandLine.msPerImage(), reader.msPerImage(),
                reader.msPerImage() / commandLine.msPerImage());

    // Search by words alone: the model service's address is a closed port, so every search falls back.
    std::map<std::string, int> spread;
    std::vector<std::vector<std::string>> wordsOf;
    for (const std::string& expected : expectedTexts) {
        wordsOf.push_back(metrics::words(expected));
        for (const std::string& word : std::set<std::string>(wordsOf.back().begin(), wordsOf.back().end())) {
            ++spread[word];
        }
    }
    LibraryStore store(directory / "Library");
    for (std::size_t i = 0; i < count; ++i) {
        Capture capture;
        capture.id = "shot-" + std::to_string(i);
        capture.createdAt = 1'700'000'000 + static_cast<double>(i) * 60;
        capture.app = "Screen";
        capture.windowTitle = "Screenshot";
        store.insert(capture);
        store.setRead(capture.id, readTexts[i], std::nullopt);
    }
    Library library({.store = store, .client = OllamaClient("http://127.0.0.1:1")},
                    {.visionModel = "unused", .embeddingModel = "unused"});
    int atOne = 0;
    int atFive = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const std::string query = distinctiveQuery(wordsOf[i], spread);
        const SearchFindings findings = library.findings(query);
        const std::string id = "shot-" + std::to_string(i);
        for (std::size_t rank = 0; rank < findings.hits.size() && rank < 5; ++rank) {
            if (findings.hits[rank].id() == id) {
                atOne += rank == 0 ? 1 : 0;
                ++atFive;
            }
        }
    }
    std::printf("  search by words on recognised text (model service away): recall@1 %.2f, recall@5 %.2f "
                "(%zu queries of three distinctive words)\n",
                static_cast<double>(atOne) / static_cast<double>(count),
                static_cast<double>(atFive) / static_cast<double>(count), count);
    return 0;
}
