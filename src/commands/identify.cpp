// identify: Identify Controller and Identify Namespace data.
#include "commands/commands.h"
#include "commands/unavailable.h"

const char identify_sh[] = ":Get controller identify info.";
const char identify_help[] =
    "Usage:\n"
    "  identify -c <CNS> [-n <NSID>] [--rawdata]\n"
    "\n"
    "Options (numbers are decimal, or hexadecimal with 0x):\n"
    "  -c, --cns <CNS>          0: Identify Namespace (needs -n); 1: Identify Controller;\n"
    "                           any other value: the raw data only.\n"
    "  -n, --namepsace=<NSID>   namespace ID.\n"
    "  -i, --cntid=<ID>         controller identifier.\n"
    "  --rawdata                also show the 4096 bytes as a hex dump.\n"
    "  -h, --help               show this help.\n"
    "\n"
    "Examples:\n"
    "  identify -c 1\n"
    "  identify -c 0 -n 1 --rawdata\n";

int doIdentify(int, char **, const Command_Info *entry)
{
    return commandNotAvailable(entry);
}
