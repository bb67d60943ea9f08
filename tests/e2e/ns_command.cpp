// ns against simulated machines: the table tests/cases/ns.cases.
#include <gtest/gtest.h>

#include "cases.h"

TEST(Ns, Cases)
{
    krt_test::runCaseFile("ns.cases");
}
