// spi: the controller's 4096-byte SPI data area.
#include "commands/commands.h"
#include "commands/unavailable.h"

const char spi_sh[] = ":Read and write SPI data. Maximal size of SPI data is 4096 bytes.";
const char spi_help[] =
    "Usage:\n"
    "  spi -t read [--outputfile <file>]\n"
    "  spi -t write --inputfile <file>\n"
    "\n"
    "Options:\n"
    "  -t, --type <read|write>   read the SPI data, or write it from a file.\n"
    "  --outputfile <file>       save the data read into <file> instead of showing it.\n"
    "  --inputfile <file>        file of up to 4096 bytes to write.\n"
    "  -h, --help                show this help.\n"
    "\n"
    "Example:\n"
    "  spi -t read --outputfile spi.bin\n";

int doSPI(int, char **, const Command_Info *entry)
{
    return commandNotAvailable(entry);
}
