// adapter and --debug called as the dispatcher calls them, for what cannot
// be seen from outside: one-base numbering and the debug switch's state.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "commands/commands.h"
#include "stream_capture.h"
#include "util/state.h"

namespace {

const Command_Info kAdapter{"adapter", 8, doAdapter, adapter_help, adapter_sh};
const Command_Info kDebug{"--debug", 8, doDebug, debug_help, debug_sh};

// Runs a command on the given words (word 0 its name); what it printed.
std::string run(const Command_Info &entry, std::vector<std::string> words, int expectedStatus)
{
    std::vector<char *> argv;
    for (std::string &word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    krt_unit::StreamCapture out;
    EXPECT_EQ(entry.cmdHandler(static_cast<int>(words.size()), argv.data(), &entry), expectedStatus)
        << testing::PrintToString(words);
    return out.text();
}

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
    for (const Case &c : cases) {
        gCurrentAdapter = 0;
        EXPECT_EQ(run(kAdapter, c.words, c.status), c.out);
        EXPECT_EQ(gCurrentAdapter, c.current) << testing::PrintToString(c.words);
    }
    g_oneBaseMode = 0;
    gNumAdaptersFound = 0;
    gCurrentAdapter = 0;
}

TEST(Selection, DebugSwitch)
{
    struct Case {
        std::vector<std::string> words;
        int before, after;
        std::string out;
    };
    const Case cases[] = {
        {{"--debug"}, 0, 1, "Set debug mode to enable\n"},
        {{"--debug", "-a", "Disable"}, 1, 0, "Set debug mode to disable\n"},
        {{"--debug", "--action=ENABLE"}, 0, 1, "Set debug mode to enable\n"},
        {{"--debug", "-a", "disable", "-a", "enable"}, 0, 1, "Set debug mode to enable\n"},
        // Applied when the unknown option is met.
        {{"--debug", "-a", "disable", "-z", "-a", "enable"}, 1, 0, "Set debug mode to disable\n"},
        {{"--debug", "-h"}, 0, 0, "Description\n"},
    };
    for (const Case &c : cases) {
        dbg_enable = c.before;
        EXPECT_EQ(run(kDebug, c.words, 0), c.out);
        EXPECT_EQ(dbg_enable, c.after) << testing::PrintToString(c.words);
    }
    dbg_enable = 0;
}

}  // namespace
