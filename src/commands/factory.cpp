// Hardware diagnostics and factory tools. These commands serve factory and
// field-service work on the controller; this program lists them but does not
// carry them out.
#include "commands/commands.h"
#include "commands/unavailable.h"

// The long help of every one of them.
#define KRT_FACTORY_HELP(name)                                                    \
    "Usage:\n"                                                                    \
    "  " name                                                                     \
    " [options]\n"                                                                \
    "\n"                                                                          \
    "  This command is reserved for factory and field-service use; its options\n" \
    "  are not described here.\n"                                                 \
    "\n"                                                                          \
    "Options:\n"                                                                  \
    "  -h, --help   show this help.\n"                                            \
    "\n"                                                                          \
    "Example:\n"                                                                  \
    "  " name " -h\n"

const char vpd_sh[] = ":For switch VPD access target";
const char vpd_help[] = KRT_FACTORY_HELP("vpd");
const char dumphba_sh[] = ":For dump hba info data structure";
const char dumphba_help[] = KRT_FACTORY_HELP("dumphba");
const char gpio_sh[] = ":For GPIO setting in HBA info (Only for GPIO 4 to 7)";
const char gpio_help[] = KRT_FACTORY_HELP("gpio");
const char vpdread_sh[] = ":Read VPD via standard MI-Send and MI-Receive";
const char vpdread_help[] = KRT_FACTORY_HELP("vpdread");
const char gen_sh[] =
    ":Using for generate PRP data which file name is prp_data and size is 4K for nvme standard admin command";
const char gen_help[] = KRT_FACTORY_HELP("gen");
const char reg_sh[] = ":For read and write PCIe register. Maximal size of data is 4 bytes.";
const char reg_help[] = KRT_FACTORY_HELP("reg");
const char dvf_sh[] = ":For control manufacture flash tool";
const char dvf_help[] = KRT_FACTORY_HELP("dvf");
const char protect_sh[] = ":For control protection area";
const char protect_help[] = KRT_FACTORY_HELP("protect");
const char i2c_sh[] = ":For test i2c device";
const char i2c_help[] = KRT_FACTORY_HELP("i2c");
const char pcie_sh[] = ":For get PCIe information from backend device";
const char pcie_help[] = KRT_FACTORY_HELP("pcie");
const char sriov_sh[] = ":For control SRIOV feature";
const char sriov_help[] = KRT_FACTORY_HELP("sriov");
const char hotkey_sh[] = ":For hotkey.";
const char hotkey_help[] = KRT_FACTORY_HELP("hotkey");
const char getoemdata_sh[] = ":For read OEM data.";
const char getoemdata_help[] = KRT_FACTORY_HELP("getoemdata");
const char mi_passthruread_sh[] = ":Read pass-through command via standard MI-Send and MI-Receive";
const char mi_passthruread_help[] = KRT_FACTORY_HELP("mi_passthruread");
const char mi_passthruwrite_sh[] = ":Write pass-through command via standard MI-Send";
const char mi_passthruwrite_help[] = KRT_FACTORY_HELP("mi_passthruwrite");
const char vm_cmd_sh[] = ":For get PCIe advanced error reporting from backend PD";
const char vm_cmd_help[] = KRT_FACTORY_HELP("vm_cmd");

int doSVPD(int, char **, const Command_Info *entry)
{
    return commandNotAvailable(entry);
}
int doSDUMPHBA(int, char **, const Command_Info *entry)
{
    return commandNotAvailable(entry);
}
int doSGPIO(int, char **, const Command_Info *entry)
{
    return commandNotAvailable(entry);
}
int doVPDRead(int, char **, const Command_Info *entry)
{
    return commandNotAvailable(entry);
}
int doGen(int, char **, const Command_Info *entry)
{
    return commandNotAvailable(entry);
}
int doSReg(int, char **, const Command_Info *entry)
{
    return commandNotAvailable(entry);
}
int doSDVF(int, char **, const Command_Info *entry)
{
    return commandNotAvailable(entry);
}
int doSProtect(int, char **, const Command_Info *entry)
{
    return commandNotAvailable(entry);
}
int doSi2c(int, char **, const Command_Info *entry)
{
    return commandNotAvailable(entry);
}
int doSpcie(int, char **, const Command_Info *entry)
{
    return commandNotAvailable(entry);
}
int doSSRIOV(int, char **, const Command_Info *entry)
{
    return commandNotAvailable(entry);
}
int doHotkey(int, char **, const Command_Info *entry)
{
    return commandNotAvailable(entry);
}
int doSGetOEMdata(int, char **, const Command_Info *entry)
{
    return commandNotAvailable(entry);
}
int doMIPassthruRead(int, char **, const Command_Info *entry)
{
    return commandNotAvailable(entry);
}
int doMIPassthruWrite(int, char **, const Command_Info *entry)
{
    return commandNotAvailable(entry);
}
int doSVM_cmd(int, char **, const Command_Info *entry)
{
    return commandNotAvailable(entry);
}
