// A program that asks for single-threaded recognition runs with OMP_THREAD_LIMIT=1 from its start,
// whatever its parent gave it, and keeps its arguments.
#include "Platform/ReadingEnvironment.h"

#include "support/ChildProcess.h"

#include <gtest/gtest.h>

using keepery::testing::runChild;

TEST(ReadingEnvironment, AProgramRestartsItselfWithOneRecognitionThread) {
    const std::string program = KEEPERY_READING_ENVIRONMENT_PATH;
    EXPECT_EQ(runChild(program, {"a", "b c"}, {}, "").out, "1 a b c\n");
    EXPECT_EQ(runChild(program, {"x"}, {{"OMP_THREAD_LIMIT", "4"}}, "").out, "1 x\n");
    EXPECT_EQ(runChild(program, {}, {{"OMP_THREAD_LIMIT", "1"}}, "").out, "1\n");
}
