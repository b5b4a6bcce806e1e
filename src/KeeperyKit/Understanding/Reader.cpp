#include "Understanding/Reader.h"

#include "Platform/VipsRuntime.h"
#include "Understanding/PanelCut.h"

#include <leptonica/allheaders.h>
#include <tesseract/baseapi.h>
#include <tesseract/resultiterator.h>
#include <vips/vips8>

#include <algorithm>
#include <array>
#include <memory>
#include <mutex>
#include <stdexcept>

namespace keepery::Reader {
namespace {

// Text lines shorter than this (in pixels, ink top to bottom) are enlarged before recognition: the
// engine finds and thresholds small screen text poorly. On 11-16 px screen text half as large again
// reads as well as twice the size (character error rate 0.001 against 0.023 unenlarged) at 15% less
// CPU time than twice.
constexpr int smallLineHeight = 24;
constexpr double enlargement = 1.5;
// Screens are about 96 pixels per inch; the engine sizes its layout rules by it.
constexpr int screenResolution = 96;
// A picture is decoded whole, one byte a pixel, and enlarged by half again when its text is small: past
// this many pixels (twice an 8K screen) a few bytes of a crafted file would claim gigabytes.
constexpr std::int64_t mostPixels = 64'000'000;

std::vector<std::string> installedLanguages() {
    // A throwaway engine tells where the data lies and what it holds; only English is needed for that.
    tesseract::TessBaseAPI probe;
    probe.SetVariable("debug_file", "/dev/null");
    if (probe.Init(nullptr, "eng", tesseract::OEM_LSTM_ONLY) != 0) {
        throw std::runtime_error("no English text recognition data is installed");
    }
    std::vector<std::string> available;
    probe.GetAvailableLanguagesAsVector(&available);
    probe.End();
    std::vector<std::string> result{"eng"};
    std::sort(available.begin(), available.end());
    for (const std::string& language : available) {
        // "osd" finds orientation and script, "equ" equations: neither reads words.
        if (language != "eng" && language != "osd" && language != "equ") {
            result.push_back(language);
        }
    }
    return result;
}

std::string joined(const std::vector<std::string>& languages) {
    std::string result;
    for (const std::string& language : languages) {
        result += (result.empty() ? "" : "+") + language;
    }
    return result;
}

// One thread's engine, loaded on first use and ended with the thread.
class Engine {
public:
    Engine() {
        // Leptonica reports image errors on standard error; nothing of ours may reach it.
        setMsgSeverity(L_SEVERITY_NONE);
        api_.SetVariable("debug_file", "/dev/null");
        if (api_.Init(nullptr, joined(languages()).c_str(), tesseract::OEM_LSTM_ONLY) != 0) {
            throw std::runtime_error("the text recognition engine could not be loaded");
        }
        api_.SetPageSegMode(tesseract::PSM_AUTO);
        // Lines the engine reads poorly are read again inverted, which recovers light text on dark
        // backgrounds that the panel polarity left dark (a dark button in a light panel).
        api_.SetVariable("tessedit_do_invert", "1");
    }
    ~Engine() { api_.End(); }
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;

    tesseract::TessBaseAPI& api() { return api_; }

private:
    tesseract::TessBaseAPI api_;
};

Engine& threadEngine() {
    thread_local Engine engine;
    return engine;
}

// Results and the image are dropped after each call; the loaded models stay.
class ClearOnExit {
public:
    explicit ClearOnExit(tesseract::TessBaseAPI& api) : api_(api) {}
    ~ClearOnExit() { api_.Clear(); }
    ClearOnExit(const ClearOnExit&) = delete;
    ClearOnExit& operator=(const ClearOnExit&) = delete;

private:
    tesseract::TessBaseAPI& api_;
};

struct Gray {
    std::vector<std::uint8_t> pixels;
    int width = 0;
    int height = 0;
};

// The pixels of a one-band 8-bit image, computed now.
Gray pixelsOf(const vips::VImage& image) {
    Gray gray;
    gray.width = image.width();
    gray.height = image.height();
    std::size_t size = 0;
    std::unique_ptr<void, decltype(&g_free)> memory(image.write_to_memory(&size), &g_free);
    const auto* begin = static_cast<const std::uint8_t*>(memory.get());
    gray.pixels.assign(begin, begin + size);
    return gray;
}

// The first image of the bytes as 8-bit gray, transparency laid on white.
Gray decode(std::span<const std::uint8_t> bytes) {
    if (bytes.empty()) {
        throw Failure::corruptFile();
    }
    try {
        vips::VImage image = vips::VImage::new_from_buffer(bytes.data(), bytes.size(), "");
        if (static_cast<std::int64_t>(image.width()) * image.height() > mostPixels) {
            throw std::runtime_error("The picture is too large to read: " + std::to_string(image.width()) +
                                     " × " + std::to_string(image.height()) + " pixels.");
        }
        if (image.has_alpha()) {
            image = image.flatten(vips::VImage::option()->set("background", std::vector<double>{255}));
        }
        image = image.colourspace(VIPS_INTERPRETATION_B_W);
        if (image.format() != VIPS_FORMAT_UCHAR) {
            const bool sixteenBit = image.format() == VIPS_FORMAT_USHORT;
            image = (sixteenBit ? image / 256 : image).cast(VIPS_FORMAT_UCHAR);
        }
        if (image.bands() > 1) {
            image = image.extract_band(0);
        }
        return pixelsOf(image);
    } catch (const vips::VError&) {
        vips_error_clear();
        throw Failure::corruptFile();
    }
}

// The most frequent gray value in the rectangle: the panel's background.
int background(const Gray& gray, const PanelCut::Rectangle& r) {
    std::array<int, 256> counts{};
    for (int y = r.y; y < r.y + r.height; ++y) {
        const std::uint8_t* row = gray.pixels.data() + static_cast<std::size_t>(y) * gray.width;
        for (int x = r.x; x < r.x + r.width; ++x) {
            ++counts[row[x]];
        }
    }
    return static_cast<int>(std::max_element(counts.begin(), counts.end()) - counts.begin());
}

// The engine reads dark text on light ground best; a dark panel is turned over in place.
void makeDarkOnLight(Gray& gray, const PanelCut::Rectangle& r) {
    if (background(gray, r) >= 128) {
        return;
    }
    for (int y = r.y; y < r.y + r.height; ++y) {
        std::uint8_t* row = gray.pixels.data() + static_cast<std::size_t>(y) * gray.width;
        for (int x = r.x; x < r.x + r.width; ++x) {
            row[x] = static_cast<std::uint8_t>(255 - row[x]);
        }
    }
}

// The median height of the ink runs (text lines) of the panels, 0 when there are none.
int typicalLineHeight(const Gray& gray, const std::vector<PanelCut::Rectangle>& panels) {
    std::vector<int> heights;
    for (const PanelCut::Rectangle& r : panels) {
        const int ground = background(gray, r);
        int run = 0;
        for (int y = r.y; y <= r.y + r.height; ++y) {
            bool ink = false;
            if (y < r.y + r.height) {
                const std::uint8_t* row = gray.pixels.data() + static_cast<std::size_t>(y) * gray.width;
                for (int x = r.x; x < r.x + r.width && !ink; ++x) {
                    ink = std::abs(row[x] - ground) > PanelCut::changeThreshold;
                }
            }
            if (ink) {
                ++run;
            } else if (run > 0) {
                heights.push_back(run);
                run = 0;
            }
        }
    }
    if (heights.empty()) {
        return 0;
    }
    std::nth_element(heights.begin(), heights.begin() + static_cast<std::ptrdiff_t>(heights.size() / 2),
                     heights.end());
    return heights[heights.size() / 2];
}

Gray enlarged(const Gray& gray, double scale) {
    vips::VImage image =
        vips::VImage::new_from_memory(const_cast<std::uint8_t*>(gray.pixels.data()), gray.pixels.size(),
                                      gray.width, gray.height, 1, VIPS_FORMAT_UCHAR);
    return pixelsOf(image.resize(scale, vips::VImage::option()->set("kernel", VIPS_KERNEL_CUBIC)));
}

void appendLines(tesseract::TessBaseAPI& api, std::string& text) {
    std::unique_ptr<tesseract::ResultIterator> lines(api.GetIterator());
    if (!lines) {
        return;
    }
    do {
        std::unique_ptr<char[]> line(lines->GetUTF8Text(tesseract::RIL_TEXTLINE));
        if (!line) {
            continue;
        }
        std::string_view view(line.get());
        // The last line of a paragraph ends in a second line feed.
        while (view.ends_with('\n')) {
            view.remove_suffix(1);
        }
        // A line of nothing but spaces is the engine's reading of a rule or an edge, not text.
        if (view.find_first_not_of(' ') == std::string_view::npos) {
            continue;
        }
        if (!text.empty()) {
            text += '\n';
        }
        text += view;
    } while (lines->Next(tesseract::RIL_TEXTLINE));
}

} // namespace

Failure Failure::corruptFile() {
    return Failure();
}

const char* Failure::what() const noexcept {
    return "The file couldn’t be opened because it isn’t in the correct format.";
}

std::vector<std::string> languages() {
    static std::once_flag once;
    static std::vector<std::string> result;
    std::call_once(once, [] { result = installedLanguages(); });
    return result;
}

std::string text(std::span<const std::uint8_t> bytes) {
    VipsRuntime::ensureStarted();
    Gray gray = decode(bytes);
    const std::vector<PanelCut::Rectangle> panels = PanelCut::panels({gray.pixels, gray.width, gray.height});
    if (panels.empty()) {
        return {};
    }
    const int lineHeight = typicalLineHeight(gray, panels);
    for (const PanelCut::Rectangle& panel : panels) {
        makeDarkOnLight(gray, panel);
    }
    const double scale = lineHeight > 0 && lineHeight < smallLineHeight ? enlargement : 1;
    if (scale != 1) {
        gray = enlarged(gray, scale);
    }

    tesseract::TessBaseAPI& api = threadEngine().api();
    ClearOnExit clear(api);
    api.SetImage(gray.pixels.data(), gray.width, gray.height, 1, gray.width);
    api.SetSourceResolution(static_cast<int>(screenResolution * scale));
    std::string text;
    for (const PanelCut::Rectangle& panel : panels) {
        const auto at = [&](int v) { return static_cast<int>(v * scale); };
        const int x = at(panel.x);
        const int y = at(panel.y);
        api.SetRectangle(x, y, std::min(at(panel.x + panel.width), gray.width) - x,
                         std::min(at(panel.y + panel.height), gray.height) - y);
        if (api.Recognize(nullptr) != 0) {
            throw std::runtime_error("text recognition failed");
        }
        appendLines(api, text);
    }
    return text;
}

} // namespace keepery::Reader
