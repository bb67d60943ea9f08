// smart: health (SMART) data of the controller, a back-end SSD or a namespace.
#include <getopt.h>
#include <strings.h>

#include <cstdio>
#include <cstdlib>

#include "api/krt_api.h"
#include "commands/commands.h"
#include "commands/smart_log.h"
#include "commands/verdict.h"
#include "util/state.h"
#include "util/text.h"

const char smart_sh[] = ":Get SSD backend RC/Slot SMART info.";
const char smart_help[] =
    "Usage:\n"
    "  smart -i <PD ID>\n"
    "  smart -o hba\n"
    "  smart -o ns -n <NSID>\n"
    "\n"
    "Shows the SMART / Health Information log (NVMe log page 2): of a back-end\n"
    "SSD (-i), of the NVMe Controller itself (-o hba: critical warning,\n"
    "temperature, spare and wear only) or of one namespace (-o ns -n).\n"
    "\n"
    "Options:\n"
    "  -i, --pd_id <PD ID>     SSD backend RC/Slot ID (as shown by 'info -o pd').\n"
    "  -o, --object <object>   hba: the NVMe Controller itself; ns: a namespace.\n"
    "  -n <NSID>               namespace ID for '-o ns' (1 or more).\n"
    "  -h, --help              show this help.\n"
    "  -i and -o cannot be used together.\n"
    "\n"
    "Examples:\n"
    "  smart -i 1\n"
    "  smart -o ns -n 1\n";

namespace {

const char kSmartShortOptions[] = "i:n:u:o:\x01:h";
const option kSmartLongOptions[] = {
    {"pd_id", required_argument, nullptr, 'i'},
    {"object", required_argument, nullptr, 'o'},
    {"output", required_argument, nullptr, KRT_OUTPUT_OPTION},
    {"help", no_argument, nullptr, 'h'},
    {nullptr, 0, nullptr, 0},
};

enum class SmartObject { None, Hba, Ns };

// Every record numbers SSDs and namespaces in 16 bits; a larger number
// would name another object once cut down to fit the request.
constexpr unsigned long long kLargestId = 0xFFFF;

// Decimal digits only (isNumber), within kLargestId.
bool readId(const char *text, unsigned long long *value)
{
    if (!isNumber(text))
        return false;
    *value = std::strtoull(text, nullptr, 10);
    return *value <= kLargestId;
}

// The vendor request for the SMART log of a namespace: sub-command 0x08E5
// with the namespace ID in the upper half of CDW12.
constexpr KRT_U32 kNamespaceSmartSub = 0x08E5;
constexpr KRT_U16 kNamespaceSmartFlag = 0x1601;  // CDW0, 9, 10, 12
constexpr KRT_U16 kDiskSmartFlag = 0xC403;       // CDW0, 1, 10, 14, 15
constexpr KRT_U32 kAllNamespaces = 0xFFFFFFFF;

KRT_U32 diskSmart(KRT_U32 pdId, _krt_smart_log &log)
{
    krt_admin_command_format cmd{};
    cmd.CDW[0] = KRT_PD_CMD_FROM_DISK;
    cmd.CDW[1] = pdId;
    cmd.CDW[10] = NVME_SMART_LOG_CDW10;
    cmd.CDW[14] = NVME_ADMIN_GET_LOG_PAGE;
    cmd.CDW[15] = kAllNamespaces;
    cmd.cdw_flag = kDiskSmartFlag;
    return KRT_Adapter_PassthruAdmin(gCurrentAdapter, &cmd, nullptr, 0, &log, sizeof log);
}

KRT_U32 controllerSmart(_krt_smart_log &log)
{
    const KRT_U32 cdw10 = NVME_SMART_LOG_CDW10;
    return KRT_Adapter_Admin(gCurrentAdapter, NVME_ADMIN_GET_LOG_PAGE, kAllNamespaces, &cdw10, 1, nullptr, 0, &log,
                             sizeof log);
}

KRT_U32 namespaceSmart(KRT_U32 nsid, _krt_smart_log &log)
{
    krt_admin_command_format cmd{};
    cmd.CDW[0] = KRT_VENDOR_OPCODE;
    cmd.CDW[9] = sizeof log;
    cmd.CDW[10] = sizeof log / 4 - 1;
    cmd.CDW[12] = (nsid << 16) | kNamespaceSmartSub;
    cmd.cdw_flag = kNamespaceSmartFlag;
    if (dbg_enable) {
        std::fprintf(stream, "CDW[0]  : 0x%08x\n", cmd.CDW[0]);
        std::fprintf(stream, "CDW[9]  : 0x%08x\n", cmd.CDW[9]);
        std::fprintf(stream, "CDW[10] : 0x%08x\n", cmd.CDW[10]);
        std::fprintf(stream, "CDW[12] : 0x%08x\n", cmd.CDW[12]);
    }
    return KRT_Adapter_PassthruAdmin(gCurrentAdapter, &cmd, nullptr, 0, &log, sizeof log);
}

}  // namespace

int doSmart(int argc, char **argv, const Command_Info *entry)
{
    unsigned long long pdId = 0;
    unsigned long long nsid = 0;
    SmartObject object = SmartObject::None;
    int idCount = 0, objectCount = 0, nsidCount = 0;

    optind = 0;
    int opt;
    while ((opt = getopt_long(argc, argv, kSmartShortOptions, kSmartLongOptions, nullptr)) != -1) {
        switch (opt) {
            case KRT_OUTPUT_OPTION:
                break;
            case 'i':
                // The message names the controller, as it always has.
                if (!readId(optarg, &pdId) || (g_oneBaseMode == 1 && pdId == 0)) {
                    tell(Verdict::UsageError, "-i : invalid NVMe Controller id '%s'\n", optarg);
                    return 0;
                }
                if (g_oneBaseMode == 1)
                    --pdId;
                ++idCount;
                break;
            case 'o':
                if (strcasecmp(optarg, "hba") == 0) {
                    object = SmartObject::Hba;
                } else if (strcasecmp(optarg, "ns") == 0) {
                    object = SmartObject::Ns;
                } else {
                    tell(Verdict::UsageError, "-o : invalid object '%s'\n", optarg);
                    return 0;
                }
                ++objectCount;
                break;
            case 'n':
                if (!readId(optarg, &nsid) || nsid == 0) {
                    tell(Verdict::UsageError, "-n : invalid namespace id '%s'\n", optarg);
                    return 0;
                }
                ++nsidCount;
                break;
            case '?':
                unknownOption();  // getopt has said what was wrong
                return 0;
            default:
                // -h and -u.
                printCommandHelp(entry);
                return 0;
        }
    }

    if (argc == 1) {
        return bareCommand(entry);
    }
    if (idCount != 0 && objectCount != 0) {
        tell(Verdict::UsageError, "%s: option -%c is not required\n", argv[0], 'i');
        return 0;
    }
    if (idCount == 0 && objectCount == 0) {
        optionRequired(argv[0], 'i');
        return 0;
    }
    if (idCount > 1 || objectCount > 1) {
        duplicateOption();
        return 1;
    }
    if (object == SmartObject::Ns && nsidCount == 0) {
        // Deliberately the same letter as when nothing at all is named.
        optionRequired(argv[0], 'i');
        return 0;
    }

    _krt_smart_log log{};
    KRT_U32 status;
    if (idCount != 0) {
        status = diskSmart(static_cast<KRT_U32>(pdId), log);
    } else if (object == SmartObject::Hba) {
        status = controllerSmart(log);
    } else {
        status = namespaceSmart(static_cast<KRT_U32>(nsid), log);
    }
    if (status != 0) {
        tell(Verdict::RequestFailed, "get smart info failed.\n");
        return static_cast<int>(status);
    }

    if (object == SmartObject::Ns) {
        showLogSmartInfo_no_calculator(log, 0,
                                       {SmartSubject::Kind::Namespace, gCurrentAdapter, static_cast<long>(nsid)});
    } else if (object == SmartObject::Hba) {
        showLogSmartInfo(log, 1, {SmartSubject::Kind::Controller, gCurrentAdapter, 0});
    } else {
        showLogSmartInfo(log, 0,
                         {SmartSubject::Kind::PhysicalDisk, gCurrentAdapter,
                          static_cast<long>(pdId) + (g_oneBaseMode == 1 ? 1 : 0)});
    }
    return 0;
}

const CommandOptions smart_options = {kSmartShortOptions, kSmartLongOptions};
