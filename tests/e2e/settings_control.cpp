// get, set, import, reset, led and inverse against simulated machines: the
// option rules of each, the words they send, and what the machine does.
#include <gtest/gtest.h>

#include "cases.h"

namespace {

TEST(Settings, Cases)
{
    krt_test::runCaseFile("settings.cases");
}

TEST(Control, Cases)
{
    krt_test::runCaseFile("control.cases");
}

}  // namespace
