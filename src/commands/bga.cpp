// init, mp and rebuild: the background activities of a virtual disk.
#include "commands/commands.h"
#include "commands/unavailable.h"

const char init_sh[] = ":For start or stop VD initialization.";
const char init_help[] =
    "Usage:\n"
    "  init -i <VD ID> [-a <start|stop>]\n"
    "\n"
    "Options:\n"
    "  -i, --vd_id <VD ID>       the VD to initialize; required.\n"
    "  -a, --action <action>     start (default) or stop the initialization.\n"
    "  -h, --help                show this help.\n"
    "\n"
    "Example:\n"
    "  init -i 1 -a start\n";

const char mp_sh[] = ":For start or stop media patrol for a virtual disk.";
const char mp_help[] =
    "Usage:\n"
    "  mp -i <VD ID> [-a <start|stop>]\n"
    "\n"
    "Options:\n"
    "  -i, --vd_id <VD ID>       the VD to patrol; required.\n"
    "  -a, --action <action>     start (default) or stop the media patrol.\n"
    "  -h, --help                show this help.\n"
    "  Only RAID1 and RAID10 VDs support media patrol.\n"
    "\n"
    "Example:\n"
    "  mp -i 1\n";

const char rebuild_sh[] = ":For start or stop VD rebuild.";
const char rebuild_help[] =
    "Usage:\n"
    "  rebuild -i <VD ID> -a start -d <PD ID>\n"
    "  rebuild -i <VD ID> -a stop\n"
    "\n"
    "Options:\n"
    "  -i, --vd_id <VD ID>       the VD to rebuild; required.\n"
    "  -a, --action <action>     start (default) or stop the rebuild.\n"
    "  -d, --pd_id <PD ID>       the PD to rebuild onto; required with '-a start'.\n"
    "  -h, --help                show this help.\n"
    "\n"
    "Example:\n"
    "  rebuild -i 1 -a start -d 3\n";

int doSINIT(int, char **, const Command_Info *entry)
{
    return commandNotAvailable(entry);
}
int doSMP(int, char **, const Command_Info *entry)
{
    return commandNotAvailable(entry);
}
int doSRebuild(int, char **, const Command_Info *entry)
{
    return commandNotAvailable(entry);
}
