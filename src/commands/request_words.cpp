#include "commands/request_words.h"

#include <cstdio>

#include "util/state.h"

void printRequestWords(const krt_admin_command_format &cmd, std::initializer_list<int> words)
{
    if (!dbg_enable)
        return;
    for (int word : words) {
        if (word < 0 || word >= static_cast<int>(sizeof cmd.CDW / sizeof cmd.CDW[0]))
            continue;
        // Single-digit words are padded so that the colons line up.
        if (word < 10)
            std::fprintf(stream, "CDW[%d] : 0x%08x\n", word, cmd.CDW[word]);
        else
            std::fprintf(stream, "CDW[%d]: 0x%08x\n", word, cmd.CDW[word]);
    }
}
