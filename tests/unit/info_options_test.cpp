// info's id arithmetic in one-base numbering, seen through the request words
// that debug output shows (one-base numbering is never on at run time).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "commands/commands.h"
#include "stream_capture.h"
#include "text.h"
#include "util/state.h"

namespace {

TEST(InfoOneBase, DiskIdsAreShiftedAndNamespaceIdsAreNot)
{
    static const Command_Info entry{"info", 5, doSInfo, info_help, info_sh};
    struct Case {
        std::vector<std::string> words;
        std::string requestWords;
    };
    const Case cases[] = {
        {{"info", "-o", "pd", "-i", "1"}, "CDW[12]: 0x000000e1\nCDW[14]: 0x00000000\n"},
        {{"info", "-o", "vd", "-i", "3"}, "CDW[12]: 0x000000e2\nCDW[14]: 0x00000002\n"},
        // Below the first number: reported, then asked for all the same.
        {{"info", "-o", "pd", "-i", "0"},
         "-i : id should be a number\nCDW[0] : 0x000000e2\nCDW[12]: 0x000000e1\nCDW[14]: 0x0000ffff\n"},
        {{"info", "-o", "vd", "-i", "0"}, "CDW[12]: 0x000000e2\nCDW[14]: 0x0000ffff\n"},
        // 256 counted from one is id 255: every disk.
        {{"info", "-o", "pd", "-i", "256"}, "\nNo physical disk is found.\n"},
        {{"info", "-o", "ns", "-t", "vd", "-v", "3"}, "CDW[12]: 0x000301e5\nCDW[14]: 0x00000000\n"},
    };
    g_oneBaseMode = 1;
    dbg_enable = 1;
    for (Case c : cases) {
        std::vector<char *> argv;
        for (std::string &word : c.words)
            argv.push_back(word.data());
        argv.push_back(nullptr);
        krt_unit::StreamCapture out;
        EXPECT_EQ(doSInfo(static_cast<int>(c.words.size()), argv.data(), &entry), 0);
        EXPECT_TRUE(krt_test::has(out.text(), c.requestWords)) << testing::PrintToString(c.words) << out.text();
    }
    g_oneBaseMode = 0;
    dbg_enable = 0;
}

}  // namespace
