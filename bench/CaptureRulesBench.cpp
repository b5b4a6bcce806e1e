// The capture rules and the wording run on a front end's input path (every pointer move, every key press,
// every capture), so each call must stay far below a frame. Reproduce with:
//   make bench    or    build/release/bench/CaptureRulesBench --benchmark_repetitions=5
//                         --benchmark_report_aggregates_only=true
#include "Capture/BothSidesGesture.h"
#include "Capture/CaptureKeys.h"
#include "Capture/ImageSources.h"
#include "Capture/PageTarget.h"
#include "Capture/WindowChoice.h"
#include "Media/ContactSheet.h"
#include "Presentation/Wording.h"

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

using namespace keepery;

namespace {

// A typical web page stack: text, a link, nested groups with class names, the image, the page.
std::vector<PointerNode> pageStack() {
    std::vector<PointerNode> nodes;
    nodes.push_back({.role = "AXStaticText", .title = "Caption of the picture", .frame = {10, 10, 300, 20}});
    nodes.push_back(
        {.role = "AXLink", .url = "https://example.com/articles/a-long-story", .frame = {0, 0, 300, 20}});
    nodes.push_back(
        {.role = "AXImage",
         .description = "A photo of a harbour at dusk",
         .url = "https://thumb.wikimedia.org/wikipedia/commons/thumb/a/ab/Harbour.jpg/640px-Harbour.jpg",
         .frame = {0, 0, 640, 420}});
    for (int i = 0; i < 8; ++i) {
        nodes.push_back({.role = "AXGroup",
                         .roleDescription = "group",
                         .frame = {0, 0, 1280, 900},
                         .domClasses = {"layout-column", "content-block", "mw-body"},
                         .domIdentifier = "content-" + std::to_string(i)});
    }
    nodes.push_back({.role = "AXWebArea", .title = "Harbour - Encyclopedia", .frame = {0, 0, 1440, 900}});
    return nodes;
}

void PageTargetDecide(benchmark::State& state) {
    const std::vector<PointerNode> nodes = pageStack();
    for (auto _ : state) {
        benchmark::DoNotOptimize(PageTarget::decide(nodes));
    }
}
BENCHMARK(PageTargetDecide);

void ImageSourcesCandidates(benchmark::State& state) {
    const WebAddress address = *WebAddress::parse(
        "https://thumb.wikimedia.org/wikipedia/commons/thumb/a/ab/Harbour.jpg/640px-Harbour.jpg");
    for (auto _ : state) {
        benchmark::DoNotOptimize(ImageSources::candidates(address));
    }
}
BENCHMARK(ImageSourcesCandidates);

void WindowChoicePick(benchmark::State& state) {
    std::vector<WindowEntry> windows;
    for (int i = 0; i < 60; ++i) {
        windows.push_back({.number = i,
                           .pid = 100 + i % 12,
                           .owner = "App " + std::to_string(i % 12),
                           .title = i % 3 == 0 ? "" : "Window " + std::to_string(i),
                           .layer = i % 7 == 0 ? 25 : 0,
                           .x = 20.0 * i,
                           .y = 10.0 * i,
                           .width = 800,
                           .height = 600});
    }
    const WindowChoice::Situation situation{
        .frontmostPID = 105, .excludingPID = 100, .focusedFrame = ScreenRect{300, 200, 800, 600}};
    for (auto _ : state) {
        benchmark::DoNotOptimize(WindowChoice::pick(windows, situation));
    }
}
BENCHMARK(WindowChoicePick);

void GestureKeystroke(benchmark::State& state) {
    BothSidesGesture gesture = *CaptureKeys(CaptureKeys::bothCommands).gesture();
    using G = BothSidesGesture;
    for (auto _ : state) {
        benchmark::DoNotOptimize(gesture.flagsChanged(G::leftCommand | G::command));
        benchmark::DoNotOptimize(gesture.flagsChanged(G::leftCommand | G::rightCommand | G::command));
        benchmark::DoNotOptimize(gesture.flagsChanged(0));
    }
}
BENCHMARK(GestureKeystroke);

void WordingCount(benchmark::State& state) {
    const std::string locale = "en_US";
    std::int64_t n = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(Wording::count(n, "thing", "things", Wording::Capitalized::yes, locale));
        n = (n + 37) % 250;
    }
}
BENCHMARK(WordingCount);

void WordingCountUserLocale(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(Wording::today(42, 20));
    }
}
BENCHMARK(WordingCountUserLocale);

void ContactSheetCells(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(ContactSheet::cells(1936, 728, 6));
    }
}
BENCHMARK(ContactSheetCells);

} // namespace

BENCHMARK_MAIN();
