#include "support/SampleLibrary.h"

#include "Platform/Text.h"
#include "Store/LibraryStore.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace keepery::testing {
namespace {

// SplitMix64: tiny, fast and the same on every platform (unlike the standard distributions).
class Random {
public:
    explicit Random(std::uint64_t seed) : state_(seed) {}
    std::uint64_t next() {
        std::uint64_t z = (state_ += 0x9E3779B97F4A7C15ULL);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
        return z ^ (z >> 31);
    }
    // In [0, 1).
    double uniform() { return static_cast<double>(next() >> 11) * 0x1.0p-53; }
    std::size_t below(std::size_t n) { return n == 0 ? 0 : static_cast<std::size_t>(next() % n); }
    bool chance(double p) { return uniform() < p; }
    // Standard normal, by Box–Muller.
    double normal() {
        if (spare_) {
            return *std::exchange(spare_, std::nullopt);
        }
        const double u = 1.0 - uniform();
        const double v = uniform();
        const double r = std::sqrt(-2.0 * std::log(u));
        spare_ = r * std::sin(6.283185307179586 * v);
        return r * std::cos(6.283185307179586 * v);
    }
    template <typename T>
    const T& pick(const std::vector<T>& items) {
        return items[below(items.size())];
    }

private:
    std::uint64_t state_;
    std::optional<double> spare_;
};

std::uint64_t mix(std::uint64_t a, std::uint64_t b) {
    return Random(a * 0x9E3779B97F4A7C15ULL ^ (b + 0x632BE59BD9B4E019ULL)).next();
}

struct Topic {
    std::string name;
    std::string emoji;
    CaptureKind kind;
    std::vector<std::string> words; // the first two are its typical query
    std::vector<std::string> tags;
    std::vector<std::string> apps;
    std::vector<std::string> hosts;
};

// The words a library is made of, read once from the data file beside this one: topics, the words every
// screen is full of (most common first) and syllables for rare words.
struct SampleWords {
    std::vector<Topic> topics;
    std::vector<std::string> commonWords;
    std::vector<std::string> syllables;
};

const SampleWords& sampleWords() {
    static const SampleWords loaded = [] {
        std::ifstream in(KEEPERY_SAMPLE_LIBRARY_DATA);
        if (!in) {
            throw std::runtime_error("cannot read " KEEPERY_SAMPLE_LIBRARY_DATA);
        }
        const nlohmann::json json = nlohmann::json::parse(in);
        SampleWords v{{}, json.at("commonWords"), json.at("syllables")};
        for (const nlohmann::json& t : json.at("topics")) {
            v.topics.push_back({t.at("name"), t.at("emoji"),
                                CaptureKind::parse(t.at("kind").get<std::string>()), t.at("words"),
                                t.at("tags"), t.at("apps"), t.at("hosts")});
        }
        return v;
    }();
    return loaded;
}

const std::vector<Topic>& topics() {
    return sampleWords().topics;
}

// A long tail of rare words (names, codes, jargon), made from syllables so the index holds tens of
// thousands of distinct terms as a real library does.
std::string rareWord(std::uint64_t n) {
    const std::vector<std::string>& syllables = sampleWords().syllables;
    std::string word;
    for (std::size_t i = 0, length = 2 + n % 3; i < length; ++i) {
        word += syllables[n % syllables.size()];
        n /= syllables.size();
    }
    return word;
}

std::string capitalized(std::string word) {
    if (!word.empty() && word[0] >= 'a' && word[0] <= 'z') {
        word[0] = static_cast<char>(word[0] - 'a' + 'A');
    }
    return word;
}

// A word of running text: mostly common words (skewed to the most frequent), some topic words, some rare.
std::string textWord(Random& random, const std::vector<std::string>& topicWords) {
    const double roll = random.uniform();
    if (roll < 0.72) {
        const auto& common = sampleWords().commonWords;
        const double u = random.uniform();
        return common[static_cast<std::size_t>(u * u * u * static_cast<double>(common.size()))];
    }
    if (roll < 0.84) {
        return random.pick(topicWords);
    }
    return roll < 0.97 ? rareWord(random.below(40000)) : std::to_string(random.below(10000));
}

std::string sentence(Random& random, const std::vector<std::string>& topicWords, std::size_t words) {
    std::string text;
    for (std::size_t i = 0; i < words; ++i) {
        std::string word = textWord(random, topicWords);
        text += i == 0 ? capitalized(std::move(word)) : " " + word;
    }
    return text + ".";
}

std::string uuid(std::uint64_t high, std::uint64_t low) {
    char buffer[40];
    std::snprintf(buffer, sizeof buffer, "%08x-%04x-4%03x-%04x-%012llx", static_cast<unsigned>(high >> 32),
                  static_cast<unsigned>((high >> 16) & 0xFFFF), static_cast<unsigned>(high & 0xFFF),
                  static_cast<unsigned>(0x8000 | ((low >> 48) & 0x3FFF)),
                  static_cast<unsigned long long>(low & 0xFFFFFFFFFFFFULL));
    return buffer;
}

// `centre` moved by noise of the given spread, at unit length.
std::vector<float> near(Random& random, const std::vector<float>& centre, double spread) {
    std::vector<float> v(centre.size());
    const double perElement = spread / std::sqrt(static_cast<double>(centre.size()));
    double norm = 0;
    for (std::size_t i = 0; i < v.size(); ++i) {
        v[i] = static_cast<float>(centre[i] + perElement * random.normal());
        norm += static_cast<double>(v[i]) * v[i];
    }
    const auto scale = static_cast<float>(1.0 / std::sqrt(norm));
    for (float& x : v) {
        x *= scale;
    }
    return v;
}

} // namespace

SampleLibrary::SampleLibrary(SampleLibraryOptions options) : options_(std::move(options)) {
    const std::size_t count =
        options_.collections > 0 ? options_.collections : std::max<std::size_t>(1, options_.captures / 200);
    for (std::size_t c = 0; c < count; ++c) {
        Random random(mix(options_.seed, 0xC011EC7ULL + c));
        const std::size_t topic = c % topics().size();
        const Topic& t = topics()[topic];
        CaptureCollection collection;
        collection.id = uuid(random.next(), random.next());
        collection.name = c < topics().size() ? t.name : t.name + " " + capitalized(rareWord(c));
        collection.emoji = t.emoji;
        collection.createdAt = options_.firstKeptAt + random.uniform() * 86400.0;
        collection.updatedAt = collection.createdAt + random.uniform() * options_.secondsBetween *
                                                          static_cast<double>(options_.captures);
        collection.namedAtCount = static_cast<std::int64_t>(3 + random.below(40));
        collection.userNamed = random.chance(0.05);
        collections_.push_back(std::move(collection));
        collectionTopics_.push_back(topic);
        // A collection lies near its topic in both spaces, and apart from its topic's other collections.
        collectionLooks_.push_back(near(random, topicVector(topic, VectorSpace::look), 0.8));
        collectionMeanings_.push_back(near(random, topicVector(topic, VectorSpace::meaning), 0.8));
    }
}

std::size_t SampleLibrary::topicCount() const {
    return topics().size();
}

std::string SampleLibrary::topicName(std::size_t topic) const {
    return topics()[topic % topics().size()].name;
}

std::string SampleLibrary::topicQuery(std::size_t topic) const {
    const Topic& t = topics()[topic % topics().size()];
    return t.words[0] + " " + t.words[1];
}

std::vector<float> SampleLibrary::topicVector(std::size_t topic, VectorSpace space) const {
    Random random(mix(options_.seed, 0x70B1C000ULL + topic * 2 + static_cast<std::size_t>(space.value)));
    // Noise of the centre's own size around zero: a direction drawn evenly from the sphere.
    const auto dimensions = static_cast<double>(options_.dimensions);
    return near(random, std::vector<float>(options_.dimensions), std::sqrt(dimensions));
}

std::string SampleLibrary::captureID(std::size_t index) const {
    Random random(mix(options_.seed, index));
    return uuid(random.next(), random.next());
}

SampleCapture SampleLibrary::capture(std::size_t index) const {
    Random random(mix(options_.seed, index));
    SampleCapture sample;
    Capture& kept = sample.kept;
    kept.id = uuid(random.next(), random.next());
    kept.createdAt =
        options_.firstKeptAt + options_.secondsBetween * (static_cast<double>(index) + random.uniform());

    const bool unsorted = random.chance(0.1);
    const std::size_t collection = random.below(collections_.size());
    sample.topic = unsorted ? random.below(topics().size()) : collectionTopics_[collection];
    if (!unsorted) {
        sample.collectionID = collections_[collection].id;
    }
    const Topic& topic = topics()[sample.topic];
    // Each capture uses a handful of its topic's words, as one page of a subject does.
    std::vector<std::string> words = topic.words;
    for (std::size_t i = words.size() - 1; i > 0; --i) {
        std::swap(words[i], words[random.below(i + 1)]);
    }
    words.resize(3 + random.below(4));

    const double mediaRoll = random.uniform();
    kept.media = mediaRoll < 0.85   ? CaptureMedia::screen
                 : mediaRoll < 0.95 ? CaptureMedia::photo
                                    : CaptureMedia::video;
    switch (kept.media) {
    case CaptureMedia::screen:
        kept.app = random.pick(topic.apps);
        kept.windowTitle = capitalized(words[0]) + " " + words[1] + " \u2014 " + kept.app;
        if (!topic.hosts.empty() &&
            (kept.app == "Safari" || kept.app == "Google Chrome" || random.chance(0.2))) {
            kept.bundleID = kept.app == "Safari" ? "com.apple.Safari" : "com.google.Chrome";
            kept.url = "https://" + random.pick(topic.hosts) + "/" + words[0] + "/" + words[1] + "-" +
                       std::to_string(random.below(100000));
        }
        kept.width = random.chance(0.5) ? 2880 : 1440;
        kept.height = kept.width == 2880 ? 1800 : 900;
        break;
    case CaptureMedia::photo:
    case CaptureMedia::video: {
        const bool photo = kept.media == CaptureMedia::photo;
        kept.app = photo ? "Photos" : "Videos";
        kept.windowTitle = (photo ? "IMG_" : "VID_") + std::to_string(1000 + random.below(9000));
        kept.width = photo ? 4032 : 1920;
        kept.height = photo ? 3024 : 1080;
        if (!photo) {
            kept.duration = 5.0 + random.uniform() * 300.0;
        }
        kept.takenAt = kept.createdAt - random.uniform() * 86400.0 * (photo ? 365.0 : 30.0);
        kept.imageFile = "media/" + kept.id + ".jpg";
        kept.originalFile = "media/" + kept.id + (photo ? "-original.heic" : "-original.mov");
        break;
    }
    }

    // Recognised text: a few dozen to several hundred words; photos hold little text.
    const double spread = random.uniform();
    std::size_t textWords = static_cast<std::size_t>(40.0 * std::pow(20.0, spread));
    if (kept.media != CaptureMedia::screen) {
        textWords /= 8;
    }
    std::vector<std::string> sentences;
    for (std::size_t written = 0; written < textWords;) {
        const std::size_t n = 6 + random.below(14);
        sentences.push_back(sentence(random, words, n));
        written += n;
    }
    sample.ocrText = Text::joined(sentences, " ");
    if (kept.media == CaptureMedia::video) {
        sample.transcript = sentence(random, words, 30 + random.below(120));
    }

    SampleCapture::Description& description = sample.description;
    description.title = capitalized(words[0]) + " " + words[1] + " " + words[2];
    description.summary = sentence(random, words, 15 + random.below(20));
    description.kind = topic.kind;
    description.tags = topic.tags;
    description.tags.resize(std::min(description.tags.size(), 2 + random.below(4)));
    for (std::size_t i = 0, n = std::min<std::size_t>(random.below(4), sentences.size()); i < n; ++i) {
        description.highlights.push_back(sentences[random.below(sentences.size())]);
    }
    if (kept.url && random.chance(0.5)) {
        description.links.push_back(*kept.url);
    }

    const auto centre = [&](VectorSpace space) {
        const auto& directions = space == VectorSpace::look ? collectionLooks_ : collectionMeanings_;
        return unsorted ? topicVector(sample.topic, space) : directions[collection];
    };
    sample.look = near(random, centre(VectorSpace::look), unsorted ? 1.6 : 0.9);
    sample.meaning = near(random, centre(VectorSpace::meaning), unsorted ? 1.4 : 0.7);

    sample.favorite = random.chance(0.03);
    if (random.chance(0.02)) {
        sample.note = "Remember the " + words[0] + " " + words[1];
    }
    return sample;
}

void SampleLibrary::writeCollections(LibraryStore& store) const {
    for (const CaptureCollection& collection : collections_) {
        store.insertCollection(collection);
    }
}

void SampleLibrary::writeCaptures(LibraryStore& store, std::size_t first, std::size_t count) const {
    const std::size_t end = std::min(size(), first + count);
    for (std::size_t i = first; i < end; ++i) {
        const SampleCapture sample = capture(i);
        const std::string& id = sample.kept.id;
        store.insert(sample.kept);
        store.setRead(id, sample.ocrText, sample.transcript);
        store.setDescribed(id, sample.description);
        store.setEmbedding(id, options_.embeddingModel,
                           {{VectorSpace::look, sample.look}, {VectorSpace::meaning, sample.meaning}});
        store.setCollection(id, sample.collectionID);
        if (sample.favorite) {
            store.setFavorite(id, true);
        }
        if (sample.note) {
            store.setNote(id, sample.note);
        }
    }
}

void SampleLibrary::write(LibraryStore& store) const {
    writeCollections(store);
    writeCaptures(store, 0, size());
}

} // namespace keepery::testing
