#pragma once

#include <string>
#include <vector>

// How close a recognised or transcribed text is to the text that was shown or spoken. Texts are compared
// after typographic quotes become straight ones and every run of white space becomes one space, so that
// only what a reader would call a different character counts.
namespace keepery::testing::TextMetrics {

// Edit distance in characters (Unicode code points) divided by the expected text's length.
[[nodiscard]] double characterErrorRate(const std::string& expected, const std::string& recognised);

// Edit distance in words divided by the number of expected words; words are compared in lower case
// without surrounding punctuation.
[[nodiscard]] double wordErrorRate(const std::string& expected, const std::string& recognised);

// The share of expected words (as counted, each occurrence once) that the recognised text holds.
[[nodiscard]] double wordRecall(const std::string& expected, const std::string& recognised);

// The lower-case words of `text` without surrounding punctuation, in order.
[[nodiscard]] std::vector<std::string> words(const std::string& text);

// `lines` joined by line feeds.
[[nodiscard]] std::string joined(const std::vector<std::string>& lines);

} // namespace keepery::testing::TextMetrics
