#include "Organizing/Organizer.h"

#include "Understanding/VectorMath.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <stdexcept>

namespace keepery {

namespace {

// `VectorMath::centroid` over views, so that members held in one contiguous array are not copied into
// vectors of their own first: the same dimension rule (the first member's), the same skipping, the same
// summation order, then `VectorMath::unit`.
std::optional<std::vector<float>> centroid(std::span<const std::span<const float>> members) {
    if (members.empty()) {
        return std::nullopt;
    }
    const std::size_t dimension = members.front().size();
    std::vector<float> sum(dimension, 0.0f);
    for (const auto member : members) {
        if (member.size() != dimension) {
            continue;
        }
        for (std::size_t i = 0; i < dimension; ++i) {
            sum[i] += member[i];
        }
    }
    return VectorMath::unit(sum);
}

} // namespace

Organizer::Organizer(float joinThreshold_, float formThreshold_, std::int64_t maxFormMembers_)
    : joinThreshold(joinThreshold_), formThreshold(formThreshold_), maxFormMembers(maxFormMembers_) {
    if (maxFormMembers_ < 0) {
        throw std::invalid_argument("Organizer: maxFormMembers must not be negative");
    }
}

Organizer::Decision Organizer::decide(std::span<const float> vector, std::span<const Group> collections,
                                      std::span<const Candidate> unsorted) const {
    const Group* chosen = nullptr;
    float chosenSimilarity = 0;
    for (const Group& group : collections) {
        const auto center = centroid(group.members);
        if (!center) {
            continue;
        }
        // Starting below every number lets a NaN similarity (from a broken vector) never be the best.
        float best = -std::numeric_limits<float>::infinity();
        for (const auto member : group.members) {
            best = std::max(best, VectorMath::dot(vector, member));
        }
        const float similarity = VectorMath::dot(vector, *center);
        if (similarity >= joinThreshold && best >= formThreshold &&
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
        if (similarity >= formThreshold) {
            kept.push_back({candidate.id, similarity});
        }
    }
    std::stable_sort(kept.begin(), kept.end(),
                     [](const Kept& a, const Kept& b) { return a.similarity > b.similarity; });
    const auto most = static_cast<std::size_t>(std::max<std::int64_t>(maxFormMembers, 0));
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
