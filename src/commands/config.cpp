// get and set: the controller-wide settings (auto rebuild, BGA rate).
#include "commands/commands.h"
#include "commands/unavailable.h"

const char get_sh[] = ":For getting configuration information of NVMe Controller.";
const char get_help[] =
    "Usage:\n"
    "  get -o hba [-i <NVMe Controller ID>]\n"
    "\n"
    "Options:\n"
    "  -o, --object hba     the NVMe Controller; required.\n"
    "  -i, --id <ID>        the NVMe Controller to show (default: all of them).\n"
    "  -h, --help           show this help.\n"
    "\n"
    "Shows the auto rebuild setting and the BGA rate.\n"
    "\n"
    "Example:\n"
    "  get -o hba\n";

const char set_sh[] = ":For setting configuration parameters of NVMe Controller.";
const char set_help[] =
    "Usage:\n"
    "  set -o hba -i <NVMe Controller ID> [-a <on|off>] [-r <high|medium|low>]\n"
    "\n"
    "Options:\n"
    "  -o, --object hba              the NVMe Controller; required.\n"
    "  -i, --id <ID>                 the NVMe Controller; required unless the command\n"
    "                                line begins with an Adapter ID.\n"
    "  -a, --autorebuild <on|off>    rebuild a failed VD automatically or not.\n"
    "  -r, --bgarate <rate>          share of the controller for BGA: high, medium or low.\n"
    "  -h, --help                    show this help.\n"
    "\n"
    "Example:\n"
    "  set -o hba -i 0 -a on -r medium\n";

int doSGet(int, char **, const Command_Info *entry)
{
    return commandNotAvailable(entry);
}
int doSSet(int, char **, const Command_Info *entry)
{
    return commandNotAvailable(entry);
}
