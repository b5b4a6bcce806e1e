#include "support/SampleLibrary.h"

#include "Store/LibraryStore.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <string_view>

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
    const char* name;
    const char* emoji;
    CaptureKind kind;
    std::vector<std::string> words; // the first two are its typical query
    std::vector<std::string> tags;
    std::vector<std::string> apps;
    std::vector<std::string> hosts;
};

const std::vector<Topic>& topics() {
    static const std::vector<Topic> all{
        {"Tokyo Ramen",
         "\U0001F35C",
         CaptureKind::food,
         {"tokyo", "ramen", "noodles", "broth", "shoyu", "tonkotsu", "shibuya", "izakaya", "menu", "queue"},
         {"ramen", "tokyo", "japan", "noodles", "food"},
         {"Safari", "Maps"},
         {"tabelog.com", "www.timeout.com"}},
        {"Rust Async",
         "\U0001F980",
         CaptureKind::code,
         {"rust", "async", "tokio", "future", "await", "executor", "borrow", "lifetime", "crate", "runtime"},
         {"rust", "async", "programming", "concurrency"},
         {"Visual Studio Code", "Terminal", "Safari"},
         {"docs.rs", "github.com"}},
        {"React Hooks",
         "\u269B\uFE0F",
         CaptureKind::code,
         {"react", "hooks", "state", "effect", "component", "render", "props", "context", "reducer", "memo"},
         {"react", "javascript", "frontend", "hooks"},
         {"Visual Studio Code", "Google Chrome"},
         {"react.dev", "stackoverflow.com"}},
        {"Kitchen Renovation",
         "\U0001F528",
         CaptureKind::design,
         {"kitchen", "tiles", "cabinets", "countertop", "renovation", "plumbing", "backsplash", "oak",
          "quote", "contractor"},
         {"kitchen", "renovation", "home", "interior"},
         {"Safari", "Pinterest"},
         {"www.houzz.com", "www.ikea.com"}},
        {"Lisbon Trip",
         "\u2708\uFE0F",
         CaptureKind::place,
         {"lisbon", "flight", "hotel", "tram", "alfama", "booking", "itinerary", "pastel", "nata", "sintra"},
         {"travel", "lisbon", "portugal", "trip"},
         {"Safari", "Mail"},
         {"www.booking.com", "www.tripadvisor.com"}},
        {"Invoices",
         "\U0001F9FE",
         CaptureKind::receipt,
         {"invoice", "payment", "total", "due", "vat", "amount", "account", "billing", "receipt", "order"},
         {"invoice", "finance", "billing"},
         {"Mail", "Preview"},
         {"dashboard.stripe.com", "www.paypal.com"}},
        {"Machine Learning",
         "\U0001F9E0",
         CaptureKind::article,
         {"embedding", "vector", "transformer", "attention", "training", "dataset", "gradient", "inference",
          "benchmark", "model"},
         {"machine learning", "ai", "research", "papers"},
         {"Safari", "Preview"},
         {"arxiv.org", "huggingface.co"}},
        {"Sourdough",
         "\U0001F35E",
         CaptureKind::recipe,
         {"sourdough", "starter", "flour", "hydration", "levain", "crumb", "bake", "oven", "proof", "dough"},
         {"baking", "bread", "sourdough", "recipe"},
         {"Safari"},
         {"www.kingarthurbaking.com", "www.seriouseats.com"}},
        {"Marathon Training",
         "\U0001F3C3",
         CaptureKind::data,
         {"marathon", "pace", "running", "interval", "tempo", "heart", "rate", "mileage", "shoes",
          "recovery"},
         {"running", "fitness", "marathon", "training"},
         {"Strava", "Safari"},
         {"www.strava.com"}},
        {"Design System",
         "\U0001F3A8",
         CaptureKind::design,
         {"typography", "palette", "button", "spacing", "token", "component", "grid", "icon", "contrast",
          "figma"},
         {"design", "ui", "design system", "typography"},
         {"Figma", "Safari"},
         {"www.figma.com", "m3.material.io"}},
        {"Launch Chat",
         "\U0001F4AC",
         CaptureKind::chat,
         {"standup", "deploy", "release", "blocker", "review", "sprint", "ticket", "meeting", "launch",
          "feedback"},
         {"work", "team", "release"},
         {"Slack", "Messages"},
         {}},
        {"Office Chairs",
         "\U0001FA91",
         CaptureKind::product,
         {"chair", "ergonomic", "desk", "monitor", "lumbar", "armrest", "mesh", "standing", "price",
          "review"},
         {"office", "furniture", "shopping"},
         {"Safari"},
         {"www.amazon.com", "www.hermanmiller.com"}},
        {"Quarterly Numbers",
         "\U0001F4CA",
         CaptureKind::spreadsheet,
         {"revenue", "quarter", "forecast", "margin", "budget", "churn", "growth", "pipeline", "expenses",
          "headcount"},
         {"finance", "report", "planning"},
         {"Numbers", "Microsoft Excel"},
         {}},
        {"Vegetable Garden",
         "\U0001F331",
         CaptureKind::idea,
         {"tomato", "basil", "seedling", "compost", "raised", "bed", "watering", "soil", "harvest", "mulch"},
         {"garden", "plants", "outdoors"},
         {"Safari", "Notes"},
         {"www.rhs.org.uk"}},
        {"Espresso",
         "\u2615",
         CaptureKind::food,
         {"espresso", "grinder", "roast", "pour", "latte", "beans", "crema", "filter", "kettle", "barista"},
         {"coffee", "espresso", "brewing"},
         {"Safari", "YouTube"},
         {"www.home-barista.com", "www.youtube.com"}},
        {"Linux Kernel",
         "\U0001F427",
         CaptureKind::code,
         {"kernel", "scheduler", "syscall", "driver", "patch", "module", "ebpf", "cgroup", "namespace",
          "interrupt"},
         {"linux", "kernel", "systems"},
         {"Terminal", "Safari"},
         {"lwn.net", "lore.kernel.org"}},
        {"Photography",
         "\U0001F4F7",
         CaptureKind::social,
         {"aperture", "lens", "portrait", "exposure", "shutter", "iso", "bokeh", "tripod", "lightroom",
          "sunset"},
         {"photography", "camera", "inspiration"},
         {"Safari", "Instagram"},
         {"www.instagram.com", "500px.com"}},
        {"Wedding Planning",
         "\U0001F48D",
         CaptureKind::document,
         {"venue", "guest", "catering", "invitation", "florist", "rsvp", "dress", "photographer", "seating",
          "cake"},
         {"wedding", "planning", "family"},
         {"Pages", "Mail"},
         {"www.theknot.com"}},
        {"Apartment Hunt",
         "\U0001F3E0",
         CaptureKind::place,
         {"apartment", "rent", "lease", "deposit", "bedroom", "landlord", "neighborhood", "viewing",
          "balcony", "commute"},
         {"housing", "apartment", "moving"},
         {"Safari", "Maps"},
         {"www.zillow.com", "www.rightmove.co.uk"}},
        {"Climate Reading",
         "\U0001F30D",
         CaptureKind::article,
         {"climate", "emissions", "carbon", "warming", "solar", "wind", "policy", "renewable", "grid",
          "heatwave"},
         {"climate", "energy", "news"},
         {"Safari"},
         {"www.theguardian.com", "www.nature.com"}},
        {"Guitar Lessons",
         "\U0001F3B8",
         CaptureKind::video,
         {"guitar", "chord", "riff", "tab", "fingerstyle", "capo", "strum", "scale", "tuning", "amp"},
         {"music", "guitar", "lessons"},
         {"YouTube", "Safari"},
         {"www.youtube.com", "www.ultimate-guitar.com"}},
        {"Tax Return",
         "\U0001F4C1",
         CaptureKind::document,
         {"tax", "return", "deduction", "filing", "refund", "income", "pension", "advisor", "allowance",
          "deadline"},
         {"tax", "finance", "paperwork"},
         {"Preview", "Safari"},
         {"www.gov.uk", "www.irs.gov"}},
        {"Board Games",
         "\U0001F3B2",
         CaptureKind::product,
         {"boardgame", "dice", "meeple", "strategy", "expansion", "deck", "tokens", "cooperative", "campaign",
          "rulebook"},
         {"games", "hobby", "shopping"},
         {"Safari"},
         {"boardgamegeek.com"}},
        {"Podcast Notes",
         "\U0001F399\uFE0F",
         CaptureKind::idea,
         {"podcast", "episode", "interview", "guest", "transcript", "host", "recording", "microphone",
          "listener", "season"},
         {"podcasts", "ideas", "listening"},
         {"Podcasts", "Notes"},
         {"overcast.fm"}},
        {"Skincare",
         "\U0001F9F4",
         CaptureKind::product,
         {"serum", "sunscreen", "retinol", "moisturizer", "cleanser", "niacinamide", "spf", "toner", "acne",
          "routine"},
         {"skincare", "beauty", "shopping"},
         {"Safari", "Instagram"},
         {"www.sephora.com"}},
        {"Kubernetes",
         "\U0001F6A2",
         CaptureKind::code,
         {"kubernetes", "pod", "deployment", "cluster", "helm", "ingress", "node", "container", "yaml",
          "replica"},
         {"kubernetes", "devops", "infrastructure"},
         {"Terminal", "Google Chrome"},
         {"kubernetes.io"}},
        {"Bird Watching",
         "\U0001F426",
         CaptureKind::social,
         {"heron", "warbler", "binoculars", "migration", "wetland", "sparrow", "owl", "nest", "feeder",
          "species"},
         {"birds", "nature", "outdoors"},
         {"Safari"},
         {"ebird.org", "www.audubon.org"}},
        {"Mortgage",
         "\U0001F3E6",
         CaptureKind::spreadsheet,
         {"mortgage", "interest", "loan", "principal", "amortization", "lender", "refinance", "escrow",
          "fixed", "term"},
         {"mortgage", "finance", "housing"},
         {"Numbers", "Safari"},
         {"www.bankrate.com"}},
        {"Paris Museums",
         "\U0001F5BC\uFE0F",
         CaptureKind::place,
         {"louvre", "orsay", "museum", "exhibition", "paris", "ticket", "gallery", "painting", "sculpture",
          "monet"},
         {"art", "paris", "museums", "travel"},
         {"Safari", "Maps"},
         {"www.louvre.fr", "www.musee-orsay.fr"}},
        {"Newsletters",
         "\U0001F4E7",
         CaptureKind::email,
         {"newsletter", "subscribe", "digest", "weekly", "issue", "inbox", "sponsor", "announcement",
          "unsubscribe", "roundup"},
         {"email", "newsletters", "reading"},
         {"Mail"},
         {}},
        {"Vegan Cooking",
         "\U0001F957",
         CaptureKind::recipe,
         {"vegan", "chickpea", "lentil", "tofu", "curry", "salad", "tahini", "roasted", "quinoa", "spinach"},
         {"vegan", "recipe", "cooking", "dinner"},
         {"Safari"},
         {"minimalistbaker.com", "www.bbcgoodfood.com"}},
        {"Chess Openings",
         "\u265F\uFE0F",
         CaptureKind::idea,
         {"chess", "opening", "gambit", "endgame", "rook", "bishop", "knight", "sicilian", "tactics",
          "puzzle"},
         {"chess", "games", "strategy"},
         {"Safari"},
         {"lichess.org", "www.chess.com"}},
        {"Cycling Routes",
         "\U0001F6B4",
         CaptureKind::place,
         {"cycling", "route", "gravel", "climb", "elevation", "bikepacking", "trail", "saddle", "gpx",
          "descent"},
         {"cycling", "outdoors", "routes"},
         {"Safari", "Maps"},
         {"www.komoot.com", "ridewithgps.com"}},
        {"Database Tuning",
         "\U0001F5C4\uFE0F",
         CaptureKind::code,
         {"sqlite", "index", "query", "planner", "vacuum", "wal", "transaction", "btree", "latency",
          "checkpoint"},
         {"databases", "performance", "sql"},
         {"Terminal", "Safari"},
         {"sqlite.org", "use-the-index-luke.com"}},
        {"Baby Gear",
         "\U0001F37C",
         CaptureKind::product,
         {"stroller", "carseat", "crib", "diaper", "bottle", "carrier", "onesie", "nursery", "pacifier",
          "bassinet"},
         {"baby", "family", "shopping"},
         {"Safari"},
         {"www.babylist.com"}},
        {"Interview Prep",
         "\U0001F4BC",
         CaptureKind::document,
         {"resume", "interview", "salary", "offer", "recruiter", "portfolio", "negotiation", "cover",
          "letter", "role"},
         {"career", "jobs", "interviews"},
         {"Pages", "Safari"},
         {"www.linkedin.com", "www.levels.fyi"}},
    };
    return all;
}

// The words every screen is full of, most common first (sampled with a Zipf-like skew).
const std::vector<std::string>& commonWords() {
    static const std::vector<std::string> words{
        "the",         "of",        "and",        "to",      "in",       "is",         "you",
        "that",        "it",        "for",        "on",      "with",     "as",         "are",
        "this",        "be",        "at",         "or",      "by",       "from",       "your",
        "we",          "can",       "more",       "all",     "new",      "will",       "about",
        "if",          "my",        "has",        "but",     "our",      "one",        "other",
        "do",          "no",        "time",       "they",    "he",       "up",         "may",
        "what",        "which",     "their",      "out",     "use",      "any",        "there",
        "see",         "only",      "so",         "his",     "when",     "here",       "who",
        "also",        "now",       "help",       "get",     "view",     "online",     "first",
        "been",        "would",     "how",        "were",    "me",       "services",   "some",
        "these",       "click",     "its",        "like",    "service",  "than",       "find",
        "price",       "date",      "back",       "top",     "people",   "had",        "list",
        "name",        "just",      "over",       "state",   "year",     "day",        "into",
        "email",       "two",       "health",     "world",   "re",       "next",       "used",
        "go",          "work",      "last",       "most",    "products", "music",      "buy",
        "data",        "make",      "them",       "should",  "product",  "system",     "post",
        "her",         "city",      "add",        "policy",  "number",   "such",       "please",
        "available",   "copyright", "support",    "message", "after",    "best",       "software",
        "then",        "jan",       "good",       "video",   "well",     "where",      "info",
        "rights",      "public",    "books",      "high",    "school",   "through",    "each",
        "links",       "she",       "review",     "years",   "order",    "very",       "privacy",
        "book",        "items",     "company",    "read",    "group",    "need",       "many",
        "user",        "said",      "does",       "set",     "under",    "general",    "research",
        "university",  "january",   "mail",       "full",    "map",      "reviews",    "program",
        "life",        "know",      "games",      "way",     "days",     "management", "part",
        "could",       "great",     "united",     "hotel",   "real",     "item",       "international",
        "center",      "ebay",      "must",       "store",   "travel",   "comments",   "made",
        "development", "report",    "off",        "member",  "details",  "line",       "terms",
        "before",      "hotels",    "did",        "send",    "right",    "type",       "because",
        "local",       "those",     "using",      "results", "office",   "education",  "national",
        "car",         "design",    "take",       "posted",  "internet", "address",    "community",
        "within",      "states",    "area",       "want",    "phone",    "shipping",   "reserved",
        "subject",     "between",   "forum",      "family",  "long",     "based",      "code",
        "show",        "even",      "black",      "check",   "special",  "prices",     "website",
        "index",       "being",     "women",      "much",    "sign",     "file",       "link",
        "open",        "today",     "technology", "south",   "case",     "project",    "same",
        "pages",       "version",   "section",    "own",     "found",    "sports",     "house",
        "related",     "security",  "both",       "county",  "american", "photo",      "game",
        "members",     "power",     "while",      "care",    "network",  "down",       "computer",
        "systems",     "three",     "total",      "place",   "end",      "following",  "download"};
    return words;
}

// A long tail of rare words (names, codes, jargon), made from syllables so the index holds tens of
// thousands of distinct terms as a real library does.
std::string rareWord(std::uint64_t n) {
    static constexpr std::array<std::string_view, 32> syllables{
        "ka",  "lo",  "mi",  "ren", "tas", "vo",  "qui", "zen", "bar", "dul", "fi",
        "gor", "hap", "jun", "kel", "mor", "nex", "pla", "ru",  "sil", "tor", "um",
        "vex", "wal", "yor", "zu",  "bri", "cla", "dro", "fen", "gri", "sto"};
    std::string word;
    const std::size_t length = 2 + n % 3;
    for (std::size_t i = 0; i < length; ++i) {
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
        const auto& common = commonWords();
        const double u = random.uniform();
        return common[static_cast<std::size_t>(u * u * u * static_cast<double>(common.size()))];
    }
    if (roll < 0.84) {
        return random.pick(topicWords);
    }
    if (roll < 0.97) {
        return rareWord(random.below(40000));
    }
    return std::to_string(random.below(10000));
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

std::vector<float> unitGaussian(Random& random, std::size_t dimensions) {
    std::vector<float> v(dimensions);
    double norm = 0;
    for (float& x : v) {
        x = static_cast<float>(random.normal());
        norm += static_cast<double>(x) * x;
    }
    const auto scale = static_cast<float>(1.0 / std::sqrt(norm));
    for (float& x : v) {
        x *= scale;
    }
    return v;
}

// `centre` moved by noise of the given spread, back at unit length.
std::vector<float> near(Random& random, const float* centre, std::size_t dimensions, double spread) {
    std::vector<float> v(dimensions);
    const double perElement = spread / std::sqrt(static_cast<double>(dimensions));
    double norm = 0;
    for (std::size_t i = 0; i < dimensions; ++i) {
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
    const std::size_t d = options_.dimensions;
    collectionLooks_.reserve(count * d);
    collectionMeanings_.reserve(count * d);
    for (std::size_t c = 0; c < count; ++c) {
        Random random(mix(options_.seed, 0xC011EC7ULL + c));
        const std::size_t topic = c % topics().size();
        const Topic& t = topics()[topic];
        CaptureCollection collection;
        collection.id = uuid(random.next(), random.next());
        collection.name = c < topics().size() ? t.name : std::string(t.name) + " " + capitalized(rareWord(c));
        collection.emoji = t.emoji;
        collection.createdAt = options_.firstKeptAt + random.uniform() * 86400.0;
        collection.updatedAt = collection.createdAt + random.uniform() * options_.secondsBetween *
                                                          static_cast<double>(options_.captures);
        collection.namedAtCount = static_cast<std::int64_t>(3 + random.below(40));
        collection.userNamed = random.chance(0.05);
        collections_.push_back(std::move(collection));
        collectionTopics_.push_back(topic);
        // A collection lies near its topic in both spaces, and apart from its topic's other collections.
        for (VectorSpace space : VectorSpace::allCases()) {
            const std::vector<float> centre = topicVector(topic, space);
            const std::vector<float> own = near(random, centre.data(), d, 0.8);
            auto& into = space == VectorSpace::look ? collectionLooks_ : collectionMeanings_;
            into.insert(into.end(), own.begin(), own.end());
        }
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
    return unitGaussian(random, options_.dimensions);
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

    const bool unsorted = random.chance(options_.unsortedShare);
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
        kept.app = "Photos";
        kept.windowTitle = "IMG_" + std::to_string(1000 + random.below(9000));
        kept.width = 4032;
        kept.height = 3024;
        kept.takenAt = kept.createdAt - random.uniform() * 86400.0 * 365.0;
        kept.imageFile = "media/" + kept.id + ".jpg";
        kept.originalFile = "media/" + kept.id + "-original.heic";
        break;
    case CaptureMedia::video:
        kept.app = "Videos";
        kept.windowTitle = "VID_" + std::to_string(1000 + random.below(9000));
        kept.width = 1920;
        kept.height = 1080;
        kept.duration = 5.0 + random.uniform() * 300.0;
        kept.takenAt = kept.createdAt - random.uniform() * 86400.0 * 30.0;
        kept.imageFile = "media/" + kept.id + ".jpg";
        kept.originalFile = "media/" + kept.id + "-original.mov";
        break;
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
    for (const std::string& s : sentences) {
        sample.ocrText += (sample.ocrText.empty() ? "" : " ") + s;
    }
    if (kept.media == CaptureMedia::video) {
        sample.transcript = sentence(random, words, 30 + random.below(120));
    }

    SampleCapture::Description& description = sample.description;
    description.title = capitalized(words[0]) + " " + words[1] + " " + words[2];
    description.summary = sentence(random, words, 15 + random.below(20));
    description.kind = topic.kind;
    std::vector<std::string> tags = topic.tags;
    tags.resize(std::min(tags.size(), 2 + random.below(4)));
    description.tags = tags;
    for (std::size_t i = 0, n = std::min<std::size_t>(random.below(4), sentences.size()); i < n; ++i) {
        description.highlights.push_back(sentences[random.below(sentences.size())]);
    }
    if (kept.url && random.chance(0.5)) {
        description.links.push_back(*kept.url);
    }

    const std::size_t d = options_.dimensions;
    const float* look = unsorted ? nullptr : collectionLooks_.data() + collection * d;
    const float* meaning = unsorted ? nullptr : collectionMeanings_.data() + collection * d;
    std::vector<float> topicLook;
    std::vector<float> topicMeaning;
    if (unsorted) {
        topicLook = topicVector(sample.topic, VectorSpace::look);
        topicMeaning = topicVector(sample.topic, VectorSpace::meaning);
        look = topicLook.data();
        meaning = topicMeaning.data();
    }
    sample.look = near(random, look, d, unsorted ? 1.6 : 0.9);
    sample.meaning = near(random, meaning, d, unsorted ? 1.4 : 0.7);

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
