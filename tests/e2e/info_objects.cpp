// info against simulated machines: the table tests/cases/info.cases.
#include <gtest/gtest.h>

#include "cases.h"

TEST(Info, Cases)
{
    krt_test::runCaseFile("info.cases");
}
