#pragma once

#include "Understanding/OllamaClient.h"

#include <chrono>
#include <span>
#include <string>
#include <string_view>

namespace keepery {

struct Capture;

// Asks the language model for a short name and one emoji for a collection, from what the collection holds.
// The reply is read leniently: whatever the model answers, a usable name and emoji come back. A value with
// no mutable state; `name` may run on any number of threads at once.
class CollectionNamer {
public:
    // A collection's name (1 to 40 characters) and its emoji (one user-perceived character).
    struct Naming {
        std::string name;
        std::string emoji;
        bool operator==(const Naming&) const = default;
    };

    static constexpr std::string_view untitled = "Untitled collection";
    static constexpr std::string_view folderEmoji = "\U0001F4C1";
    // How many captures the prompt lists, from the front of the list.
    static constexpr std::size_t promptItems = 12;
    static constexpr std::size_t nameLimit = 40;
    static constexpr std::int64_t maxTokens = 80;
    static constexpr OllamaClient::Timeout timeout = std::chrono::seconds(120);

    // `wait` is the longest wait for the service's next bytes; a longer one fails as `unreachable`.
    CollectionNamer(OllamaClient client, std::string model, OllamaClient::Timeout wait = timeout);

    [[nodiscard]] const OllamaClient& client() const { return client_; }
    [[nodiscard]] const std::string& model() const { return model_; }

    // The model's naming of `captures`, in the caller's order. Blocks up to the wait given (120 s unless
    // told). Throws OllamaClient::Failure unchanged.
    [[nodiscard]] Naming name(std::span<const Capture> captures) const;

    // One line per capture of the first twelve ("- " + display title + ": " + summary + " [tags]"), between
    // a fixed opening line and a fixed request for JSON.
    [[nodiscard]] static std::string prompt(std::span<const Capture> captures);

    // The name (cleaned, cut at 40 characters; "Untitled collection" when none) and the first emoji of the
    // reply's "emoji" text ("📁" when none). Never fails.
    [[nodiscard]] static Naming parse(std::string_view reply);

    // True for a user-perceived character that shows as an emoji: it holds a code point with the
    // Emoji_Presentation property or the variation selector U+FE0F, or it is a flag of two regional
    // indicators.
    [[nodiscard]] static bool isEmoji(std::string_view character);

private:
    OllamaClient client_;
    std::string model_;
    OllamaClient::Timeout wait_;
};

} // namespace keepery
