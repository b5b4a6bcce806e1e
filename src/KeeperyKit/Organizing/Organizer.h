#pragma once

#include "Model/Capture.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace keepery {

// Decides where a newly embedded capture belongs: into an existing collection it is close to as a whole
// and through at least one member, into a new collection with the unsorted captures close to it, or
// nowhere. Similarities are dot products of 32-bit vectors (`VectorMath::dot`), compared with the
// thresholds in 32-bit floats, equality included. A value; pure; any thread.
struct Organizer {
    // How close is close enough. The values given here are the ones every front end runs with.
    struct Thresholds {
        // The least similarity to a collection's centroid for joining it.
        float join = 0.8f;
        // The least similarity to the best member for joining, and to each companion for forming.
        float form = 0.79f;
        // The most unsorted companions a new collection forms with; never negative.
        std::int64_t maxFormMembers = 12;

        bool operator==(const Thresholds&) const = default;
    };

    // One existing collection as the organizer sees it. `members` are views of the member captures'
    // vectors (rows of a contiguous array, or owned vectors); the caller keeps them alive for `decide`.
    struct Group {
        std::string id;
        std::vector<std::span<const float>> members;
    };

    // Another unsorted capture: views of its id and its vector, alive for the duration of `decide`.
    struct Candidate {
        std::string_view id;
        std::span<const float> vector;
    };

    // Where the capture goes. Exactly one of three cases, compared by case and payload.
    struct Decision {
        // Into collection `collectionID`; `similarity` is the capture's similarity to its centroid.
        struct Join {
            std::string collectionID;
            float similarity = 0;
            bool operator==(const Join&) const = default;
        };
        // A new collection of the capture and the unsorted captures `with` (most similar first);
        // `similarity` is the highest of theirs.
        struct Form {
            std::vector<std::string> with;
            float similarity = 0;
            bool operator==(const Form&) const = default;
        };
        struct StayUnsorted {
            bool operator==(const StayUnsorted&) const = default;
        };

        std::variant<Join, Form, StayUnsorted> value;

        [[nodiscard]] static Decision join(std::string collectionID, float similarity) {
            return {Join{std::move(collectionID), similarity}};
        }
        [[nodiscard]] static Decision form(std::vector<std::string> with, float similarity) {
            return {Form{std::move(with), similarity}};
        }
        [[nodiscard]] static Decision stayUnsorted() { return {StayUnsorted{}}; }

        // The payload of that case, or null when the decision is another case.
        [[nodiscard]] const Join* asJoin() const { return std::get_if<Join>(&value); }
        [[nodiscard]] const Form* asForm() const { return std::get_if<Form>(&value); }
        [[nodiscard]] bool isStayUnsorted() const { return std::holds_alternative<StayUnsorted>(value); }

        bool operator==(const Decision&) const = default;
    };

    // Set only through the constructors, which check them.
    Thresholds thresholds;

    // The thresholds the engine runs with.
    Organizer() = default;

    // Throws std::invalid_argument when `thresholds.maxFormMembers` is negative.
    explicit Organizer(Thresholds thresholds);

    // Join the candidate group of the highest centroid similarity (the first on ties), where a candidate
    // has centroid similarity ≥ `thresholds.join` and best member similarity ≥ `thresholds.form` (groups
    // without members are skipped); otherwise form with the unsorted captures at ≥ `thresholds.form`, most
    // similar first (stable on ties), at most `maxFormMembers` of them; otherwise stay unsorted. Ids are
    // not looked at: an entry of `unsorted` that is the capture itself counts like any other.
    [[nodiscard]] Decision decide(std::span<const float> vector, std::span<const Group> collections,
                                  std::span<const Candidate> unsorted) const;

    // True when the collection's automatic name is out of date: never for a user-named collection,
    // otherwise once `count` ≥ max(2, 2 × `namedAtCount`).
    [[nodiscard]] static bool shouldRename(const CaptureCollection& collection);

    bool operator==(const Organizer&) const = default;
};

} // namespace keepery
