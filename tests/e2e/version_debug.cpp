// version, the hidden --debug switch and debuglv against the simulator.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "machine.h"
#include "text.h"

namespace {

using krt_test::has;
using krt_test::SimMachine;

TEST(Version, ShowsVersionsWithoutAskingTheController)
{
    const std::string version = "CLI Version: 1.0.0.1041\nSupport Firmware Version: 1.0.x.1039 above\n";
    SimMachine m("raid");
    m.krtsim({"log", "clear"});
    auto r = m.cli({"version"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, version);
    EXPECT_FALSE(has(m.krtsim({"log"}).out, "cdw12=0x000012"));

    r = m.cli({"version", "-i", "x"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out.substr(0, 55), "Description:Show API, CLI and support firmware version\n");
    EXPECT_EQ(m.cli({"version", "--bogus"}).status, 1);
}

TEST(Debug, SwitchShowsRequestWordsInTheSameSession)
{
    SimMachine m("degraded");
    std::string out = m.shell("--debug\ninfo -o vd -i 1\n--debug -a disable\ninfo -o vd -i 0\n");
    EXPECT_TRUE(has(out,
                    "Set debug mode to enable\n"
                    "CDW[0] : 0x000000e2\nCDW[12]: 0x000000e2\nCDW[14]: 0x00000001\ncmd_status: 0x0\n"
                    "VD ID:               1\n"));
    EXPECT_TRUE(has(out,
                    "Sector Size:         512 bytes\n"
                    "CDW[0] : 0x000000e2\nCDW[12]: 0x000002e3\nCDW[14]: 0x00000001\ncmd_status: 0x0\n"
                    "BGA progress:        Initializing is running in 10%\n"));
    EXPECT_TRUE(has(out, "Set debug mode to disable\nVD ID:               0\n"));

    // Any action word but "disable" switches it on; the last one counts, up
    // to an unknown option.
    const std::pair<std::vector<std::string>, const char *> switches[] = {
        {{"--debug", "-a", "off"}, "enable"},
        {{"--debug", "-a", "Disable"}, "disable"},
        {{"--debug", "--action=ENABLE"}, "enable"},
        {{"--debug", "-a", "disable", "-a", "enable"}, "enable"},
        {{"--debug", "-a", "disable", "-z", "-a", "enable"}, "disable"},
    };
    for (const auto &[words, mode] : switches) {
        const auto r = m.cli(words);
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(r.out, std::string("Set debug mode to ") + mode + "\n") << testing::PrintToString(words);
    }
    EXPECT_EQ(m.cli({"--debug", "-h"}).out, "Description\n");

    // A reply without our signature is described.
    m.krtsim({"fault", "add", "--opcode", "0xe2", "--cdw12", "0x000000e1", "--bad-sign"});
    out = m.shell("--debug\ninfo -o pd -i 2\n");
    EXPECT_TRUE(has(out,
                    "CDW[14]: 0x00000002\nreceive sign get 0x42 0x41 0x44 expect 0x4b 0x52 0x54\n"
                    "\nUnable to get info of PD\n"));
}

TEST(DebugLevel, SendsTheTargetAndReportsTheOutcome)
{
    SimMachine m("raid");
    struct Case {
        std::vector<std::string> words;
        int status;
        std::string out;
    };
    const Case cases[] = {
        {{"debuglv", "-t", "1"}, 0, "debug level access to error only success.\n"},
        {{"debuglv", "--target=0"}, 0, "debug level access to normal success.\n"},
        {{"debuglv", "-t", "2"}, 0, "-t : invalid target '2'.\n"},
        {{"debuglv", "-t", "0", "-t", "1"}, 1, "Duplicated option specified.\n"},
        {{"debuglv", "x"}, 0, "debuglv: option -t is required\n"},
    };
    for (const Case &c : cases) {
        const auto r = m.cli(c.words);
        EXPECT_EQ(r.status, c.status) << testing::PrintToString(c.words);
        EXPECT_EQ(r.out, c.out) << testing::PrintToString(c.words);
    }
    // The target rides in CDW12's unit.
    EXPECT_TRUE(has(m.shell("--debug\ndebuglv -t 1\n"),
                    "CDW[0] : 0x000000e2\nCDW[12]: 0x000112e0\ndebug level access to error only success.\n"));

    m.krtsim({"fault", "add", "--opcode", "0xe2", "--cdw12", "0x000012e0", "--status", "0x0107"});
    const auto r = m.cli({"debuglv", "-t", "0"});
    EXPECT_EQ(r.status, 0x07);  // the status 0x107 as an exit status
    EXPECT_EQ(r.out, "Invalid Firmware Image (Status Code: 0x107)\ndebug level access to normal failed.\n");

    // A status whose low byte is 0 would read as success: it exits 1.
    m.krtsim({"fault", "clear"});
    m.krtsim({"fault", "add", "--opcode", "0xe2", "--cdw12", "0x000112e0", "--status", "0x0100"});
    const auto failed = m.cli({"debuglv", "-t", "1"});
    EXPECT_EQ(failed.status, 1);
    EXPECT_TRUE(has(failed.out, "(Status Code: 0x100)\ndebug level access to error only failed.\n"));
}

}  // namespace
