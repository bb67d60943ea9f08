// event: the controller's event log, newest first.
#include "commands/commands.h"
#include "commands/unavailable.h"

const char event_sh[] = ":For getting event from NVMe Controller.";
const char event_help[] =
    "Usage:\n"
    "  event [-c <count>]\n"
    "\n"
    "Options:\n"
    "  -c, --count=<count>   show only the newest <count> events (0 or absent: all).\n"
    "  -h, --help            show this help.\n"
    "\n"
    "Example:\n"
    "  event -c 20\n";

int doSEvent(int, char **, const Command_Info *entry)
{
    return commandNotAvailable(entry);
}
