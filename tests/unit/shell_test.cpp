// The tokenizer's corners, the dispatcher's lookup and help, and what Tab
// offers where the terminal tests do not go.
#include "shell/shell.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "shell/completion.h"
#include "unit_support.h"

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

std::string description(const Command_Info &e)
{
    return std::string("Description") + e.cmdShortHelp + "\n" + e.cmdHelp;
}

// Every command of both tables describes itself with -h, without a
// controller; help prints the texts as formats, so no conversion may hide in
// them. What help says of named commands is in the shell's case table.
TEST(ShellHelp, EveryCommandsDashH)
{
    ASSERT_EQ(generalCmdTableV1Size(), 28);
    ASSERT_EQ(hiddenCmdTableV1Size(), 13);
    for (int i = 0; i < 41; ++i) {
        const Command_Info &e = i < 28 ? generalCmdTableV1[i] : hiddenCmdTableV1[i - 28];
        EXPECT_EQ(std::strchr(e.cmdHelp, '%'), nullptr) << e.cmd;
        EXPECT_EQ(e.cmdLen, static_cast<int>(std::strlen(e.cmd)) + 1) << e.cmd;
        EXPECT_EQ(krt_unit::runLine(e.cmd + std::string(" -h")).second.substr(0, description(e).size()),
                  description(e));
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
        {"mp -i 1 ", {"--action", "--help", "--vd_id", "-a", "-h", "-i"}},
        {"info -o ", {}},  // the value of -o comes next
        {"info --obj ", {}},
        {"adapter --l", {"--list"}},
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

}  // namespace
