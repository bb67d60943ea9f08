#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "shell/shell.h"

namespace {

struct Parsed {
    int result = -1;
    std::vector<std::string> words;
};

Parsed parseLine(const std::string &text)
{
    std::array<char, 2048> line{};
    text.copy(line.data(), line.size() - 1);
    std::array<char *, kMaxWords> words{};
    Parsed parsed;
    int count = -1;
    parsed.result = parse(&count, words.data(), kMaxWords, line.data());
    for (int i = 0; parsed.result == 1 && i < count; ++i)
        parsed.words.emplace_back(words[i]);
    return parsed;
}

TEST(ShellParse, SplitsLinesIntoWords)
{
    struct Case {
        const char *line;
        std::vector<std::string> words;
    };
    const Case cases[] = {
        {"", {}},
        {"info", {"info"}},
        {"info -o vd", {"info", "-o", "vd"}},
        {"info   -o    vd", {"info", "-o", "vd"}},
        {"info\t-o\tvd", {"info", "-o", "vd"}},
        // Quotes stay in the word, and a quoted stretch may sit inside a word.
        {"a\"b c\"d", {"a\"b c\"d"}},
        {"adapter -n \"nqn a b\"", {"adapter", "-n", "\"nqn a b\""}},
        {"\"x y\"", {"\"x y\""}},
        {"\"\"", {"\"\""}},
        // A leading separator gives an empty first word; trailing blanks give none.
        {" info", {"", "info"}},
        {"\tinfo", {"", "info"}},
        {"  info", {"", "info"}},
        {"info   ", {"info"}},
        {"info\t", {"info"}},
        // Only blanks are skipped after a separator, so tabs make empty words.
        {"a\t\tb", {"a", "", "b"}},
        {"a \tb", {"a", "", "b"}},
        {"a\t b", {"a", "b"}},
        {"a \t", {"a", ""}},
    };
    for (const Case &c : cases) {
        const Parsed parsed = parseLine(c.line);
        EXPECT_EQ(parsed.result, 1) << '[' << c.line << ']';
        EXPECT_EQ(parsed.words, c.words) << '[' << c.line << ']';
    }
}

TEST(ShellParse, RejectsUnbalancedQuotes)
{
    for (const char *line : {"\"", "info \"abc", "a\"b c", "\"a\" \"b", "x\"\"\""}) {
        EXPECT_EQ(parseLine(line).result, 0) << line;
    }
}

TEST(ShellParse, StopsAtTheWordArrayCapacity)
{
    std::string line;
    for (int i = 0; i < 100; ++i)
        line += "w" + std::to_string(i) + " ";
    line += "last";

    std::array<char, 2048> buffer{};
    line.copy(buffer.data(), buffer.size() - 1);
    // Two guard cells behind the words the parser may fill.
    std::array<char *, 8 + 2> words{};
    char guard[] = "guard";
    words[8] = guard;
    words[9] = guard;
    int count = 0;
    EXPECT_EQ(parse(&count, words.data(), 8, buffer.data()), 1);
    EXPECT_EQ(count, 8);
    EXPECT_STREQ(words[7], "w7");
    EXPECT_EQ(words[8], guard);
    EXPECT_EQ(words[9], guard);

    const Parsed full = parseLine(line);
    ASSERT_EQ(full.words.size(), static_cast<std::size_t>(kMaxWords));
    EXPECT_EQ(full.words.back(), "w63");
}

}  // namespace
