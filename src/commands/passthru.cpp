// passthru: one NVMe admin command forwarded to a back-end SSD.
#include "commands/commands.h"
#include "commands/unavailable.h"

const char passthru_sh[] = ":Passthrough NVMe admin command to backend device";
const char passthru_help[] =
    "Usage:\n"
    "  passthru -i <PD ID> -r <read|write|none> -o <opcode> [options]\n"
    "\n"
    "Options (numbers are decimal, or hexadecimal with 0x):\n"
    "  -i, --id <PD ID>            SSD backend RC/Slot ID; required.\n"
    "  -r, --request <direction>   read: data from the device; write or none: refused.\n"
    "  -o, --opcode <opcode>       opcode of the admin command; required.\n"
    "  -n, --nsid <NSID>           namespace ID of the command.\n"
    "  -f, --fuse <value>          fused operation field (bits 8-9 of dword 0).\n"
    "  -p, --psdt <value>          PSDT field (bits 14-15 of dword 0).\n"
    "  --cdw2, --cdw3 <value>      command dwords 2 and 3.\n"
    "  --cdw10 ... --cdw13 <value> command dwords 10 to 13.\n"
    "  -d, --data-len <bytes>      length of the returned data.\n"
    "  -m, --metadata-len <bytes>  length of the metadata buffer.\n"
    "  --outputfile <file>         write the returned data into <file> instead of the screen.\n"
    "  --inputfile <file>          data file for a write request.\n"
    "  -s, --showcmd               print the command before sending it.\n"
    "  -t <admin|nvm>              command set; admin commands are forwarded.\n"
    "  -h, --help                  show this help.\n"
    "\n"
    "Example (Identify Controller of PD 1):\n"
    "  passthru -i 1 -r read -o 0x06 --cdw10 1 -d 4096\n";

int doPassthru(int, char **, const Command_Info *entry)
{
    return commandNotAvailable(entry);
}
