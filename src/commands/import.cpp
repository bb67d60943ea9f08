// import: take over a VD, or a disk's namespace table, found on foreign disks.
#include <getopt.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "api/krt_api.h"
#include "commands/commands.h"
#include "commands/request_words.h"
#include "commands/verdict.h"
#include "util/state.h"
#include "util/text.h"

const char import_sh[] = ":For import VD";
const char import_help[] =
    "Usage:\n"
    "  import -l <VD ID> [-i <NVMe Controller ID>]\n"
    "  import -l <VD ID> -p <PD ID> [-n <NS Table ID>] [-i <NVMe Controller ID>]   (JBOF)\n"
    "\n"
    "Options:\n"
    "  -l, --ld_id <VD ID>           VD to import; always required.\n"
    "  -i, --id <ID>                 NVMe Controller (default: the current one).\n"
    "  -p, --pdid <PD ID>            disk whose namespace table is imported (JBOF,\n"
    "                                default 0).\n"
    "  -n, --nstableid <table ID>    namespace table to import, decimal or 0x hex (JBOF,\n"
    "                                default 0; 0xff is kept as typed).\n"
    "  -h, --help                    show this help.\n"
    "\n"
    "A RAID NVMe Controller imports the VD given with -l when it reports the VD as\n"
    "importable. A JBOF NVMe Controller imports the namespace table of the disk\n"
    "given with -p instead; -l is still required there, but not used.\n"
    "\n"
    "Examples:\n"
    "  import -l 1\n"
    "  import -l 0 -p 2 -n 0xff\n";

namespace {

const char kImportShortOptions[] = "\x01:i:p:n:l:h";
const option kImportLongOptions[] = {
    {"id", required_argument, nullptr, 'i'},
    {"pdid", required_argument, nullptr, 'p'},
    {"nstableid", required_argument, nullptr, 'n'},
    {"ld_id", required_argument, nullptr, 'l'},
    {"help", no_argument, nullptr, 'h'},
    {"output", required_argument, nullptr, KRT_OUTPUT_OPTION},
    {nullptr, 0, nullptr, 0},
};

// The VD record's importable flag decides whether the import is asked for.
KRT_CHECK_OFFSET(_NVME_VD_Info, Importable, 3);

constexpr KRT_U8 kImportVdSubOpcode = 6;
constexpr KRT_U8 kImportNsTableSubOpcode = 9;

// Disk, VD and table ids travel in 16-bit fields of the request.
constexpr long long kMaxFieldId = 0xFFFF;

// The table number that means every table; it is never shifted.
constexpr long long kAllTables = 0xFF;

int oneBase()
{
    return g_oneBaseMode == 1 ? 1 : 0;
}

// A typed id as the controller counts it, or -1 when the text is not a
// number, falls below the first one, or does not fit its field.
long long typedId(const char *text)
{
    if (!isNumber(text)) {
        return -1;
    }
    const long long id = std::strtoll(text, nullptr, 10) - oneBase();
    return id > kMaxFieldId ? -1 : id;
}

// A namespace table number as the controller counts it: "0x..." is read as
// hexadecimal, anything else must be decimal. -1 as for typedId.
long long typedTableId(const char *text)
{
    long long id = 0;
    if (std::strncmp(text, "0x", 2) == 0) {
        const char *digits = text + 2;
        const std::size_t length = std::strlen(digits);
        if (length == 0 || std::strspn(digits, "0123456789abcdefABCDEF") != length) {
            return -1;
        }
        const unsigned long long value = std::strtoull(digits, nullptr, 16);
        if (value > static_cast<unsigned long long>(kMaxFieldId)) {
            return -1;
        }
        id = static_cast<long long>(value);
    } else if (isNumber(text)) {
        id = std::strtoll(text, nullptr, 10);
    } else {
        return -1;
    }
    if (id != kAllTables) {
        id -= oneBase();
    }
    return id > kMaxFieldId ? -1 : id;
}

const _NVME_Adapter_Info &cachedInfo(int index)
{
    static const _NVME_Adapter_Info none{};
    if (g_pAdInfos == nullptr || index < 0 || index >= gNumAdaptersFound) {
        return none;
    }
    return g_pAdInfos[index];
}

KRT_U32 sendImport(KRT_U16 adapter, KRT_U8 cls, KRT_U8 subOpcode, KRT_U32 cdw14)
{
    krt_admin_command_format cmd{};
    cmd.CDW[0] = KRT_VENDOR_OPCODE;
    cmd.CDW[12] = krt_cdw12(cls, subOpcode, 0);
    cmd.CDW[14] = cdw14;
    cmd.cdw_flag = (1u << 0) | (1u << 12) | (1u << 14);
    printRequestWords(cmd, {0, 12, 14});
    return KRT_Adapter_PassthruAdmin(adapter, &cmd, nullptr, 0, nullptr, 0);
}

}  // namespace

int doSImport(int argc, char **argv, const Command_Info *entry)
{
    int idCount = 0, pdCount = 0, tableCount = 0, vdCount = 0;
    int adapter = gCurrentAdapter;
    long long pd = 0, table = 0, vd = 0;

    optind = 0;
    int opt;
    while ((opt = getopt_long(argc, argv, kImportShortOptions, kImportLongOptions, nullptr)) != -1) {
        switch (opt) {
            case KRT_OUTPUT_OPTION:
                break;
            case 'i': {
                const long long index = isNumber(optarg) ? std::strtoll(optarg, nullptr, 10) - oneBase() : -1;
                if (index < 0) {
                    tell(Verdict::UsageError, "-i : invalid NVMe Controller id '%s'\n", optarg);
                    return 1;
                }
                if (index >= gNumAdaptersFound) {
                    tell(Verdict::NotFound, "NVMe Controller %d does not exist.\n",
                         static_cast<int>(std::min<long long>(index, 0x7FFFFFFF)));
                    return 1;
                }
                adapter = static_cast<int>(index);
                ++idCount;
                break;
            }
            case 'p':
                pd = typedId(optarg);
                if (pd < 0) {
                    tell(Verdict::UsageError, "-p : invalid PD ID '%s'\n", optarg);
                    return 1;
                }
                ++pdCount;
                break;
            case 'n':
                table = typedTableId(optarg);
                if (table < 0) {
                    tell(Verdict::UsageError, "-n : invalid NS Table ID '%s'\n", optarg);
                    return 1;
                }
                ++tableCount;
                break;
            case 'l':
                // May be given again: the last one counts.
                vd = typedId(optarg);
                if (vd < 0) {
                    tell(Verdict::UsageError, "-l : invalid VD ID '%s'\n", optarg);
                    return 1;
                }
                ++vdCount;
                break;
            case '?':
                unknownOption();
                return 1;
            default:
                printCommandHelp(entry);
                return 0;
        }
    }

    if (argc == 1) {
        return bareCommand(entry);
    }
    if (idCount > 1 || pdCount > 1 || tableCount > 1) {
        duplicateOption();
        return 1;
    }
    if (vdCount == 0) {
        optionRequired(argv[0], 'l');
        return 1;
    }

    // From here on the outcome is reported, and the command itself succeeds.
    const KRT_U32 features = cachedInfo(adapter).Features;
    if ((features & KRT_FEATURE_IMPORT) == 0) {
        tell(Verdict::Refused, "Importable not support or parameters error.\n");
        return 0;
    }

    const KRT_U16 target = static_cast<KRT_U16>(adapter);
    if ((features & KRT_FEATURE_RAID) != 0) {
        const int shown = static_cast<int>(vd) + oneBase();
        _NVME_VD_Info record{};
        if (KRT_Adapter_GetSimpleVDInfo(target, static_cast<KRT_U16>(vd), &record) != 0) {
            tell(Verdict::NotFound, "\nUnable to get info of VD\n");
        } else if (record.Importable != 1) {
            tell(Verdict::Refused, "\nVD %d is not importable.\n", shown);
        } else if (sendImport(target, KRT_CLASS_VD, kImportVdSubOpcode, static_cast<KRT_U32>(vd)) == 0) {
            tell(Verdict::Ok, "VD %d import successfully.\n", shown);
        } else {
            tell(Verdict::RequestFailed, "\nFail to import VD %d.\n", shown);
        }
        return 0;
    }

    const int shown = static_cast<int>(table) + oneBase();
    const KRT_U32 cdw14 = (static_cast<KRT_U32>(table) << 16) | static_cast<KRT_U32>(pd);
    if (sendImport(target, KRT_CLASS_PD, kImportNsTableSubOpcode, cdw14) == 0) {
        tell(Verdict::Ok, "NS Table ID %d import successfully.\n", shown);
    } else {
        tell(Verdict::RequestFailed, "\nFail to import NS Table ID %d.\n", shown);
    }
    return 0;
}

const CommandOptions import_options = {kImportShortOptions, kImportLongOptions};
