#include <getopt.h>

#include <cstdio>
#include <cstring>

#include "shell/shell.h"
#include "util/state.h"
#include "util/text.h"

namespace {

// Every handler starts its option parsing over at index 1. The parser also
// keeps a position inside the last word it looked at; when a previous
// command stopped in the middle of a group of short options, that position
// would point into a line that has since been replaced. A parse from index 0
// over an empty word list forgets it.
void resetOptionParser()
{
    char name[] = "krt_cli";
    char *words[] = {name, nullptr};
    const int savedOpterr = opterr;
    opterr = 0;
    optind = 0;
    (void)getopt(1, words, "");
    opterr = savedOpterr;
    optind = 1;
}

int run(const Command_Info &entry, int argc, char **argv)
{
    resetOptionParser();
    return entry.cmdHandler(argc, argv, &entry);
}

bool isVidWord(const char *word)
{
    return std::strstr(word, "--vid=0x") != nullptr || std::strstr(word, "--VID=0x") != nullptr;
}

}  // namespace

int cmdDispatcher(int argc, char **argv)
{
    if (argc < 1 || argv[0] == nullptr)
        return 0;
    char *word = strlwr(argv[0]);
    if (std::strcmp(word, "exit") == 0 || std::strcmp(word, "quit") == 0)
        return -1;

    const std::size_t n = std::strlen(word);
    const auto matches = [&](const Command_Info &entry) { return std::strncmp(word, entry.cmd, n) == 0; };
    const auto whole = [&](const Command_Info &entry) { return static_cast<int>(n) + 1 == entry.cmdLen; };

    int count = 0;
    int last = -1;
    bool publicMatched = false;
    for (int i = 0; i < cmdTableSize; ++i) {
        const Command_Info &entry = pCmdTable[i];
        if (!matches(entry))
            continue;
        last = i;
        if (whole(entry))
            return run(entry, argc, argv);
        ++count;
        publicMatched = true;
    }
    for (int i = 0; i < hiddenCmdTableV1Size(); ++i) {
        const Command_Info &entry = hiddenCmdTableV1[i];
        if (!matches(entry))
            continue;
        last = i;
        if (whole(entry)) {
            // A whole hidden name after a public abbreviation runs the public
            // entry at the hidden entry's position; no present name pair
            // reaches this, and the position is checked against the public
            // table all the same.
            if (publicMatched && i < cmdTableSize)
                return run(pCmdTable[i], argc, argv);
            return run(entry, argc, argv);
        }
        ++count;
    }

    if (count == 1)
        return run(publicMatched ? pCmdTable[last] : hiddenCmdTableV1[last], argc, argv);
    if (count == 0) {
        if (isVidWord(word))
            return 0;
        std::fprintf(stream, "Invalid command '%s'!\n", word);
        return 1;
    }
    std::fprintf(stream, "Ambiguous command '%s'!\n", word);
    return 1;
}
