#include "nodevik/util/assertion.h"

#include <gtest/gtest.h>

#include <csignal>

#include "tests/support/childprocess.h"

TEST(Assertion, PrintsUnitAndExpressionThenAborts) {
    const ChildResult result = run_in_child([] { NODEVIK_ASSERT("nodevik/candriver", 1 == 2); });
    EXPECT_EQ(result.err, "nodevik/candriver: Assertion failed: 1 == 2\n");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.signal, SIGABRT);
}

TEST(Assertion, KeepsWhatWasPrintedBefore) {
    const ChildResult result = run_in_child([] {
        std::printf("before");
        NODEVIK_ASSERT_AS("nodevik/canopen", false, "&driver != __null");
    });
    EXPECT_EQ(result.out, "before");
    EXPECT_EQ(result.err, "nodevik/canopen: Assertion failed: &driver != __null\n");
}

TEST(Assertion, LetsATrueConditionPass) {
    const ChildResult result = run_in_child([] { NODEVIK_ASSERT("nodevik/candriver", 2 == 2); });
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
}
