// smart: health (SMART) data of the controller, a back-end SSD or a namespace.
#include "commands/commands.h"
#include "commands/unavailable.h"

const char smart_sh[] = ":Get SSD backend RC/Slot SMART info.";
const char smart_help[] =
    "Usage:\n"
    "  smart -i <PD ID>\n"
    "  smart -o hba\n"
    "  smart -o ns -n <NSID>\n"
    "\n"
    "Options:\n"
    "  -i, --pd_id <PD ID>     SSD backend RC/Slot ID (as shown by 'info -o pd').\n"
    "  -o, --object <object>   hba: the NVMe Controller itself; ns: a namespace.\n"
    "  -n <NSID>               namespace ID for '-o ns' (1 or more).\n"
    "  -h, --help              show this help.\n"
    "  -i and -o cannot be used together.\n"
    "\n"
    "Example:\n"
    "  smart -i 1\n";

int doSmart(int, char **, const Command_Info *entry)
{
    return commandNotAvailable(entry);
}
