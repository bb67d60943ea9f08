// smart, identify and passthru against simulated machines: the table of runs
// (tests/cases/health.cases), then a forwarded command's data in a file and
// the request words shown with debugging on.
#include <gtest/gtest.h>

#include <string>

#include "cases.h"
#include "machine.h"
#include "text.h"

namespace {

TEST(Health, Cases)
{
    krt_test::runCaseFile("health.cases");
}

TEST(Health, DataIntoAFileAndDebugWords)
{
    const krt_test::SimMachine m("raid");
    m.cli({"passthru", "-i", "3", "-o", "6", "--cdw10=1", "--data-len=4096", "-r", "read", "--outputfile", "id_data"});
    const std::string data = krt_test::readFile(m.dir().file("id_data"));
    ASSERT_EQ(data.size(), 4096u);
    EXPECT_EQ(data.substr(24, 15), "NVMe SSD 1920GB");  // the disk's own model

    EXPECT_TRUE(
        krt_test::has(m.shell("--debug\nsmart -o ns -n 1\n"),
                      "CDW[0]  : 0x000000e2\nCDW[9]  : 0x00000200\nCDW[10] : 0x0000007f\nCDW[12] : 0x000108e5\n"));
}

}  // namespace
