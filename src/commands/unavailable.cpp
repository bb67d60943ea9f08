#include "commands/unavailable.h"

#include <cstdio>

#include "util/state.h"

int commandNotAvailable(const Command_Info *entry)
{
    printCommandHelp(entry);
    std::fputs("This command is not available in this build.\n", stream);
    return 1;
}
