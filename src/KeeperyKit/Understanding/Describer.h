#pragma once

#include "Model/Capture.h"
#include "Understanding/CaptureDescription.h"
#include "Understanding/OllamaClient.h"

#include <cstdint>
#include <exception>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace keepery {

// A JSON object from a model's reply; defined in Understanding/JSONObject.h, which only engine sources
// include.
struct JSONObject;

// Turns one capture into a CaptureDescription by showing the vision model its image with what is known
// about it, then checking the model's JSON answer against that knowledge: titles are cut and cleaned of
// site names, summaries of openings such as "A screenshot of", tags normalised, and highlights and links
// kept only when they occur in the text read from the capture. A value with no mutable state: `describe`
// may run on any number of threads at once, and the static rules are pure functions.
class Describer {
public:
    // The system prompt of every description request.
    static constexpr std::string_view system =
        "You file screenshots, photos and videos into a person's personal library (a keepery book). You look "
        "at one image and answer with JSON only. Describe what it shows, not an app's chrome. Never invent "
        "facts, names or links that are not visible or said.";

    // What the prompt knows about the capture.
    struct Context {
        CaptureMedia media = CaptureMedia::screen;
        // The app in front, for a screen capture.
        std::string app{};
        // The window title; for an imported photo or video the imported file's name.
        std::string windowTitle{};
        std::optional<std::string> url{};
        // A video's length in seconds.
        std::optional<double> duration{};
        std::optional<Instant> takenAt{};
        // What is said in a video.
        std::optional<std::string> transcript{};

        // The seven like-named fields of `capture`.
        [[nodiscard]] static Context from(const Capture& capture);
    };

    // The model's reply held no JSON object. `reply()` is its first 200 characters. The text form is the
    // case with its payload, notJSON("<start of the reply>").
    class ParseError : public std::exception {
    public:
        enum class Kind { notJSON };

        [[nodiscard]] static ParseError notJSON(std::string replyStart);

        [[nodiscard]] Kind kind() const { return Kind::notJSON; }
        [[nodiscard]] const std::string& reply() const { return reply_; }
        [[nodiscard]] const char* what() const noexcept override { return text_.c_str(); }
        bool operator==(const ParseError& other) const { return reply_ == other.reply_; }

    private:
        explicit ParseError(std::string replyStart);
        std::string reply_;
        std::string text_;
    };

    // The longest recognized text or transcript the prompt carries, in characters.
    static constexpr std::size_t excerptLength = 3000;
    static constexpr std::int64_t maxTokens = 700;
    static constexpr OllamaClient::Timeout timeout = std::chrono::seconds(180);

    // `wait` is the longest wait for the service's next bytes; a longer one fails as `unreachable`.
    Describer(OllamaClient client, std::string model, OllamaClient::Timeout wait = timeout);

    [[nodiscard]] const OllamaClient& client() const { return client_; }
    [[nodiscard]] const std::string& model() const { return model_; }

    // Asks the model about `image` (encoded bytes) with the prompt of `context` and the excerpt of
    // `ocrText`, and parses the answer, checking highlights and links against `ocrText` and the transcript.
    // Blocks up to the wait given (180 s unless told). Throws OllamaClient::Failure and ParseError unchanged.
    [[nodiscard]] CaptureDescription describe(std::span<const std::uint8_t> image, const Context& context,
                                              std::string_view ocrText) const;

    // `describe` for a screen capture: no duration, date or transcript.
    [[nodiscard]] CaptureDescription describe(std::span<const std::uint8_t> image, std::string_view app,
                                              std::string_view windowTitle,
                                              const std::optional<std::string>& url,
                                              std::string_view ocrText) const;

    // The prompt for `context`: a head by medium, then the excerpt between triple quotes and the JSON form
    // the answer must take. Dates are written in the user's locale and time zone.
    [[nodiscard]] static std::string prompt(const Context& context, std::string_view ocrExcerpt);
    [[nodiscard]] static std::string prompt(std::string_view app, std::string_view windowTitle,
                                            const std::optional<std::string>& url,
                                            std::string_view ocrExcerpt);

    // The description in `reply`, checked against `ocrText` (highlights and links must occur in it) and
    // `url` (its site name is cut from the title; the address itself is the first link). Fields that are
    // missing or of the wrong type take their fallbacks (`fallbackTitle`, then "Untitled"; an empty summary;
    // `other`; empty lists). Throws ParseError when the reply holds no JSON object.
    [[nodiscard]] static CaptureDescription parse(std::string_view reply, std::string_view ocrText,
                                                  const std::optional<std::string>& url,
                                                  std::string_view fallbackTitle);

    // `text` trimmed of white space and line breaks; "(none)" when that leaves nothing; cut at 3,000
    // characters with "…" appended.
    [[nodiscard]] static std::string excerpt(std::string_view text);

    // The object spanning the first "{" to the last "}" of `text`, when that span is a JSON object; prose
    // and code fences around it are ignored. Absent otherwise; never throws.
    [[nodiscard]] static std::optional<JSONObject> jsonObject(std::string_view text);

    // `text` with runs of white space made one blank and white space and double quotes trimmed at both
    // ends; absent when nothing is left. Longer than `max` characters, it is cut to `max` − 1 characters,
    // trimmed of blanks, with "…" appended.
    [[nodiscard]] static std::optional<std::string> clean(const std::optional<std::string>& text,
                                                          std::size_t max);

    // `title` without a trailing site name taken from `url`'s host ("Espresso - Example" for example.org
    // becomes "Espresso"), unless that would leave nothing or end the title on a preposition.
    [[nodiscard]] static std::string withoutSiteName(std::string_view title,
                                                     const std::optional<std::string>& url);

    // `summary` without an opening such as "A screenshot of the", the rest starting with a capital; the
    // summary unchanged when nothing would be left.
    [[nodiscard]] static std::string withoutPreamble(std::string_view summary);

    // The lower-cased letters, marks and numbers of `text`, in order; everything else dropped.
    [[nodiscard]] static std::string squashed(std::string_view text);

    // True for an http or https address whose host contains a ".".
    [[nodiscard]] static bool isWebLink(std::string_view text);

private:
    OllamaClient client_;
    std::string model_;
    OllamaClient::Timeout wait_;
};

} // namespace keepery
