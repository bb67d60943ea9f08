#include "shell/completion.h"

#include <getopt.h>
#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cstring>

#include "commands/commands.h"
#include "shell/shell.h"

namespace {

bool isBlank(char c)
{
    return c == ' ' || c == '\t';
}

std::string lowered(std::string_view word)
{
    std::string out(word);
    for (char &c : out)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

bool startsWith(std::string_view text, std::string_view prefix, bool anyCase)
{
    if (text.size() < prefix.size())
        return false;
    if (prefix.empty())
        return true;  // an empty view may hold no pointer at all
    return anyCase ? strncasecmp(text.data(), prefix.data(), prefix.size()) == 0
                   : text.compare(0, prefix.size(), prefix) == 0;
}

// Names of the public table that begin with `word`. Command words are read in
// any case; help takes names only as the table spells them.
std::vector<std::string> commandNames(std::string_view word, bool anyCase)
{
    std::vector<std::string> names;
    for (int i = 0; i < generalCmdTableV1Size(); ++i) {
        if (startsWith(generalCmdTableV1[i].cmd, word, anyCase))
            names.emplace_back(generalCmdTableV1[i].cmd);
    }
    return names;
}

std::vector<std::string> optionWords(const Command_Info &entry, std::string_view word)
{
    std::vector<std::string> words;
    for (const OptionSpelling &o : optionSpellings(entry)) {
        if (o.shortName != 0)
            words.push_back(std::string("-") + o.shortName);
        if (!o.longName.empty())
            words.push_back("--" + o.longName);
    }
    std::erase_if(words, [&](const std::string &w) { return !startsWith(w, word, false); });
    return words;
}

// Whether `word` is an option of `entry` whose argument is the next word.
bool takesNextWord(const Command_Info &entry, std::string_view word)
{
    if (word.size() < 2 || word[0] != '-' || word.find('=') != std::string_view::npos)
        return false;
    for (const OptionSpelling &o : optionSpellings(entry)) {
        if (word.size() == 2 && word[1] == o.shortName)
            return o.shortArgument == required_argument;
        if (word.size() > 2 && word[1] == '-' && !o.longName.empty() && startsWith(o.longName, word.substr(2), false))
            return o.longArgument == required_argument;
    }
    return false;
}

}  // namespace

std::vector<OptionSpelling> optionSpellings(const Command_Info &entry)
{
    std::vector<OptionSpelling> spellings;
    if (entry.cmdOptions == nullptr)
        return spellings;
    const char *shorts = entry.cmdOptions->shortOptions;
    const option *longs = entry.cmdOptions->longOptions;
    std::vector<bool> paired;
    for (const option *o = longs; o != nullptr && o->name != nullptr; ++o)
        paired.push_back(false);

    for (const char *c = shorts; *c != '\0'; ++c) {
        if (*c == ':')
            continue;
        OptionSpelling spelling;
        spelling.shortName = *c;
        spelling.shortArgument = c[1] != ':' ? no_argument : c[2] == ':' ? optional_argument : required_argument;
        // A long option that hands back the same letter is the same option.
        for (std::size_t i = 0; longs != nullptr && longs[i].name != nullptr; ++i) {
            if (!paired[i] && longs[i].flag == nullptr && longs[i].val == static_cast<unsigned char>(*c)) {
                paired[i] = true;
                if (spelling.longName.empty()) {
                    spelling.longName = longs[i].name;
                    spelling.longArgument = longs[i].has_arg;
                }
            }
        }
        if (*c == KRT_OUTPUT_OPTION)
            continue;
        spellings.push_back(spelling);
    }
    for (std::size_t i = 0; longs != nullptr && longs[i].name != nullptr; ++i) {
        if (paired[i] || longs[i].val == KRT_OUTPUT_OPTION)
            continue;
        OptionSpelling spelling;
        spelling.longName = longs[i].name;
        spelling.longArgument = longs[i].has_arg;
        spellings.push_back(spelling);
    }
    return spellings;
}

const Command_Info *publicCommand(std::string_view word)
{
    int matches = 0;
    const Command_Info *entry = lookupCommand(lowered(word).c_str(), &matches);
    const Command_Info *first = generalCmdTableV1;
    const Command_Info *last = generalCmdTableV1 + generalCmdTableV1Size();
    return entry != nullptr && entry >= first && entry < last ? entry : nullptr;
}

Completion completeShellLine(std::string_view line)
{
    Completion completion;
    std::vector<std::string_view> words;
    std::size_t i = 0;
    while (i < line.size()) {
        while (i < line.size() && isBlank(line[i]))
            ++i;
        const std::size_t start = i;
        while (i < line.size() && !isBlank(line[i]))
            ++i;
        if (i > start)
            words.push_back(line.substr(start, i - start));
    }
    std::string_view word;
    if (!line.empty() && !isBlank(line.back()) && !words.empty()) {
        word = words.back();
        words.pop_back();
    }
    completion.start = line.size() - word.size();

    if (words.empty()) {
        completion.candidates = commandNames(word, true);
    } else if (const Command_Info *entry = publicCommand(words.front()); entry != nullptr) {
        if (entry->cmdHandler == doHelp)
            completion.candidates = commandNames(word, false);
        else if ((word.empty() || word[0] == '-') && !takesNextWord(*entry, words.back()))
            completion.candidates = optionWords(*entry, word);
    }
    std::sort(completion.candidates.begin(), completion.candidates.end());
    completion.candidates.erase(std::unique(completion.candidates.begin(), completion.candidates.end()),
                                completion.candidates.end());
    return completion;
}
