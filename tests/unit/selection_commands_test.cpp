// adapter called as the dispatcher calls it, in one-base numbering, which is
// never on at run time.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "commands/commands.h"
#include "stream_capture.h"
#include "util/state.h"

namespace {

TEST(Selection, AdapterIdInOneBaseMode)
{
    struct Case {
        std::vector<std::string> words;
        int status;
        std::string out;
        int current;
    };
    const std::string announce = "NVMe Controller 1 set as default CLI commands refers to.\n";
    const Case cases[] = {
        {{"adapter", "-i", "0"}, 1, "-i : invalid NVMe Controller id '0'\n", 0},
        {{"adapter", "-i", "3"}, 1, "NVMe Controller 3 does not exist.\n", 0},
        {{"adapter", "-i", "x1"}, 1, "-i : invalid NVMe Controller id 'x1'\n", 0},
        {{"adapter", "-i", "2"},
         0,
         "NVMe Controller 2 set as default CLI commands refers to.\nUpdated current NVMe Controller id : 0\n",
         1},
        {{"adapter", "-i", "1", "-i", "1"}, 1, announce + announce + "Duplicated option specified.\n", 0},
    };
    g_oneBaseMode = 1;
    gNumAdaptersFound = 2;
    static const Command_Info entry{"adapter", 8, doAdapter, adapter_help, adapter_sh};
    for (Case c : cases) {
        gCurrentAdapter = 0;
        std::vector<char *> argv;
        for (std::string &word : c.words)
            argv.push_back(word.data());
        argv.push_back(nullptr);
        krt_unit::StreamCapture out;
        EXPECT_EQ(doAdapter(static_cast<int>(c.words.size()), argv.data(), &entry), c.status);
        EXPECT_EQ(out.text(), c.out);
        EXPECT_EQ(gCurrentAdapter, c.current) << testing::PrintToString(c.words);
    }
    g_oneBaseMode = 0;
    gNumAdaptersFound = 0;
    gCurrentAdapter = 0;
}

}  // namespace
