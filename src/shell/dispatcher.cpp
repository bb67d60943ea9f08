#include <cstdio>
#include <cstring>
#include <string>

#include "shell/shell.h"
#include "util/json_output.h"
#include "util/state.h"
#include "util/text.h"

bool isVidWord(const char *word)
{
    return std::strstr(word, "--vid=0x") != nullptr || std::strstr(word, "--VID=0x") != nullptr;
}

const Command_Info *lookupCommand(const char *word, int *matches)
{
    const std::size_t n = std::strlen(word);
    const auto abbreviates = [&](const Command_Info &entry) { return std::strncmp(word, entry.cmd, n) == 0; };
    const auto whole = [&](const Command_Info &entry) { return static_cast<int>(n) + 1 == entry.cmdLen; };

    *matches = 0;
    int last = -1;
    bool publicMatched = false;
    for (int i = 0; i < cmdTableSize; ++i) {
        const Command_Info &entry = pCmdTable[i];
        if (!abbreviates(entry))
            continue;
        last = i;
        if (whole(entry)) {
            *matches = 1;
            return &entry;
        }
        ++*matches;
        publicMatched = true;
    }
    for (int i = 0; i < hiddenCmdTableV1Size(); ++i) {
        const Command_Info &entry = hiddenCmdTableV1[i];
        if (!abbreviates(entry))
            continue;
        last = i;
        if (whole(entry)) {
            *matches = 1;
            // A whole hidden name after a public abbreviation stands for the
            // public entry at the hidden entry's position. No present pair of
            // names gets here; the position is still kept inside the public
            // table.
            if (publicMatched && i < cmdTableSize)
                return &pCmdTable[i];
            return &entry;
        }
        ++*matches;
    }
    if (*matches != 1)
        return nullptr;
    return publicMatched ? &pCmdTable[last] : &hiddenCmdTableV1[last];
}

int cmdDispatcher(int argc, char **argv)
{
    if (argc < 1 || argv[0] == nullptr)
        return 0;
    char *word = strlwr(argv[0]);
    if (std::strcmp(word, "exit") == 0 || std::strcmp(word, "quit") == 0)
        return -1;

    int matches = 0;
    const Command_Info *entry = lookupCommand(word, &matches);
    if (entry != nullptr) {
        return entry->cmdHandler(argc, argv, entry);
    }
    if (matches == 0) {
        if (isVidWord(word))
            return 0;
        std::fprintf(stream, "Invalid command '%s'!\n", word);
        json_output::noteResult(json_output::Verdict::UsageError, "Invalid command '" + std::string(word) + "'!");
        return 1;
    }
    std::fprintf(stream, "Ambiguous command '%s'!\n", word);
    json_output::noteResult(json_output::Verdict::UsageError, "Ambiguous command '" + std::string(word) + "'!");
    return 1;
}
