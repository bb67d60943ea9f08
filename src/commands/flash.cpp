// flash: firmware update of the controller or of a back-end SSD.
#include "commands/commands.h"
#include "commands/unavailable.h"

const char flash_sh[] = ":Update flash image.";
const char flash_help[] =
    "Usage:\n"
    "  flash -o hba -f <file> -s <slot> -c <commit action>\n"
    "  flash -o hba -t raw -f <file>\n"
    "  flash -o pd -i <PD ID> -f <file> -s <slot> -c <commit action>\n"
    "  flash -o hba -q firmware\n"
    "  flash -o pd -q firmware [-i <PD ID>]\n"
    "\n"
    "Options:\n"
    "  -o, --object <object>     hba: the NVMe Controller; pd (or hd): a backend SSD.\n"
    "  -f, --file <file>         firmware image file.\n"
    "  -i, --id <PD ID>          SSD backend RC/Slot ID, for '-o pd'.\n"
    "  -s, --fs <slot>           firmware slot 0-7 (0: the device chooses).\n"
    "  -c, --ca <commit action>  commit action 0-7.\n"
    "  -b, --bp_id <id>          boot partition ID 0-1.\n"
    "  -t, --type raw            the file is a whole raw image of the NVMe Controller.\n"
    "  -q, --slot_info firmware  show the firmware slot information.\n"
    "  -h, --help                show this help.\n"
    "\n"
    "Examples:\n"
    "  flash -o hba -f fw.bin -s 1 -c 1\n"
    "  flash -o pd -i 2 -q firmware\n";

int doFlash(int, char **, const Command_Info *entry)
{
    return commandNotAvailable(entry);
}
