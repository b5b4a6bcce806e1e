#pragma once

#include <string>
#include <vector>

// How close a recognised or transcribed text is to the text that was shown or spoken, compared after
// typographic quotes become straight ones and each run of white space one space.
namespace keepery::testing::TextMetrics {

// Edit distance in characters (Unicode code points) divided by the expected text's length.
[[nodiscard]] double characterErrorRate(const std::string& expected, const std::string& recognised);

// Edit distance in words (as `words` gives them) divided by the number of expected words.
[[nodiscard]] double wordErrorRate(const std::string& expected, const std::string& recognised);

// The share of expected words (as counted, each occurrence once) that the recognised text holds.
[[nodiscard]] double wordRecall(const std::string& expected, const std::string& recognised);

// The lower-case words of `text` without surrounding punctuation, in order.
[[nodiscard]] std::vector<std::string> words(const std::string& text);

// `lines` joined by line feeds.
[[nodiscard]] std::string joined(const std::vector<std::string>& lines);

} // namespace keepery::testing::TextMetrics
