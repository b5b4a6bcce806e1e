#include "Presentation/SkyPhase.h"

#include <gtest/gtest.h>

using namespace keepery;

TEST(SkyPhase, ChangesExactlyAtEachBoundaryMinute) {
    struct Case {
        int hour;
        int minute;
        SkyPhase phase;
    };
    for (const Case& c : {
             Case{0, 0, SkyPhase::night},       Case{4, 59, SkyPhase::night},  Case{5, 0, SkyPhase::dawn},
             Case{6, 59, SkyPhase::dawn},       Case{7, 0, SkyPhase::morning}, Case{9, 59, SkyPhase::morning},
             Case{10, 0, SkyPhase::day},        Case{16, 59, SkyPhase::day},   Case{17, 0, SkyPhase::golden},
             Case{18, 59, SkyPhase::golden},    Case{19, 0, SkyPhase::dusk},   Case{20, 59, SkyPhase::dusk},
             Case{21, 0, SkyPhase::night},      Case{23, 59, SkyPhase::night}, Case{24, 0, SkyPhase::night},
             Case{-1, 0, SkyPhase::night},      Case{30, 0, SkyPhase::night},  Case{9, 60, SkyPhase::day},
             Case{12, -150, SkyPhase::morning},
         }) {
        EXPECT_EQ(SkyPhase::at(c.hour, c.minute), c.phase) << c.hour << ":" << c.minute;
    }
}
