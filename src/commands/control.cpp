// reset, led and inverse: small controls of back-end slots and GPIO lines.
#include "commands/commands.h"
#include "commands/unavailable.h"

const char reset_sh[] =
    ":For reset back-end device\n"
    "[Notice]\n"
    "  <Default GPIO setting>\n"
    "    Set power: \n"
    "        Power pin id 0 means control GPIO4\n"
    "        Power pin id 1 means control GPIO5\n"
    "    Set perstn\n"
    "        PD id 0 means control GPIO8\n"
    "        PD id 1 means control GPIO10\n"
    "        PD id 2 means control GPIO9\n"
    "        PD id 3 means control GPIO11";
const char reset_help[] =
    "Usage:\n"
    "  reset [-t device] [-i <PD ID>]\n"
    "  reset -t <power|perstn> -a <cycle|on|off> [-i <ID>]\n"
    "\n"
    "Options:\n"
    "  -t, --type <type>       device (default): reset the back-end device;\n"
    "                          power: switch its power pin; perstn: drive its reset line.\n"
    "  -i, --pdid <ID>         PD ID, or power pin ID for '-t power' (default 0).\n"
    "  -a, --action=<action>   cycle, on or off; required for power and perstn.\n"
    "  -h, --help              show this help.\n"
    "\n"
    "Example:\n"
    "  reset -t perstn -a cycle -i 2\n";

const char led_sh[] = ":For control LED of device";
const char led_help[] =
    "Usage:\n"
    "  led -o <ep|rc> -i <ID> -a <on|off|sb|qb>\n"
    "\n"
    "Options:\n"
    "  -o, --object <object>   ep or rc; required.\n"
    "  -i, --id <ID>           slot ID; required.\n"
    "  -a, --action <action>   on, off, sb or qb; required.\n"
    "  -h, --help              show this help.\n"
    "\n"
    "Example:\n"
    "  led -o rc -i 2 -a qb\n";

const char inverse_sh[] = ":For GPIO 8,9,10 and 11 inverse control.";
const char inverse_help[] =
    "Usage:\n"
    "  inverse -a <get|inverse|noinverse>\n"
    "\n"
    "Options:\n"
    "  -a, --action <action>   get: show the inverse status of GPIO 8 to 11;\n"
    "                          inverse / noinverse: set it; required.\n"
    "  -h, --help              show this help.\n"
    "\n"
    "Example:\n"
    "  inverse -a get\n";

int doSReset(int, char **, const Command_Info *entry)
{
    return commandNotAvailable(entry);
}
int doSLed(int, char **, const Command_Info *entry)
{
    return commandNotAvailable(entry);
}
int doInverse(int, char **, const Command_Info *entry)
{
    return commandNotAvailable(entry);
}
