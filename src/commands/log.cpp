// log: the controller's SPI debug log.
#include "commands/commands.h"
#include "commands/unavailable.h"

const char log_sh[] = ":For show/on/off SPI log";
const char log_help[] =
    "Usage:\n"
    "  log -a <show|on|off> [--outputfile <file>]\n"
    "\n"
    "Options:\n"
    "  -a, --action <action>    show: read the SPI log out; on/off: switch logging.\n"
    "  --outputfile <file>      with 'show', also save the log into <file>.\n"
    "  -h, --help               show this help.\n"
    "\n"
    "Example:\n"
    "  log -a show --outputfile spi_log.txt\n";

int doSLog(int, char **, const Command_Info *entry)
{
    return commandNotAvailable(entry);
}
