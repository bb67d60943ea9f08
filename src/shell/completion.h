// What a user may type next: the command names of the public table and the
// options each handler parses with. The shell's Tab key, the bash completion
// and the manual page all take them from here, so none of them offers a word
// the program would refuse.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "util/command.h"

// One option of a handler, as a user spells it.
struct OptionSpelling {
    char shortName = 0;    // 0: no short form
    std::string longName;  // empty: no long form
    // How each form takes its argument: getopt's no_argument,
    // required_argument or optional_argument.
    int shortArgument = 0;
    int longArgument = 0;
};

// The options `entry`'s handler reads, in the order of its short-option
// string, then the long-only ones in table order. The marked "-output" word
// that every table carries is the program's, not the command's: left out.
std::vector<OptionSpelling> optionSpellings(const Command_Info &entry);

// The public command whose name or unique abbreviation `word` is (any case),
// or null.
const Command_Info *publicCommand(std::string_view word);

struct Completion {
    std::size_t start = 0;                // where the word being completed begins
    std::vector<std::string> candidates;  // sorted, each a whole word
};

// Completes the last word of `line` (the text before the cursor): a command
// name as the first word and after help, an option of the command after it.
Completion completeShellLine(std::string_view line);
