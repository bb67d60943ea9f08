// ns: namespace management and attachment.
#include "commands/commands.h"
#include "commands/unavailable.h"

const char ns_sh[] = ":For namespace management";
const char ns_help[] =
    "Usage:\n"
    "  ns --list\n"
    "  ns -p ctrl\n"
    "  ns -a init -i <PD ID> -n <number>\n"
    "  ns -a create -i <PD ID> -l <size in GB> [-c <controller ID>]\n"
    "  ns -a share (-i <NSID> | -e <EUI64>) -s <yes|no> [-c <controller ID>]\n"
    "  ns -a attach (-i <NSID> | -e <EUI64>) -d <controller list>\n"
    "  ns -a detach (-i <NSID> | -e <EUI64>) -d <controller list>\n"
    "\n"
    "Options:\n"
    "  -a, --action <action>      init, share, create, attach or detach.\n"
    "  -i, --id <ID>              NSID; PD ID when it follows '-a init' or '-a create'.\n"
    "  -e, --EUI64 <EUI64>        namespace given by its EUI64 (16 lower-case hex digits).\n"
    "  -n, --nn <number>          number of namespaces for init.\n"
    "  -s, --sharing <yes|no>     shared or private namespace, for share.\n"
    "  -c, --cid <ID>             controller ID for create and share.\n"
    "  -l, --size <GB>            namespace size in GB for create.\n"
    "  -d, --ctrllist <list>      controller IDs separated by commas, for attach/detach.\n"
    "  -p, --primary ctrl         show the primary controller ID.\n"
    "  --list                     list the namespaces reported to the host.\n"
    "  -h, --help                 show this help.\n"
    "\n"
    "Examples:\n"
    "  ns --list\n"
    "  ns -a attach -i 1 -d 0\n";

int doSNS(int, char **, const Command_Info *entry)
{
    return commandNotAvailable(entry);
}
