// adapter on a machine with three controllers: choosing by number, PCI
// location and SUBNQN, and the listing.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "machine.h"
#include "text.h"

namespace {

using krt_test::has;
using krt_test::SimMachine;

const std::string kList = "Total number of NVMe Controllers: 3\nCurrent default NVMe Controller ID for CLI commands: ";
const std::string kSet = " set as default CLI commands refers to.\n";

TEST(AdapterSelection, OptionsAndTheirResults)
{
    SimMachine m("multi");
    struct Case {
        std::vector<std::string> words;
        int status;
        std::string out;
    };
    const Case cases[] = {
        {{"adapter", "--list"}, 0, kList + "0\n"},
        {{"2", "adapter", "--list"}, 0, kList + "2\n"},
        // -i on the same line is announced but --list wins.
        {{"adapter", "-i", "1", "--list"}, 0, "NVMe Controller 1" + kSet + kList + "0\n"},
        {{"adapter", "-i", "1"}, 0, "NVMe Controller 1" + kSet + "Updated current NVMe Controller id : 0\n"},
        {{"adapter", "-i", "3"}, 1, "NVMe Controller 3 does not exist.\n"},
        {{"adapter", "-i", "-1"}, 1, "-i : invalid NVMe Controller id '-1'\n"},
        {{"adapter", "-l"}, 1, ""},
        {{"adapter", "-l", "x"}, 0, kList + "0\n"},
        {{"adapter", "-s", "99:00.00"}, 0, "99:00.00 is not NVMe Controller\n"},
        {{"adapter", "-s", "12:00.00:0000"}, 1, "-s : length of slot should be no more than 12 characters\n"},
        // Quotes do not count towards the twelve characters.
        {{"adapter", "-s", "\"0000:03:00.0\"", "-i", "0"},
         1,
         "NVMe Controller 0" + kSet + "argument '-s' not allow use in the same time.\n"},
        {{"adapter", "-n", "nqn.none"}, 1, "SUBNQN \"nqn.none\" does not exist.\n"},
        {{"adapter", "-n", std::string(256, 'q')}, 1, "-n : length of subnqn should be no more than 255 characters\n"},
    };
    for (const Case &c : cases) {
        const auto r = m.cli(c.words);
        EXPECT_EQ(r.status, c.status) << testing::PrintToString(c.words);
        EXPECT_EQ(r.out, c.out) << testing::PrintToString(c.words);
    }
    const auto bare = m.cli({"adapter"});
    EXPECT_EQ(bare.status, 1);
    EXPECT_EQ(bare.out.substr(0, 74), "Description:Default NVMe Controller the following CLI commands refers to.\n");
}

TEST(AdapterSelection, LaterCommandsAddressTheChosenController)
{
    SimMachine m("multi");
    std::string out = m.shell("adapter -i 2\ninfo -o pd -i 0\nadapter --list\n");
    EXPECT_TRUE(has(out, "NVMe Controller 2" + kSet + "Updated current NVMe Controller id : 0\n"));
    EXPECT_TRUE(has(out, "Importable:                      No\n"));  // the JBOF controller's disk
    EXPECT_TRUE(has(out, kList + "2\n"));

    out = m.shell("adapter -s 11:00.00\ninfo -o vd\n");
    EXPECT_TRUE(has(out, "Updated current NVMe Controller id : 1\n"));
    EXPECT_TRUE(has(out, "Name:                fast\n"));

    // A request that failed leaves the choice alone.
    out = m.shell("adapter -i 1\nadapter -i 7\nadapter --list\n");
    EXPECT_TRUE(has(out, "NVMe Controller 7 does not exist.\n"));
    EXPECT_TRUE(has(out, kList + "1\n"));

    // By SUBNQN, the text as the controller's block shows it.
    const std::string nqn = "nqn.2026-01.io.krt:nvme-controller:serial:KRT0000100", subnqn = nqn + "2       0";
    auto r = m.cli({"adapter", "-n", subnqn});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "Updated current NVMe Controller id : 2\n");

    // Quotes around the text are dropped.
    EXPECT_EQ(m.cli({"adapter", "-n", "\"" + nqn + "1       0\""}).out, "Updated current NVMe Controller id : 1\n");

    r = m.cli({"adapter", "-n", subnqn, "-n", subnqn});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "Duplicated option specified.\n");
}

}  // namespace
