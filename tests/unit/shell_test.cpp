// The tokenizer's corners, the dispatcher's lookup and help, and what Tab
// offers, without a controller.
#include "shell/shell.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "shell/completion.h"
#include "stream_capture.h"
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
        {"adapter -n \"nqn a b\"", 1, {"adapter", "-n", "\"nqn a b\""}},
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
    for (const auto &c : cases) {
        SCOPED_TRACE('[' + std::string(c.line) + ']');
        EXPECT_EQ(parseLine(c.line), std::make_pair(c.result, c.words));
    }
    std::string line;
    for (int i = 0; i < 100; ++i)
        line += "w" + std::to_string(i) + " ";
    const auto [result, words] = parseLine(line);
    EXPECT_EQ(result, 1);
    ASSERT_EQ(words.size(), static_cast<std::size_t>(kMaxWords));
    EXPECT_EQ(words.back(), "w63");
}

// What dispatching the words returned and printed.
std::pair<int, std::string> run(Words words)
{
    pCmdTable = generalCmdTableV1;
    cmdTableSize = generalCmdTableV1Size();
    std::vector<char *> argv;
    for (std::string &w : words)
        argv.push_back(w.data());
    argv.push_back(nullptr);
    krt_unit::StreamCapture out;
    const int result = cmdDispatcher(static_cast<int>(words.size()), argv.data());
    return {result, out.text()};
}

// What -h and help print for a command: its summary and its long help.
std::string description(const Command_Info &e)
{
    return std::string("Description") + e.cmdShortHelp + "\n" + e.cmdHelp;
}

// Every command of both tables describes itself with -h, without a
// controller; help prints the texts as formats, so no conversion may hide
// in them.
TEST(ShellHelp, EveryCommandsDashHAndNamedHelp)
{
    ASSERT_EQ(generalCmdTableV1Size(), 28);
    ASSERT_EQ(hiddenCmdTableV1Size(), 13);
    for (int i = 0; i < 41; ++i) {
        const Command_Info &e = i < 28 ? generalCmdTableV1[i] : hiddenCmdTableV1[i - 28];
        SCOPED_TRACE(e.cmd);
        EXPECT_EQ(std::strchr(e.cmdHelp, '%'), nullptr);
        EXPECT_EQ(e.cmdLen, static_cast<int>(std::strlen(e.cmd)) + 1);
        EXPECT_EQ(run({e.cmd, "-h"}).second.substr(0, description(e).size()), description(e));
    }
    const auto help = [](const char *name) {
        int matches = 0;
        return description(*lookupCommand(name, &matches));
    };
    const std::string none = "No help available for 'foo'\n";
    const struct {
        Words words;
        std::string expected;
    } cases[] = {
        {{"HELP", "vd", "spi"}, help("vd") + help("spi")},
        {{"he", "VD"}, "No help available for 'VD'\n"},
        {{"help", "gen"}, "No help available for 'gen'\n"},  // hidden commands have no help
        {{"help", "foo", "vd"}, none + help("vd")},
        // Once a name was found, later unknown names pass in silence.
        {{"help", "vd", "foo", "bar"}, help("vd")},
        {{"help", "foo", "bar"}, none + "No help available for 'bar'\n"},
        // Any option shows help's own description, wherever it stands...
        {{"help", "--debug"}, help("help")},
        {{"?", "vd", "-x"}, help("?")},
        // ...but the marked "-output" word and its file name are passed over.
        {{"help", "vd", "-\x01utput", "out.txt"}, help("vd")},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.words));
        EXPECT_EQ(run(c.words), std::make_pair(0, c.expected));
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
    const struct {
        const char *line;
        Words offered;
    } cases[] = {
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
    for (const auto &c : cases) {
        SCOPED_TRACE(c.line);
        const Completion completion = completeShellLine(c.line);
        EXPECT_EQ(completion.candidates, c.offered);
        EXPECT_EQ(completion.start, std::string_view(c.line).find_last_of(' ') + 1);
    }
    EXPECT_EQ(completeShellLine("").candidates.size(), std::size_t{generalCmdTableV1Size()});
}

}  // namespace
