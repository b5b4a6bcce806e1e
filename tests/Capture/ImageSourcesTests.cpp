#include "Capture/ImageSources.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace keepery;

namespace {

std::vector<std::string> candidates(std::string_view address) {
    std::vector<std::string> texts;
    for (const WebAddress& candidate : ImageSources::candidates(*WebAddress::parse(address))) {
        texts.push_back(candidate.text());
    }
    return texts;
}

} // namespace

TEST(ImageSources, SizedCopiesOnTheMediaServersLeadToTheirOriginals) {
    const std::string thumb = "https://thumb.wikimedia.org/p/q/thumb/a/ab/Name.jpg/640px-Name.jpg";
    EXPECT_EQ(candidates(thumb),
              (std::vector<std::string>{"https://upload.wikimedia.org/p/q/a/ab/Name.jpg", thumb}));
    // Host in any case, empty segments, a query, plain http and percent-encoded names.
    const std::string upload =
        "http://UPLOAD.Wikimedia.org//wikipedia/commons/thumb/9/90/Caf%C3%A9.svg/250px-Caf%C3%A9.svg.png?x=1";
    EXPECT_EQ(candidates(upload),
              (std::vector<std::string>{"https://upload.wikimedia.org/wikipedia/commons/9/90/Caf%C3%A9.svg",
                                        upload}));
    EXPECT_EQ(candidates("https://thumb.wikimedia.org/thumb/Name.jpg/640px-Name.jpg"),
              (std::vector<std::string>{"https://upload.wikimedia.org/Name.jpg",
                                        "https://thumb.wikimedia.org/thumb/Name.jpg/640px-Name.jpg"}));
}

TEST(ImageSources, EveryOtherAddressIsTriedAlone) {
    for (const char* address : {
             "https://example.com/p/thumb/a/ab/Name.jpg/640px-Name.jpg",     // another host
             "https://upload.wikimedia.org.example.com/thumb/a/b/c.jpg",     // compared exactly
             "https://thumb.wikimedia.org/p/q/thumb/640px-Name.jpg",         // one segment after "thumb"
             "https://upload.wikimedia.org/wikipedia/commons/a/ab/Name.jpg", // already an original
             "/wikipedia/commons/thumb/a/ab/Name.jpg/640px-Name.jpg",        // no host
         }) {
        EXPECT_EQ(candidates(address), std::vector<std::string>{address});
    }
}
