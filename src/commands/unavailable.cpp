#include "commands/unavailable.h"

#include "commands/verdict.h"
#include "util/state.h"

int commandNotAvailable(const Command_Info *entry)
{
    printCommandHelp(entry);
    tell(Verdict::Refused, "This command is not available in this build.\n");
    return 1;
}
