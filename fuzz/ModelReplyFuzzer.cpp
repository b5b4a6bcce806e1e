// Feeds the readers of the model service's replies what a broken or hostile service could send. The first
// byte picks the reader, the second the HTTP status, the rest is the body: "12{...}" is an embed reply
// for one input with status 200. Readers may throw their documented failures and nothing else; an embedding
// that comes back is always one finite vector per input.
#include "Organizing/CollectionNamer.h"
#include "Understanding/Describer.h"
#include "Understanding/OllamaReplies.h"

#include "FuzzRule.h"
#include <cmath>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

using namespace keepery;

namespace {

using fuzzing::require;

int status(char selector) {
    switch (selector) {
    case '2':
        return 200;
    case '4':
        return 404;
    case '5':
        return 500;
    default:
        return static_cast<unsigned char>(selector) % 2 == 0 ? 204 : 302;
    }
}

void read(char reader, int code, std::string_view body) {
    switch (reader) {
    case 'v':
        (void)OllamaReplies::version(code, body);
        return;
    case 't':
        (void)OllamaReplies::models(code, body);
        return;
    case 'g':
        (void)OllamaReplies::response(code, body);
        return;
    case 'p':
        (void)OllamaReplies::pullLine(body);
        return;
    case 'd':
        (void)Describer::parse(body, "text on the screen https://example.com", "https://example.com/a",
                               "Window");
        return;
    case 'n':
        (void)CollectionNamer::parse(body);
        return;
    default: {
        // '0' to '3' ask for that many vectors.
        const std::size_t count = static_cast<unsigned char>(reader - '0') % 4;
        const auto vectors = OllamaReplies::embeddings(code, body, count);
        require(vectors.size() == count, "one vector per input");
        for (const auto& vector : vectors) {
            for (const float x : vector) {
                require(std::isfinite(x), "a vector is finite");
            }
        }
    }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) {
        return 0;
    }
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    try {
        read(input[0], status(input[1]), input.substr(2));
    } catch (const OllamaClient::Failure&) {
    } catch (const Describer::ParseError&) {
    }
    return 0;
}
