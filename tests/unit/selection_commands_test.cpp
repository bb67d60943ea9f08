// adapter and info called as the dispatcher calls them, in one-base
// numbering, which is never on at run time.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "commands/commands.h"
#include "stream_capture.h"
#include "text.h"
#include "util/state.h"

namespace {

struct Case {
    std::vector<std::string> words;
    int status;
    std::string out;  // adapter: the whole output; info: a part of it
    int current = 0;  // the controller chosen afterwards
};

// Runs every case through the entry's handler, as controller 0 of two.
void runOneBased(const Command_Info &entry, std::vector<Case> cases, bool whole)
{
    g_oneBaseMode = 1;
    dbg_enable = whole ? 0 : 1;  // info shows its request words
    gNumAdaptersFound = 2;
    for (Case &c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.words));
        gCurrentAdapter = 0;
        std::vector<char *> argv;
        for (std::string &word : c.words)
            argv.push_back(word.data());
        argv.push_back(nullptr);
        krt_unit::StreamCapture out;
        EXPECT_EQ(entry.cmdHandler(static_cast<int>(c.words.size()), argv.data(), &entry), c.status);
        if (whole)
            EXPECT_EQ(out.text(), c.out);
        else
            EXPECT_TRUE(krt_test::has(out.text(), c.out)) << out.text();
        EXPECT_EQ(gCurrentAdapter, c.current);
    }
    g_oneBaseMode = 0;
    dbg_enable = 0;
    gNumAdaptersFound = 0;
    gCurrentAdapter = 0;
}

TEST(Selection, AdapterIdInOneBaseMode)
{
    const std::string announce = "NVMe Controller 1 set as default CLI commands refers to.\n";
    runOneBased({"adapter", 8, doAdapter, adapter_help, adapter_sh, &adapter_options},
                {
                    {{"adapter", "-i", "0"}, 1, "-i : invalid NVMe Controller id '0'\n"},
                    {{"adapter", "-i", "3"}, 1, "NVMe Controller 3 does not exist.\n"},
                    {{"adapter", "-i", "x1"}, 1, "-i : invalid NVMe Controller id 'x1'\n"},
                    {{"adapter", "-i", "2"},
                     0,
                     "NVMe Controller 2 set as default CLI commands refers to.\n"
                     "Updated current NVMe Controller id : 0\n",
                     1},
                    {{"adapter", "-i", "1", "-i", "1"}, 1, announce + announce + "Duplicated option specified.\n"},
                },
                true);
}

// The request words show which ids reach the controller: disk and VD ids
// are shifted, namespace ids are not.
TEST(InfoOneBase, DiskIdsAreShiftedAndNamespaceIdsAreNot)
{
    runOneBased({"info", 5, doSInfo, info_help, info_sh, &info_options},
                {
                    {{"info", "-o", "pd", "-i", "1"}, 0, "CDW[12]: 0x000000e1\nCDW[14]: 0x00000000\n"},
                    {{"info", "-o", "vd", "-i", "3"}, 0, "CDW[12]: 0x000000e2\nCDW[14]: 0x00000002\n"},
                    // Below the first number: reported, then asked for all the same.
                    {{"info", "-o", "pd", "-i", "0"},
                     0,
                     "-i : id should be a number\nCDW[0] : 0x000000e2\nCDW[12]: 0x000000e1\nCDW[14]: 0x0000ffff\n"},
                    {{"info", "-o", "vd", "-i", "0"}, 0, "CDW[12]: 0x000000e2\nCDW[14]: 0x0000ffff\n"},
                    // 256 counted from one is id 255: every disk.
                    {{"info", "-o", "pd", "-i", "256"}, 0, "\nNo physical disk is found.\n"},
                    {{"info", "-o", "ns", "-t", "vd", "-v", "3"}, 0, "CDW[12]: 0x000301e5\nCDW[14]: 0x00000000\n"},
                },
                false);
}

}  // namespace
