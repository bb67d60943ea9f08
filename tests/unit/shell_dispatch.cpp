#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "shell/shell.h"
#include "stream_capture.h"
#include "util/state.h"

namespace {

class ShellDispatch : public testing::Test {
  protected:
    void SetUp() override
    {
        pCmdTable = generalCmdTableV1;
        cmdTableSize = generalCmdTableV1Size();
    }
    void TearDown() override
    {
        pCmdTable = generalCmdTableV1;
        cmdTableSize = generalCmdTableV1Size();
    }

    // Dispatches the words, returning the result and what was printed.
    static int dispatch(std::vector<std::string> words, std::string *printed = nullptr)
    {
        std::vector<char *> argv;
        for (std::string &w : words)
            argv.push_back(w.data());
        argv.push_back(nullptr);
        krt_unit::StreamCapture out;
        const int result = cmdDispatcher(static_cast<int>(words.size()), argv.data());
        if (printed != nullptr)
            *printed = out.text();
        return result;
    }
};

TEST_F(ShellDispatch, FindsCommandsByUniquePrefix)
{
    struct Case {
        const char *word;
        const char *command;  // null: no single command
        int matches;
    };
    const Case cases[] = {
        {"help", "help", 1},
        {"he", "help", 1},
        {"?", "?", 1},
        {"h", nullptr, 2},  // help, hotkey
        {"get", "get", 1},  // whole name, although getoemdata starts with it
        {"geto", "getoemdata", 1},
        {"vpd", "vpd", 1},
        {"vpdr", "vpdread", 1},
        {"--d", "--debug", 1},
        {"--debug", "--debug", 1},
        {"mi_passthru", nullptr, 2},
        {"mi_passthruw", "mi_passthruwrite", 1},
        {"ex", nullptr, 0},
        {"infox", nullptr, 0},
        {"", nullptr, 41},
        {"i", nullptr, 6},   // info, import, init, identify, inverse, i2c
        {"in", nullptr, 3},  // info, init, inverse
        {"d", nullptr, 3},   // debuglv, dumphba, dvf
        {"vm", "vm_cmd", 1},
        {"s", nullptr, 4},  // smart, set, spi, sriov
    };
    for (const Case &c : cases) {
        int matches = -1;
        const Command_Info *entry = lookupCommand(c.word, &matches);
        if (c.command == nullptr) {
            EXPECT_EQ(entry, nullptr) << '[' << c.word << ']';
        } else {
            ASSERT_NE(entry, nullptr) << '[' << c.word << ']';
            EXPECT_STREQ(entry->cmd, c.command) << '[' << c.word << ']';
        }
        EXPECT_EQ(matches, c.matches) << '[' << c.word << ']';
    }
}

// A whole hidden name after an abbreviation of a public one runs the public
// entry at the hidden entry's position.
TEST_F(ShellDispatch, WholeHiddenNameAfterPublicAbbreviationUsesThePublicPosition)
{
    const Command_Info table[] = {
        {"genuine", 8, nullptr, "", ":first"},
        {"other", 6, nullptr, "", ":second"},
    };
    pCmdTable = table;
    cmdTableSize = 2;
    int matches = 0;
    EXPECT_EQ(lookupCommand("gen", &matches), &table[1]);  // "gen" is hidden entry 1
    EXPECT_EQ(lookupCommand("ge", &matches), nullptr);     // genuine, gen, getoemdata
    EXPECT_EQ(matches, 3);
    EXPECT_EQ(lookupCommand("genu", &matches), &table[0]);
}

int recordedArgc = 0;
std::string recordedWord;
const Command_Info *recordedEntry = nullptr;

int recordingHandler(int argc, char **argv, const Command_Info *entry)
{
    recordedArgc = argc;
    recordedWord = argv[0];
    recordedEntry = entry;
    return 42;
}

TEST_F(ShellDispatch, HandsTheLowerCasedWordsAndTheEntryToTheHandler)
{
    const Command_Info table[] = {{"zprobe", 7, recordingHandler, "", ":probe"}};
    pCmdTable = table;
    cmdTableSize = 1;
    EXPECT_EQ(dispatch({"ZPrO", "-X", "Y"}), 42);
    EXPECT_EQ(recordedArgc, 3);
    EXPECT_EQ(recordedWord, "zpro");
    EXPECT_EQ(recordedEntry, &table[0]);
}

TEST_F(ShellDispatch, ReportsExitInvalidAndAmbiguousWords)
{
    struct Case {
        std::vector<std::string> words;
        int result;
        const char *printed;
    };
    const Case cases[] = {
        {{"exit"}, -1, ""},
        {{"EXIT"}, -1, ""},
        {{"Quit", "now"}, -1, ""},
        {{"exi"}, 1, "Invalid command 'exi'!\n"},
        {{"ex"}, 1, "Invalid command 'ex'!\n"},
        {{"Bogus"}, 1, "Invalid command 'bogus'!\n"},
        {{"h"}, 1, "Ambiguous command 'h'!\n"},
        {{"MI_PASSTHRU"}, 1, "Ambiguous command 'mi_passthru'!\n"},
        {{""}, 1, "Ambiguous command ''!\n"},
        {{"--vid=0x1111"}, 0, ""},
        {{"--VID=0x1111"}, 0, ""},
        {{"x--vid=0x"}, 0, ""},
        {{"--vid=1111"}, 1, "Invalid command '--vid=1111'!\n"},
    };
    for (const Case &c : cases) {
        std::string printed;
        EXPECT_EQ(dispatch(c.words, &printed), c.result) << c.words[0];
        EXPECT_EQ(printed, c.printed) << c.words[0];
    }
    EXPECT_EQ(cmdDispatcher(0, nullptr), 0);
}

}  // namespace
