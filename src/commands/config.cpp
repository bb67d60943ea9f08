// get and set: the controller-wide settings (auto rebuild, BGA rate).
#include <getopt.h>
#include <strings.h>

#include <cstdlib>
#include <cstring>
#include <memory>

#include "api/krt_api.h"
#include "commands/commands.h"
#include "commands/request_words.h"
#include "commands/verdict.h"
#include "util/fields.h"
#include "util/state.h"
#include "util/text.h"

const char get_sh[] = ":For getting configuration information of NVMe Controller.";
const char get_help[] =
    "Usage:\n"
    "  get -o hba [-i <NVMe Controller ID>]\n"
    "\n"
    "Options:\n"
    "  -o, --object hba     the NVMe Controller; required.\n"
    "  -i, --id <ID>        the NVMe Controller to show (default: the one the command\n"
    "                       line begins with, else every NVMe Controller).\n"
    "  -h, --help           show this help.\n"
    "\n"
    "Shows the auto rebuild setting and the BGA rate of a RAID NVMe Controller.\n"
    "NVMe Controllers 0 and 1 are the ones that can be asked for by ID.\n"
    "\n"
    "Examples:\n"
    "  get -o hba\n"
    "  get -o hba -i 1\n";

const char set_sh[] = ":For setting configuration parameters of NVMe Controller.";
const char set_help[] =
    "Usage:\n"
    "  set -o hba -i <NVMe Controller ID> [-a <on|off>] [-r <high|medium|low>]\n"
    "\n"
    "Options:\n"
    "  -o, --object hba              the NVMe Controller; required.\n"
    "  -i, --id <ID>                 the NVMe Controller; required unless the command\n"
    "                                line begins with an Adapter ID.\n"
    "  -a, --autorebuild <on|off>    rebuild a failed VD automatically or not.\n"
    "  -r, --bgarate <rate>          share of the controller for BGA: high, medium or low.\n"
    "  -h, --help                    show this help.\n"
    "\n"
    "Reads the settings of a RAID NVMe Controller, changes the ones given and writes\n"
    "them back. Values may be typed in any case.\n"
    "\n"
    "Examples:\n"
    "  set -o hba -i 0 -a on -r medium\n"
    "  krt_cli 1 set -o hba -r low\n";

namespace {

const char kGetShortOptions[] = "\x01:o:i:h";
const option kGetLongOptions[] = {
    {"object", required_argument, nullptr, 'o'},
    {"id", required_argument, nullptr, 'i'},
    {"help", no_argument, nullptr, 'h'},
    {"output", required_argument, nullptr, KRT_OUTPUT_OPTION},
    {nullptr, 0, nullptr, 0},
};

// -c and -n are taken by the parser and answered with the help.
const char kSetShortOptions[] = "\x01:a:c:o:i:r:n:v:h";
const option kSetLongOptions[] = {
    {"autorebuild", required_argument, nullptr, 'a'},
    {"bgarate", required_argument, nullptr, 'r'},
    {"object", required_argument, nullptr, 'o'},
    {"id", required_argument, nullptr, 'i'},
    {"vid", required_argument, nullptr, 'v'},
    {"name", required_argument, nullptr, 'n'},
    {"help", no_argument, nullptr, 'h'},
    {"output", required_argument, nullptr, KRT_OUTPUT_OPTION},
    {nullptr, 0, nullptr, 0},
};

// The settings record as the controller sends it, after the reply head.
KRT_CHECK_OFFSET(_NVME_Adapter_Config, AutoRebuildOn, 0);
KRT_CHECK_OFFSET(_NVME_Adapter_Config, BGARate, 1);

// The settings live in the controller-class requests: read is sub-command 1,
// write sub-command 2. The read names its reply length in dwords minus one.
constexpr KRT_U8 kReadConfigSubOpcode = 1;
constexpr KRT_U8 kWriteConfigSubOpcode = 2;
constexpr KRT_U32 kReadConfigCdw10 = KRT_BUFFER_SIZE / 4 - 1;

constexpr KRT_U8 kRateHigh = 0;
constexpr KRT_U8 kRateMedium = 2;
constexpr KRT_U8 kRateLow = 32;

constexpr int kConfigLabelWidth = 24;

// "All controllers" as the target of get.
constexpr int kAllAdapters = 255;

const char kJbofRefused[] = "This feature is not support JBOF.\n";
const char kUnableToGet[] = "\nUnable to get configuration of NVMe Controller %d\n";

// A typed number; isNumber has vouched for the digits. Too many digits
// saturate rather than overflow, and then fail the range checks.
long long typedNumber(const char *text)
{
    return std::strtoll(text, nullptr, 10);
}

int oneBase()
{
    return g_oneBaseMode == 1 ? 1 : 0;
}

// The record start-up cached for a controller; a zeroed one (a JBOF
// controller, as far as these commands care) when there is none.
const _NVME_Adapter_Info &cachedInfo(int index)
{
    static const _NVME_Adapter_Info none{};
    if (g_pAdInfos == nullptr || index < 0 || index >= gNumAdaptersFound) {
        return none;
    }
    return g_pAdInfos[index];
}

bool isRaid(int index)
{
    return (cachedInfo(index).Features & KRT_FEATURE_RAID) != 0;
}

// -i as the user counts controllers. False, after the message, for a
// number that names no controller; set also calls a non-number invalid.
bool typedAdapter(const char *text, bool nonNumberIsInvalid, int &index)
{
    if (!isNumber(text)) {
        tell(Verdict::UsageError, "-i : id is not a number\n");
        if (nonNumberIsInvalid) {
            std::fprintf(stream, ErrorInvalidId, text);
        }
        return false;
    }
    const long long number = typedNumber(text) - oneBase();
    if (number < 0) {
        tell(Verdict::UsageError, ErrorInvalidId, text);
        return false;
    }
    if (number > gNumAdaptersFound - 1) {
        tell(Verdict::NotFound, ErrorInvalidId, text);
        return false;
    }
    index = static_cast<int>(number);
    return true;
}

krt_admin_command_format readConfigRequest()
{
    krt_admin_command_format cmd{};
    cmd.CDW[0] = KRT_VENDOR_OPCODE;
    cmd.CDW[10] = kReadConfigCdw10;
    cmd.CDW[12] = krt_cdw12(KRT_CLASS_ADAPTER, kReadConfigSubOpcode, 0);
    cmd.cdw_flag = (1u << 0) | (1u << 10) | (1u << 12);
    return cmd;
}

// Reads the settings into `reply` (zeroed first). The result is the
// request's status cut to 8 bits, or, when the controller answered, the
// reply's own verdict: 1 for a reply without our signature, else its status.
int readConfig(KRT_U16 adapter, const krt_admin_command_format &cmd, _NVMEReceiveData &reply)
{
    std::memset(&reply, 0, sizeof(reply));
    const KRT_U32 status = KRT_Adapter_PassthruAdmin(adapter, &cmd, nullptr, 0, &reply, sizeof(reply));
    const int low = static_cast<int>(status & 0xFF);
    if (low != 0) {
        return low;
    }
    if (std::memcmp(reply.sign, KRT_SIGN, sizeof(KRT_SIGN)) != 0) {
        return 1;
    }
    return reply.cmd_status;
}

_NVME_Adapter_Config configOf(const _NVMEReceiveData &reply)
{
    _NVME_Adapter_Config config;
    std::memcpy(&config, reply.data, sizeof(config));
    return config;
}

const char *rateText(KRT_U8 rate)
{
    switch (rate) {
        case kRateHigh:
            return "High";
        case kRateMedium:
            return "Medium";
        case kRateLow:
            return "Low";
        default:
            return "Unknown";
    }
}

// The settings of the controller `adapter` (its index), on `text` (none:
// only in the JSON document).
void Adapter_PrintConfig(const _NVME_Adapter_Config &config, int adapter, std::FILE *text = stream)
{
    const FieldWriter out(text, kConfigLabelWidth);
    out.beginRecord("settings");
    out.extra("index", json_output::Value::number(adapter));
    out.extra("nvme_controller_id", json_output::Value::number(adapter + oneBase()));
    out.choice("Auto Rebuild:", config.AutoRebuildOn == 1 ? "on" : "off", config.AutoRebuildOn);
    out.choice("BGA Rate:", rateText(config.BGARate), config.BGARate);
    out.endRecord();
    out.heading("\n");
}

void printSettingsWords(const krt_admin_command_format &cmd, bool withCdw14)
{
    if (withCdw14)
        printRequestWords(cmd, {0, 10, 12, 14});
    else
        printRequestWords(cmd, {0, 10, 12});
}

}  // namespace

int doSGet(int argc, char **argv, const Command_Info *entry)
{
    int objectCount = 0, idCount = 0;
    int id = 0;

    optind = 0;
    int opt;
    while ((opt = getopt_long(argc, argv, kGetShortOptions, kGetLongOptions, nullptr)) != -1) {
        switch (opt) {
            case KRT_OUTPUT_OPTION:
                break;
            case 'i':
                if (!typedAdapter(optarg, false, id)) {
                    return 1;
                }
                ++idCount;
                break;
            case 'o':
                if (strcasecmp(optarg, "hba") != 0) {
                    tell(Verdict::UsageError, "-o : invalid object '%s', should be NVMe Controller\n", optarg);
                    return 1;
                }
                ++objectCount;
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
    if (idCount > 1 || objectCount > 1) {
        duplicateOption();
        return 1;
    }
    if (objectCount == 0) {
        optionRequired(argv[0], 'o');
        return 1;
    }

    // Whichever controller is asked for, the RAID test looks at the one the
    // command line addresses.
    int target = kAllAdapters;
    if (idCount != 0) {
        target = id;
    } else if (gSpecificAdapterFlag == 1) {
        target = gCurrentAdapter;
    }
    if (!isRaid(gCurrentAdapter)) {
        // The result is the length of the message, as scripts have long seen it.
        return tell(Verdict::Refused, kJbofRefused);
    }

    auto reply = std::make_unique<_NVMEReceiveData>();
    const krt_admin_command_format cmd = readConfigRequest();
    printSettingsWords(cmd, false);

    int result = 0;
    if (target == kAllAdapters) {
        // One pass per controller, each asking the addressed one: the
        // listing has always read it so.
        const int passes = KRT_Adapter_GetCount();
        for (int pass = 0; pass < passes && result == 0; ++pass) {
            result = readConfig(gCurrentAdapter, cmd, *reply);
            if (result == 0) {
                Adapter_PrintConfig(configOf(*reply), gCurrentAdapter);
            }
        }
    } else if (target > 1) {
        // Only the first two controllers are served by id.
        result = 1;
    } else {
        result = readConfig(static_cast<KRT_U16>(target), cmd, *reply);
        if (result == 0) {
            Adapter_PrintConfig(configOf(*reply), target);
        }
    }

    if (result != 0) {
        // A controller that is not served names nothing; any other failure
        // is the controller's answer.
        if (target > 1 && target != kAllAdapters)
            tell(Verdict::NotFound, kUnableToGet, target);
        else
            tellFailed(static_cast<KRT_U32>(result), kUnableToGet, target);
    }
    return result;
}

int doSSet(int argc, char **argv, const Command_Info *entry)
{
    int objectCount = 0, idCount = 0, rateCount = 0;
    int id = 0;
    bool haveAutoRebuild = false;
    KRT_U8 autoRebuild = 0;
    KRT_U8 rate = 0;

    optind = 0;
    int opt;
    while ((opt = getopt_long(argc, argv, kSetShortOptions, kSetLongOptions, nullptr)) != -1) {
        switch (opt) {
            case KRT_OUTPUT_OPTION:
                break;
            case 'i':
                if (!typedAdapter(optarg, true, id)) {
                    return 1;
                }
                ++idCount;
                break;
            case 'a':
                if (strcasecmp(optarg, "off") == 0) {
                    autoRebuild = 0;
                } else if (strcasecmp(optarg, "on") == 0) {
                    autoRebuild = 1;
                } else {
                    // The message has always named -c.
                    tell(Verdict::UsageError, "-c : invalid auto rebuild mode '%s'\n", optarg);
                    return 1;
                }
                haveAutoRebuild = true;
                break;
            case 'r':
                if (strcasecmp(optarg, "high") == 0) {
                    rate = kRateHigh;
                } else if (strcasecmp(optarg, "medium") == 0) {
                    rate = kRateMedium;
                } else if (strcasecmp(optarg, "low") == 0) {
                    rate = kRateLow;
                } else {
                    tell(Verdict::UsageError, "-r : invalid BGA rate '%s'\n", optarg);
                    return 1;
                }
                ++rateCount;
                break;
            case 'v': {
                // Checked for old scripts' sake, then unused.
                const long long number = isNumber(optarg) ? typedNumber(optarg) : 0;
                const KRT_U16 index = static_cast<KRT_U16>(number - oneBase());
                if (!isNumber(optarg) || index > gNumAdaptersFound - 1) {
                    tell(Verdict::UsageError, "-v : invalid vd id '%s'\n", optarg);
                    return 1;
                }
                break;
            }
            case 'o':
                if (strcasecmp(optarg, "hba") != 0) {
                    tell(Verdict::UsageError, "-o : invalid object '%s'\n", optarg);
                    return 1;
                }
                ++objectCount;
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
    if (objectCount > 1 || idCount > 1 || rateCount > 1) {
        duplicateOption();
        return 1;
    }
    if (idCount == 0) {
        if (objectCount == 0 || gSpecificAdapterFlag != 1) {
            optionRequired(argv[0], 'i');
            return 1;
        }
        id = gCurrentAdapter;
    }
    if (objectCount == 0) {
        optionRequired(argv[0], 'o');
        return 1;
    }
    if (!isRaid(id)) {
        tell(Verdict::Refused, kJbofRefused);
        return 1;
    }

    // Read, change what was given, write back: the record's reserved bytes
    // are the controller's, and only the two settings go out.
    auto reply = std::make_unique<_NVMEReceiveData>();
    if (const int status = readConfig(static_cast<KRT_U16>(id), readConfigRequest(), *reply); status != 0) {
        tellFailed(static_cast<KRT_U32>(status), "\nUnable to get configuration info of adapter %d\n", id);
        return 1;
    }
    _NVME_Adapter_Config config = configOf(*reply);
    if (haveAutoRebuild) {
        config.AutoRebuildOn = autoRebuild;
    }
    if (rateCount != 0) {
        config.BGARate = rate;
    }
    if (!haveAutoRebuild && rateCount == 0) {
        tell(Verdict::UsageError, "Invalid setting(s) for HBA\n");
        return 0;
    }

    krt_admin_command_format cmd{};
    cmd.CDW[0] = KRT_VENDOR_OPCODE;
    cmd.CDW[10] = 0;
    cmd.CDW[12] = krt_cdw12(KRT_CLASS_ADAPTER, kWriteConfigSubOpcode, 0);
    cmd.CDW[14] = static_cast<KRT_U32>(config.BGARate) * 256 + config.AutoRebuildOn;
    cmd.cdw_flag = (1u << 0) | (1u << 10) | (1u << 12) | (1u << 14);
    printSettingsWords(cmd, true);

    if (KRT_Adapter_PassthruAdmin(static_cast<KRT_U16>(id), &cmd, nullptr, 0, nullptr, 0) != 0) {
        tell(Verdict::RequestFailed, "\nFailed to configure hba %d\n", id);
        return 1;
    }
    tell(Verdict::Ok, "HBA configuration is updated.\n");
    // What the controller now holds, for a script that changed it.
    Adapter_PrintConfig(config, id, nullptr);
    return 0;
}

const CommandOptions get_options = {kGetShortOptions, kGetLongOptions};
const CommandOptions set_options = {kSetShortOptions, kSetLongOptions};
