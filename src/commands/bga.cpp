// init, mp and rebuild: the background activities of a virtual disk.
#include <getopt.h>
#include <strings.h>

#include <cstdlib>
#include <cstring>

#include "api/krt_api.h"
#include "commands/commands.h"
#include "commands/info.h"
#include "commands/request_words.h"
#include "commands/verdict.h"
#include "util/state.h"
#include "util/text.h"

// The helps call the long form of -i --id (init, rebuild) and --vdid (mp), as
// they always have; the option tables know only --vd_id, and scripts rely on it.
const char init_sh[] = ":For start or stop VD initialization.";
const char init_help[] =
    "\n"
    "Usage: init -i <VD ID> [-a <start|stop>]\n"
    "\n"
    "Starts a full background initialization of a virtual disk, or stops the one\n"
    "that runs. 'info -o vd' shows its progress.\n"
    "\n"
    "Options:\n"
    "  -i, --id <VD ID>\n"
    "        The VD. Required.\n"
    "  -a, --action <start|stop>\n"
    "        Start (the default) or stop the initialization. A stop is refused\n"
    "        while the NVMe Controller runs another kind of activity.\n"
    "  -h, --help\n"
    "        Show this help.\n"
    "\n"
    "Examples:\n"
    "  init -i 1\n"
    "  init -i 1 -a stop\n";

const char mp_sh[] = ":For start or stop media patrol for a virtual disk.";
const char mp_help[] =
    "\n"
    "Usage: mp -i <VD ID> [-a <start|stop>]\n"
    "\n"
    "Starts media patrol on a virtual disk, or stops the one that runs.\n"
    "Only RAID1 and RAID10 support media patrol. 'info -o vd' shows its progress.\n"
    "\n"
    "Options:\n"
    "  -i, --vdid <VD ID>\n"
    "        The VD. Required.\n"
    "  -a, --action <start|stop>\n"
    "        Start (the default) or stop media patrol. A stop is refused while\n"
    "        the NVMe Controller runs another kind of activity.\n"
    "  -h, --help\n"
    "        Show this help.\n"
    "\n"
    "Examples:\n"
    "  mp -i 1\n"
    "  mp -i 1 -a stop\n";

const char rebuild_sh[] = ":For start or stop VD rebuild.";
const char rebuild_help[] =
    "\n"
    "Usage: rebuild -i <VD ID> [-a start] -d <PD ID>\n"
    "       rebuild -i <VD ID> -a stop\n"
    "\n"
    "Rebuilds a degraded virtual disk onto a physical disk, which takes the\n"
    "missing member's place when the rebuild has finished, or stops the rebuild\n"
    "that runs. 'info -o vd' shows its progress.\n"
    "\n"
    "Options:\n"
    "  -i, --id <VD ID>\n"
    "        The VD. Required.\n"
    "  -a, --action <start|stop>\n"
    "        Start (the default) or stop the rebuild. A stop is refused while the\n"
    "        NVMe Controller runs another kind of activity.\n"
    "  -d, --pd_id <PD ID>\n"
    "        The PD to rebuild onto. Required with '-a start'; without any -a\n"
    "        the rebuild goes onto PD 0 unless -d names another.\n"
    "  -h, --help\n"
    "        Show this help.\n"
    "\n"
    "Examples:\n"
    "  rebuild -i 1 -a start -d 3\n"
    "  rebuild -i 1 -a stop\n";

namespace {

enum class Activity { Init, MediaPatrol, Rebuild };

const char kInitShortOptions[] = "\x01:a:i:h";
const char kRebuildShortOptions[] = "\x01:a:i:d:h";
const option kBgaLongOptions[] = {
    {"action", required_argument, nullptr, 'a'},
    {"vd_id", required_argument, nullptr, 'i'},
    {"help", no_argument, nullptr, 'h'},
    {"output", required_argument, nullptr, KRT_OUTPUT_OPTION},
    {nullptr, 0, nullptr, 0},
};
const option kRebuildLongOptions[] = {
    {"action", required_argument, nullptr, 'a'},
    {"vd_id", required_argument, nullptr, 'i'},
    {"pd_id", required_argument, nullptr, 'd'},
    {"help", no_argument, nullptr, 'h'},
    {"output", required_argument, nullptr, KRT_OUTPUT_OPTION},
    {nullptr, 0, nullptr, 0},
};

// Sub-commands of the background-activity class.
constexpr KRT_U8 kStatusSubOpcode = 2;
constexpr KRT_U8 kStopSubOpcode = 4;
constexpr KRT_U8 kInitSubOpcode = 6;
constexpr KRT_U8 kRebuildSubOpcode = 7;
constexpr KRT_U8 kMediaPatrolSubOpcode = 0x0A;
// CDW14 bits 16-23 of a start of initialisation (full) and of a stop.
constexpr KRT_U32 kFullInit = 2;
constexpr KRT_U32 kStopAction = 3;
// CDW0, CDW12 and CDW14.
constexpr KRT_U16 kBgaCdwFlag = 0x5001;
// VD and PD ids travel in 16 bits of CDW14.
constexpr long kMaxId = 0xFFFF;

// How the refusal of a stop names the activity that runs and the one that
// was to be stopped.
struct ActivityWords {
    const char *running;
    const char *stopped;
};
ActivityWords words(Activity activity)
{
    switch (activity) {
        case Activity::Init:
            return {"doing VD initialization", "VD initialization"};
        case Activity::MediaPatrol:
            return {"doing media patrol", "media patrol"};
        case Activity::Rebuild:
            return {"rebuilding", "VD rebuild"};
    }
    return {"", ""};
}

struct BgaOptions {
    bool stop = false;
    bool startGiven = false;  // -a start, as against no -a at all
    long vdId = 0;
    long pdId = 0;
    int actionCount = 0, idCount = 0, pdCount = 0;
};

// Reads the options of the three commands (-d for rebuild only). Returns -1
// when the command goes on, else its result.
int readOptions(int argc, char **argv, const Command_Info *entry, bool withPd, BgaOptions &o)
{
    const int base = g_oneBaseMode == 1 ? 1 : 0;
    optind = 0;
    int opt;
    while ((opt = getopt_long(argc, argv, withPd ? kRebuildShortOptions : kInitShortOptions,
                              withPd ? kRebuildLongOptions : kBgaLongOptions, nullptr)) != -1) {
        switch (opt) {
            case KRT_OUTPUT_OPTION:
                break;
            case 'a':
                if (strcasecmp(optarg, "start") == 0) {
                    o.stop = false;
                    o.startGiven = true;
                } else if (strcasecmp(optarg, "stop") == 0) {
                    o.stop = true;
                } else {
                    tell(Verdict::UsageError, "-a : invalid action '%s'.\n", optarg);
                    return 0;
                }
                ++o.actionCount;
                break;
            case 'i':
                if (isNumber(optarg)) {
                    o.vdId = std::strtol(optarg, nullptr, 10) - base;
                }
                // Negative, or too wide for its field, where it would name
                // another VD: refused alike.
                if (!isNumber(optarg) || o.vdId < 0 || o.vdId > kMaxId) {
                    tell(Verdict::UsageError, "-i : invalid vd id '%s'.\n", optarg);
                    return 0;
                }
                ++o.idCount;
                break;
            case 'd':
                if (isNumber(optarg)) {
                    o.pdId = std::strtol(optarg, nullptr, 10) - base;
                }
                if (!isNumber(optarg) || o.pdId > kMaxId) {
                    tell(Verdict::UsageError, "-d : invalid pd id '%s'.\n", optarg);
                    return 0;
                }
                if (o.pdId < 0) {
                    // Names -i, as this message always has.
                    tell(Verdict::UsageError, "-i : invalid pd id '%s'.\n", optarg);
                    return 0;
                }
                ++o.pdCount;
                break;
            case '?':
                unknownOption();
                return 0;
            default:
                printCommandHelp(entry);
                return 0;
        }
    }

    if (argc == 1) {
        return bareCommand(entry);
    }
    // A repeated -d is not counted against the user: the last one wins.
    if (o.actionCount > 1 || o.idCount > 1) {
        duplicateOption();
        return 1;
    }
    if (o.idCount == 0) {
        optionRequired(argv[0], 'i');
        return 0;
    }
    return -1;
}

// The activity that the controller runs now. The status request carries no
// VD id, so whatever runs is what a stop is measured against.
// Returns whether a stop of `activity` may be sent; a refusal has been told.
bool stopAllowed(Activity activity)
{
    auto reply = newReply();
    sendInfoQuery(gCurrentAdapter, {KRT_CLASS_BGA, kStatusSubOpcode, 0, false, 0}, *reply);
    if (reply->cmd_status != 0) {
        // A stop the controller's answer does not allow: refused without a word.
        json_output::noteResult(Verdict::Refused);
        return false;
    }
    _NVME_BGA_STATUS bga{};
    std::memcpy(&bga, reply->data, sizeof bga);
    Activity running;
    switch (bga.BgaType) {
        case KRT_BGA_INIT:
        case KRT_BGA_INIT_FULL:
            running = Activity::Init;
            break;
        case KRT_BGA_REBUILD:
            running = Activity::Rebuild;
            break;
        case KRT_BGA_MEDIA_PATROL:
            running = Activity::MediaPatrol;
            break;
        default:
            // Nothing, or an activity none of these commands stops: refused
            // without a word.
            json_output::noteResult(Verdict::Refused);
            return false;
    }
    if (running == activity) {
        return true;
    }
    tell(Verdict::Refused, "BGA is %s, it's not allowed to stop %s\n", words(running).running, words(activity).stopped);
    return false;
}

int sendActivityRequest(KRT_U8 subOpcode, KRT_U32 cdw14)
{
    krt_admin_command_format cmd{};
    cmd.CDW[0] = KRT_VENDOR_OPCODE;
    cmd.CDW[12] = krt_cdw12(KRT_CLASS_BGA, subOpcode, 0);
    cmd.CDW[14] = cdw14;
    cmd.cdw_flag = kBgaCdwFlag;
    printRequestWords(cmd, {0, 12, 14});
    const KRT_U32 status = KRT_Adapter_PassthruAdmin(gCurrentAdapter, &cmd, nullptr, 0, nullptr, 0);
    if (status == 0) {
        tell(Verdict::Ok, CmdSuccess);
    } else {
        tell(Verdict::RequestFailed, CmdFailed);
    }
    return static_cast<int>(status);
}

// The stop request is one for the three activities; only the check differs.
int stopActivity(Activity activity, long vdId)
{
    if (!stopAllowed(activity)) {
        return 0;
    }
    return sendActivityRequest(kStopSubOpcode, static_cast<KRT_U32>(vdId) | kStopAction << 16);
}

}  // namespace

int doSINIT(int argc, char **argv, const Command_Info *entry)
{
    BgaOptions o;
    if (const int result = readOptions(argc, argv, entry, false, o); result >= 0) {
        return result;
    }
    if (o.stop) {
        return stopActivity(Activity::Init, o.vdId);
    }
    return sendActivityRequest(kInitSubOpcode, static_cast<KRT_U32>(o.vdId) | kFullInit << 16);
}

int doSMP(int argc, char **argv, const Command_Info *entry)
{
    BgaOptions o;
    if (const int result = readOptions(argc, argv, entry, false, o); result >= 0) {
        return result;
    }
    if (o.stop) {
        return stopActivity(Activity::MediaPatrol, o.vdId);
    }
    return sendActivityRequest(kMediaPatrolSubOpcode, static_cast<KRT_U32>(o.vdId));
}

int doSRebuild(int argc, char **argv, const Command_Info *entry)
{
    BgaOptions o;
    if (const int result = readOptions(argc, argv, entry, true, o); result >= 0) {
        return result;
    }
    if (o.stop) {
        return stopActivity(Activity::Rebuild, o.vdId);
    }
    // An explicit start needs its target; a bare rebuild goes onto PD 0
    // unless -d names another.
    if (o.startGiven && o.pdCount == 0) {
        optionRequired(argv[0], 'd');
        return 0;
    }
    return sendActivityRequest(kRebuildSubOpcode, static_cast<KRT_U32>(o.vdId) | static_cast<KRT_U32>(o.pdId) << 16);
}

const CommandOptions init_options = {kInitShortOptions, kBgaLongOptions};
const CommandOptions mp_options = {kInitShortOptions, kBgaLongOptions};
const CommandOptions rebuild_options = {kRebuildShortOptions, kRebuildLongOptions};
