// vd: creating and deleting virtual disks.
#include "commands/commands.h"
#include "commands/unavailable.h"

const char vd_sh[] = ":For VD create and delete";
const char vd_help[] =
    "Usage:\n"
    "  vd -a create -r <RAID level> -d <PD ID list> [-b <128|256|512>] [-n <namespaces>]\n"
    "  vd -a delete -i <VD ID>\n"
    "\n"
    "Options:\n"
    "  -a, --action <action>      create or delete; required.\n"
    "  -r, --raidmode <level>     0, 1, 10, 5, 50, 6, 60 or JBOD; required for create.\n"
    "  -d, --pdid <list>          member PD IDs separated by commas; required for create.\n"
    "  -b, --sbs <size>           stripe block size in KB: 128 (default), 256 or 512.\n"
    "  -n, --namespace <number>   namespaces to create in the new VD (default: one).\n"
    "  -i, --vd_id <VD ID>        the VD to delete; required for delete.\n"
    "  -h, --help                 show this help.\n"
    "  A VD holding the host's OS volume is not deleted.\n"
    "\n"
    "Examples:\n"
    "  vd -a create -r 1 -d 1,2\n"
    "  vd -a delete -i 1\n";

int doSVD(int, char **, const Command_Info *entry)
{
    return commandNotAvailable(entry);
}
