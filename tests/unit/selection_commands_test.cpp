// adapter and --debug called as the dispatcher calls them, for what cannot
// be seen from outside: one-base numbering and the debug switch's state.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "util/state.h"

namespace {

struct Result {
    int status;
    std::string out;
};

// Runs a handler on the given words (word 0 the command) with the output
// stream captured and the shared state as a test sets it.
Result run(CommandHandler handler, const Command_Info &entry, std::vector<std::string> words)
{
    std::vector<char *> argv;
    for (std::string &word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);

    char *data = nullptr;
    std::size_t size = 0;
    std::FILE *saved = stream;
    stream = open_memstream(&data, &size);
    const int status = handler(static_cast<int>(words.size()), argv.data(), &entry);
    std::fclose(stream);
    stream = saved;
    Result result{status, std::string(data, size)};
    std::free(data);
    return result;
}

const Command_Info kAdapter{"adapter", 8, doAdapter, adapter_help, adapter_sh};
const Command_Info kDebug{"--debug", 8, doDebug, debug_help, debug_sh};

class Selection : public ::testing::Test {
  protected:
    void SetUp() override
    {
        g_oneBaseMode = 0;
        gCurrentAdapter = 0;
        gNumAdaptersFound = 2;
        dbg_enable = 0;
    }
    void TearDown() override
    {
        g_oneBaseMode = 0;
        gCurrentAdapter = 0;
        gNumAdaptersFound = 0;
        dbg_enable = 0;
    }
};

std::string helpOf(const Command_Info &entry)
{
    return std::string("Description") + entry.cmdShortHelp + "\n" + entry.cmdHelp;
}

TEST_F(Selection, AdapterIdInOneBaseMode)
{
    g_oneBaseMode = 1;
    struct Case {
        std::vector<std::string> words;
        int status;
        std::string out;
        int current;
    };
    const Case cases[] = {
        {{"adapter", "-i", "0"}, 1, "-i : invalid NVMe Controller id '0'\n", 0},
        {{"adapter", "-i", "3"}, 1, "NVMe Controller 3 does not exist.\n", 0},
        {{"adapter", "-i", "x1"}, 1, "-i : invalid NVMe Controller id 'x1'\n", 0},
        {{"adapter", "-i", "2"},
         0,
         "NVMe Controller 2 set as default CLI commands refers to.\n"
         "Updated current NVMe Controller id : 0\n",
         1},
        {{"adapter", "-i", "1", "-i", "1"},
         1,
         "NVMe Controller 1 set as default CLI commands refers to.\n"
         "NVMe Controller 1 set as default CLI commands refers to.\n"
         "Duplicated option specified.\n",
         0},
    };
    for (const Case &c : cases) {
        gCurrentAdapter = 0;
        const Result r = run(doAdapter, kAdapter, c.words);
        EXPECT_EQ(r.status, c.status) << c.words[2];
        EXPECT_EQ(r.out, c.out);
        EXPECT_EQ(gCurrentAdapter, c.current);
    }
}

TEST_F(Selection, AdapterUsageErrors)
{
    Result r = run(doAdapter, kAdapter, {"adapter", "-h"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, helpOf(kAdapter));

    r = run(doAdapter, kAdapter, {"adapter", "-x"});
    EXPECT_EQ(r.status, 1);

    // Twelve characters pass the length check (quotes do not count).
    r = run(doAdapter, kAdapter, {"adapter", "-s", "\"0000:03:00.0\"", "-i", "0"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out,
              "NVMe Controller 0 set as default CLI commands refers to.\n"
              "argument '-s' not allow use in the same time.\n");

    r = run(doAdapter, kAdapter, {"adapter", "-n", std::string(256, 'q')});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "-n : length of subnqn should be no more than 255 characters\n");
}

TEST_F(Selection, DebugSwitch)
{
    struct Case {
        std::vector<std::string> words;
        int enabled;
    };
    const Case cases[] = {
        {{"--debug"}, 1},
        {{"--debug", "-a", "Disable"}, 0},
        {{"--debug", "-a", "off"}, 1},
        {{"--debug", "--action=ENABLE"}, 1},
        {{"--debug", "-a", "disable", "-a", "enable"}, 1},
        {{"--debug", "-a", "disable", "-z", "-a", "enable"}, 0},  // applied at the unknown option
    };
    for (const Case &c : cases) {
        dbg_enable = c.enabled ? 0 : 1;
        const Result r = run(doDebug, kDebug, c.words);
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(r.out, std::string("Set debug mode to ") + (c.enabled ? "enable" : "disable") + "\n");
        EXPECT_EQ(dbg_enable, c.enabled);
    }

    dbg_enable = 0;
    const Result r = run(doDebug, kDebug, {"--debug", "-h"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "Description\n");
    EXPECT_EQ(dbg_enable, 0);
}

}  // namespace
