#include "commands/commands.h"
#include "shell/shell.h"

// cmdLen counts the terminator, so that a typed word equals a name exactly
// when its length plus one is cmdLen.
#define KRT_ENTRY(name, handler, texts)                                         \
    {                                                                           \
        name, sizeof(name), handler, texts##_help, texts##_sh, &texts##_options \
    }
// The factory and field-service commands read no options in this build.
#define KRT_ENTRY_NO_OPTIONS(name, handler, texts)                     \
    {                                                                  \
        name, sizeof(name), handler, texts##_help, texts##_sh, nullptr \
    }

// The order decides which entry an abbreviation reaches last and the order
// of the help listing.
const Command_Info generalCmdTableV1[] = {
    {"?", sizeof("?"), doHelp, help_help, help_q_sh, &help_options},
    KRT_ENTRY("help", doHelp, help),
    KRT_ENTRY("adapter", doAdapter, adapter),
    KRT_ENTRY("version", doVersion, version),
    KRT_ENTRY("smart", doSmart, smart),
    KRT_ENTRY("flash", doFlash, flash),
    KRT_ENTRY("log", doSLog, log),
    KRT_ENTRY("info", doSInfo, info),
    KRT_ENTRY("event", doSEvent, event),
    KRT_ENTRY("import", doSImport, import),
    KRT_ENTRY("init", doSINIT, init),
    KRT_ENTRY("mp", doSMP, mp),
    KRT_ENTRY("rebuild", doSRebuild, rebuild),
    KRT_ENTRY("debuglv", doSDEBUGLV, debuglv),
    KRT_ENTRY("get", doSGet, get),
    KRT_ENTRY("set", doSSet, set),
    KRT_ENTRY("passthru", doPassthru, passthru),
    KRT_ENTRY("spi", doSPI, spi),
    KRT_ENTRY("vd", doSVD, vd),
    KRT_ENTRY("reset", doSReset, reset),
    KRT_ENTRY("led", doSLed, led),
    KRT_ENTRY_NO_OPTIONS("vpd", doSVPD, vpd),
    KRT_ENTRY_NO_OPTIONS("dumphba", doSDUMPHBA, dumphba),
    KRT_ENTRY_NO_OPTIONS("gpio", doSGPIO, gpio),
    KRT_ENTRY("ns", doSNS, ns),
    KRT_ENTRY("identify", doIdentify, identify),
    KRT_ENTRY("inverse", doInverse, inverse),
    KRT_ENTRY_NO_OPTIONS("vpdread", doVPDRead, vpdread),
};

const Command_Info hiddenCmdTableV1[] = {
    KRT_ENTRY("--debug", doDebug, debug),
    KRT_ENTRY_NO_OPTIONS("gen", doGen, gen),
    KRT_ENTRY_NO_OPTIONS("reg", doSReg, reg),
    KRT_ENTRY_NO_OPTIONS("dvf", doSDVF, dvf),
    KRT_ENTRY_NO_OPTIONS("protect", doSProtect, protect),
    KRT_ENTRY_NO_OPTIONS("i2c", doSi2c, i2c),
    KRT_ENTRY_NO_OPTIONS("pcie", doSpcie, pcie),
    KRT_ENTRY_NO_OPTIONS("sriov", doSSRIOV, sriov),
    KRT_ENTRY_NO_OPTIONS("hotkey", doHotkey, hotkey),
    KRT_ENTRY_NO_OPTIONS("getoemdata", doSGetOEMdata, getoemdata),
    KRT_ENTRY_NO_OPTIONS("mi_passthruread", doMIPassthruRead, mi_passthruread),
    KRT_ENTRY_NO_OPTIONS("mi_passthruwrite", doMIPassthruWrite, mi_passthruwrite),
    KRT_ENTRY_NO_OPTIONS("vm_cmd", doSVM_cmd, vm_cmd),
};

static_assert(sizeof(generalCmdTableV1) / sizeof(generalCmdTableV1[0]) == 28);
static_assert(sizeof(hiddenCmdTableV1) / sizeof(hiddenCmdTableV1[0]) == 13);

KRT_U8 generalCmdTableV1Size()
{
    return sizeof(generalCmdTableV1) / sizeof(generalCmdTableV1[0]);
}
KRT_U8 hiddenCmdTableV1Size()
{
    return sizeof(hiddenCmdTableV1) / sizeof(hiddenCmdTableV1[0]);
}
