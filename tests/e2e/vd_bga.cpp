// vd, init, mp and rebuild against simulated machines: the table
// tests/cases/vd.cases, and the request words the shell's debug mode shows
// for them and for ns.
#include <gtest/gtest.h>

#include "cases.h"

TEST(Vd, Cases)
{
    krt_test::runCaseFile("vd.cases");
}

TEST(Vd, DebugShowsTheWordsOfEachRequest)
{
    const krt_test::SimMachine m("raid");
    const std::string out = m.shell(
        "--debug\nvd -a create -r 1 -d 6,7 -b 256 -n 1\nrebuild -i 1 -d 6\nmp -a stop -i 0\nns -a share -i 3 -s no -c "
        "1\n");
    EXPECT_EQ(out.substr(out.find("Set debug")),
              "Set debug mode to enable\n"
              "CDW[0] : 0x000000e2\nCDW[12]: 0x010103e2\nCDW[13]: 0x000000c0\nCDW[14]: 0x00000001\ncmd success\n"
              "CDW[0] : 0x000000e2\nCDW[12]: 0x000007e3\nCDW[14]: 0x00060001\n"
              "LD is functional (Status Code: 0x736)\ncmd failed.\n"
              "CDW[0] : 0x000000e2\nCDW[12]: 0x000002e3\ncmd_status: 0x0\n"
              "CDW[0] : 0x000000e2\nCDW[12]: 0x000000e5\ncmd_status: 0x0\n"
              "CDW[0] : 0x000000e2\nCDW[12]: 0x000303e5\nCDW[14]: 0x00000100\n\nSet sharing NS successfully\n");
}
