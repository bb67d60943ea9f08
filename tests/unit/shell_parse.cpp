#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "shell/shell.h"

namespace {

// The words of a line, or result 0 and no words when the line is refused.
std::pair<int, std::vector<std::string>> parseLine(std::string line)
{
    line.resize(2048, '\0');
    std::array<char *, kMaxWords + 1> words{};
    char guard[] = "guard";  // the cell past the capacity must keep it
    words[kMaxWords] = guard;
    int count = 0;
    const int result = parse(&count, words.data(), kMaxWords, line.data());
    EXPECT_EQ(words[kMaxWords], guard);
    std::vector<std::string> out;
    for (int i = 0; result == 1 && i < count; ++i)
        out.emplace_back(words[i]);
    return {result, out};
}

TEST(ShellParse, SplitsLinesIntoWords)
{
    struct Case {
        const char *line;
        int result;
        std::vector<std::string> words;
    };
    const Case cases[] = {
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
    for (const Case &c : cases) {
        SCOPED_TRACE('[' + std::string(c.line) + ']');
        const auto [result, words] = parseLine(c.line);
        EXPECT_EQ(result, c.result);
        EXPECT_EQ(words, c.words);
    }
}

TEST(ShellParse, StopsAtTheWordArrayCapacity)
{
    std::string line;
    for (int i = 0; i < 100; ++i)
        line += "w" + std::to_string(i) + " ";
    const auto [result, words] = parseLine(line);
    EXPECT_EQ(result, 1);
    ASSERT_EQ(words.size(), static_cast<std::size_t>(kMaxWords));
    EXPECT_EQ(words.back(), "w63");
}

}  // namespace
