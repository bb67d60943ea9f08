// import: take over a VD, or a disk's namespace table, found on foreign disks.
#include "commands/commands.h"
#include "commands/unavailable.h"

const char import_sh[] = ":For import VD";
const char import_help[] =
    "Usage:\n"
    "  import -l <VD ID> [-i <NVMe Controller ID>]\n"
    "  import -l <VD ID> -p <PD ID> [-n <NS Table ID>]     (JBOF NVMe Controller)\n"
    "\n"
    "Options:\n"
    "  -l, --ld_id <VD ID>           VD to import; always required.\n"
    "  -i, --id <ID>                 NVMe Controller (default: the current one).\n"
    "  -p, --pdid <PD ID>            disk whose namespace table is imported (JBOF).\n"
    "  -n, --nstableid <table ID>    namespace table to import, decimal or 0x hex (JBOF).\n"
    "  -h, --help                    show this help.\n"
    "\n"
    "Example:\n"
    "  import -l 1\n";

int doSImport(int, char **, const Command_Info *entry)
{
    return commandNotAvailable(entry);
}
