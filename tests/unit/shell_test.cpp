// The tokenizer's corners, the dispatcher's lookup and help, what Tab offers,
// and the commands in one-base numbering, which is never on at run time.
#include "shell/shell.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "krt/records.h"
#include "shell/completion.h"
#include "stream_capture.h"
#include "text.h"
#include "util/state.h"

namespace {

using Words = std::vector<std::string>;

// The words of a line, or result 0 and no words when the line is refused.
std::pair<int, Words> parseLine(std::string line)
{
    line.resize(2048, '\0');
    std::array<char *, kMaxWords + 1> words{};
    char guard[] = "guard";  // the cell past the capacity must keep it
    words[kMaxWords] = guard;
    int count = 0;
    const int result = parse(&count, words.data(), kMaxWords, line.data());
    EXPECT_EQ(words[kMaxWords], guard);
    Words out;
    for (int i = 0; result == 1 && i < count; ++i)
        out.emplace_back(words[i]);
    return {result, out};
}

TEST(ShellParse, SplitsLinesIntoWordsUpToTheCapacity)
{
    const struct {
        const char *line;
        int result;
        Words words;
    } cases[] = {
        {"", 1, {}},
        {"info   -o\tvd", 1, {"info", "-o", "vd"}},
        // Quotes stay in the word, and a quoted stretch may sit inside a word.
        {"a\"b c\"d", 1, {"a\"b c\"d"}},
        {"\"\"", 1, {"\"\""}},
        // A leading separator gives an empty first word; trailing blanks give none.
        {" info", 1, {"", "info"}},
        {"\t info", 1, {"", "info"}},
        {"info \t", 1, {"info", ""}},
        {"info   ", 1, {"info"}},
        // Only blanks are skipped after a separator, so tabs make empty words.
        {"a\t\tb", 1, {"a", "", "b"}},
        {"a\t b", 1, {"a", "b"}},
        {"\"", 0, {}},
        {"info \"abc", 0, {}},
        {"\"a\" \"b", 0, {}},
        {"x\"\"\"", 0, {}},
    };
    for (const auto &c : cases)
        EXPECT_EQ(parseLine(c.line), std::make_pair(c.result, c.words)) << '[' << c.line << ']';
    std::string line;
    for (int i = 0; i < 100; ++i)
        line += "w" + std::to_string(i) + " ";
    const auto [result, words] = parseLine(line);
    ASSERT_EQ(words.size(), static_cast<std::size_t>(kMaxWords));
    EXPECT_EQ(words.back(), "w63");
}

// What dispatching the words (split at blanks) returned and printed.
std::pair<int, std::string> run(const std::string &line)
{
    pCmdTable = generalCmdTableV1;
    cmdTableSize = generalCmdTableV1Size();
    std::istringstream in(line);
    Words words{std::istream_iterator<std::string>(in), {}};
    std::vector<char *> argv;
    for (std::string &w : words)
        argv.push_back(w.data());
    argv.push_back(nullptr);
    krt_unit::StreamCapture out;
    const int result = cmdDispatcher(static_cast<int>(words.size()), argv.data());
    return {result, out.text()};
}

std::string description(const Command_Info &e)
{
    return std::string("Description") + e.cmdShortHelp + "\n" + e.cmdHelp;
}

// Every command of both tables describes itself with -h, without a
// controller; help prints the texts as formats, so no conversion may hide in
// them. help names commands as the table spells them, and is silent about
// unknown names once it found one.
TEST(ShellHelp, EveryCommandsDashHAndNamedHelp)
{
    ASSERT_EQ(generalCmdTableV1Size(), 28);
    ASSERT_EQ(hiddenCmdTableV1Size(), 13);
    for (int i = 0; i < 41; ++i) {
        const Command_Info &e = i < 28 ? generalCmdTableV1[i] : hiddenCmdTableV1[i - 28];
        EXPECT_EQ(std::strchr(e.cmdHelp, '%'), nullptr) << e.cmd;
        EXPECT_EQ(e.cmdLen, static_cast<int>(std::strlen(e.cmd)) + 1) << e.cmd;
        EXPECT_EQ(run(e.cmd + std::string(" -h")).second.substr(0, description(e).size()), description(e));
    }
    // What help says: named commands' help, or "!name" for none.
    const std::pair<const char *, const char *> cases[] = {
        {"HELP vd spi", "vd spi"},        {"he VD", "!VD"},          {"help gen", "!gen"},  // hidden: no help
        {"help foo vd", "!foo vd"},       {"help vd foo bar", "vd"}, {"help foo bar", "!foo !bar"},
        {"help --debug", "help"},         {"? vd -x", "?"},  // any option: help's own
        {"help vd -\x01utput out", "vd"},  // the marked "-output" word and its file name are passed over
    };
    for (const auto &[line, named] : cases) {
        std::istringstream in(named);
        std::string expected;
        int matches = 0;
        for (std::string name; in >> name;)
            expected += name[0] == '!' ? "No help available for '" + name.substr(1) + "'\n"
                                       : description(*lookupCommand(name.c_str(), &matches));
        EXPECT_EQ(run(line), std::make_pair(0, expected)) << line;
    }
}

// A whole hidden name after an abbreviation of a public one runs the public
// entry at the hidden entry's position. No pair of shipped names reaches
// this, so a made-up public table stands in.
TEST(ShellDispatch, WholeHiddenNameAfterPublicAbbreviationUsesThePublicPosition)
{
    const Command_Info table[] = {{"genuine", 8, nullptr, "", ":first", nullptr},
                                  {"other", 6, nullptr, "", ":second", nullptr}};
    pCmdTable = table;
    cmdTableSize = 2;
    int matches = 0;
    EXPECT_EQ(lookupCommand("gen", &matches), &table[1]);  // "gen" is hidden entry 1
    EXPECT_EQ(lookupCommand("ge", &matches), nullptr);     // genuine, gen, getoemdata
    EXPECT_EQ(matches, 3);
    EXPECT_EQ(lookupCommand("genu", &matches), &table[0]);
    pCmdTable = generalCmdTableV1;
    cmdTableSize = generalCmdTableV1Size();
}

// What Tab offers for the text before the cursor.
TEST(ShellCompletion, NamesOptionsAndNothingWhereAValueIsDue)
{
    pCmdTable = generalCmdTableV1;
    cmdTableSize = generalCmdTableV1Size();
    const std::pair<const char *, Words> cases[] = {
        {"IN", {"info", "init", "inverse"}},  // command words in any case
        {"ge", {"get"}},                      // never a hidden command
        {"rebuild --", {"--action", "--help", "--pd_id", "--vd_id"}},
        {"mp -i 1 ", {"--action", "--help", "--vd_id", "-a", "-h", "-i"}},
        {"info -o ", {}},  // the value of -o comes next
        {"info --obj ", {}},
        {"adapter --l", {"--list"}},
        {"help id", {"identify"}},
        {"help info ID", {}},  // help takes names as the table spells them
        {"gen -", {}},
    };
    for (const auto &[line, offered] : cases) {
        const Completion completion = completeShellLine(line);
        EXPECT_EQ(completion.candidates, offered) << line;
        EXPECT_EQ(completion.start, std::string_view(line).find_last_of(' ') + 1) << line;
    }
    EXPECT_EQ(completeShellLine("").candidates.size(), std::size_t{generalCmdTableV1Size()});
}

constexpr KRT_U32 kRaid = KRT_FEATURE_RAID | KRT_FEATURE_IMPORT, kJbof = KRT_FEATURE_IMPORT;

// As controller 0 of two: typed controller, disk and VD numbers count from 1,
// request words from 0, namespace ids and "every table" are never shifted.
// With debugging on the words show before they are sent; nothing answers.
TEST(OneBase, TypedNumbersCountFromOne)
{
    const struct {
        const char *words;
        int status;
        std::string out;  // a part of the output
        int current = 0;  // the controller chosen afterwards
        KRT_U32 features = kRaid;
    } cases[] = {
        {"adapter -i 0", 1, "-i : invalid NVMe Controller id '0'\n"},
        {"adapter -i 3", 1, "NVMe Controller 3 does not exist.\n"},
        {"adapter -i x1", 1, "-i : invalid NVMe Controller id 'x1'\n"},
        {"adapter -i 2", 0,
         "NVMe Controller 2 set as default CLI commands refers to.\nUpdated current NVMe Controller id : 0\n", 1},
        {"adapter -i 1 -i 1", 1, "refers to.\nNVMe Controller 1 set as default CLI commands refers to.\nDuplicated"},
        {"get -o hba -i 0", 1, "-i : invalid id '0'\n"},
        {"get -o hba -i 3", 1, "-i : invalid id '3'\n"},
        {"get -o hba -i 2", 1, "CDW[12]: 0x000001e0\n"},
        {"set -o hba -i 0 -a on", 1, "-i : invalid id '0'\n"},
        {"set -o hba -i 1 -v 0", 1, "-v : invalid vd id '0'\n"},
        {"set -o hba -i 1 -v 2", 1, "Unable to get configuration info of adapter 0\n"},
        {"info -o pd -i 1", 0, "CDW[12]: 0x000000e1\nCDW[14]: 0x00000000\n"},
        {"info -o vd -i 3", 0, "CDW[12]: 0x000000e2\nCDW[14]: 0x00000002\n"},
        // Below the first number: reported, then asked for all the same.
        {"info -o pd -i 0", 0,
         "-i : id should be a number\nCDW[0] : 0x000000e2\nCDW[12]: 0x000000e1\nCDW[14]: 0x0000ffff"},
        {"info -o vd -i 0", 0, "CDW[12]: 0x000000e2\nCDW[14]: 0x0000ffff\n"},
        {"info -o pd -i 256", 0, "\nNo physical disk is found.\n"},  // id 255: every disk
        {"info -o ns -t vd -v 3", 0, "CDW[12]: 0x000301e5\nCDW[14]: 0x00000000\n"},
        {"import -l 0", 1, "-l : invalid VD ID '0'\n", 0, kJbof},
        {"import -p 0 -l 1", 1, "-p : invalid PD ID '0'\n", 0, kJbof},
        {"import -n 0 -l 1", 1, "-n : invalid NS Table ID '0'\n", 0, kJbof},
        {"import -i 0 -l 1", 1, "-i : invalid NVMe Controller id '0'\n", 0, kJbof},
        {"import -i 3 -l 1", 1, "NVMe Controller 2 does not exist.\n", 0, kJbof},
        {"import -p 3 -n 0xff -l 1", 0, "CDW[12]: 0x000009e1\nCDW[14]: 0x00ff0002\n\nFail to import NS Table ID 256.\n",
         0, kJbof},
        {"import -p 1 -n 0x10 -l 1", 0, "CDW[14]: 0x000f0000\n", 0, kJbof},
        {"import -p 1 -n 65536 -l 1", 0, "CDW[14]: 0xffff0000\n", 0, kJbof},
        {"import -l 65536", 0, "CDW[14]: 0x0000ffff\n\nUnable to get info of VD\n"},
        {"import -l 65537", 1, "-l : invalid VD ID '65537'\n"},
        {"reset -i 0", 0, "-i : invalid device id '0'\n"},
        {"reset -i 65537", 0, "-i : invalid device id '65537'\n"},
        {"reset -t power -a on -i 3", 1, "Power Pin ID only support 1 or 2\n"},
        {"reset -t power -a off -i 2", 1, "CDW[14]: 0x02010001\nReset failed.\n"},
        {"reset -t perstn -a off -i 4", 1, "CDW[12]: 0x000008e1\nCDW[14]: 0x02020003\n"},
        {"led -o rc -i 0 -a on", 0, "-i : invalid id '0'\n"},
        {"led -o rc -i 3 -a qb", 1,
         "CDW[0] : 0x000000e2\nCDW[12]: 0x000007e1\nCDW[14]: 0x00030002\nLED control failed.\n"},
    };
    _NVME_Adapter_Info infos[2]{};
    g_pAdInfos = infos;
    g_oneBaseMode = 1;
    dbg_enable = 1;
    gNumAdaptersFound = 2;
    for (const auto &c : cases) {
        infos[0].Features = infos[1].Features = c.features;
        gCurrentAdapter = 0;
        const auto [status, out] = run(c.words);
        EXPECT_EQ(status, c.status) << c.words;
        EXPECT_TRUE(krt_test::has(out, c.out)) << c.words << "\n" << out;
        EXPECT_EQ(gCurrentAdapter, c.current) << c.words;
    }
    g_pAdInfos = nullptr;
    g_oneBaseMode = dbg_enable = gNumAdaptersFound = gCurrentAdapter = 0;
}

}  // namespace
