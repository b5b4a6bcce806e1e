#include "Organizing/Organizer.h"

#include "Understanding/VectorMath.h"

#include <algorithm>
#include <limits>
#include <stdexcept>

namespace keepery {

Organizer::Organizer(Thresholds thresholds_) : thresholds(thresholds_) {
    if (thresholds.maxFormMembers < 0) {
        throw std::invalid_argument("Organizer: maxFormMembers must not be negative");
    }
}

Organizer::Decision Organizer::decide(std::span<const float> vector, std::span<const Group> collections,
                                      std::span<const Candidate> unsorted) const {
    const Group* chosen = nullptr;
    float chosenSimilarity = 0;
    for (const Group& group : collections) {
        const auto center = VectorMath::centroid(group.members);
        if (!center) {
            continue;
        }
        // Starting below every number lets a NaN similarity (from a broken vector) never be the best.
        float best = -std::numeric_limits<float>::infinity();
        for (const auto member : group.members) {
            best = std::max(best, VectorMath::dot(vector, member));
        }
        const float similarity = VectorMath::dot(vector, *center);
        if (similarity >= thresholds.join && best >= thresholds.form &&
            (chosen == nullptr || similarity > chosenSimilarity)) {
            chosen = &group;
            chosenSimilarity = similarity;
        }
    }
    if (chosen != nullptr) {
        return Decision::join(chosen->id, chosenSimilarity);
    }

    struct Kept {
        std::string_view id;
        float similarity;
    };
    std::vector<Kept> kept;
    for (const Candidate& candidate : unsorted) {
        const float similarity = VectorMath::dot(vector, candidate.vector);
        if (similarity >= thresholds.form) {
            kept.push_back({candidate.id, similarity});
        }
    }
    std::stable_sort(kept.begin(), kept.end(),
                     [](const Kept& a, const Kept& b) { return a.similarity > b.similarity; });
    const auto most = static_cast<std::size_t>(std::max<std::int64_t>(thresholds.maxFormMembers, 0));
    if (kept.size() > most) {
        kept.resize(most);
    }
    if (kept.empty()) {
        return Decision::stayUnsorted();
    }

    std::vector<std::string> with;
    with.reserve(kept.size());
    for (const Kept& k : kept) {
        with.emplace_back(k.id);
    }
    return Decision::form(std::move(with), kept.front().similarity);
}

bool Organizer::shouldRename(const CaptureCollection& collection) {
    if (collection.userNamed) {
        return false;
    }
    // count ≥ max(2, 2 × namedAtCount), written with a halving so that no stored count can overflow.
    return collection.count >= 2 && collection.count / 2 >= collection.namedAtCount;
}

} // namespace keepery
