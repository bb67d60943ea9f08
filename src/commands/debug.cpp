// The hidden --debug switch (request words on screen) and debuglv (what the
// controller firmware logs).
#include <getopt.h>
#include <strings.h>

#include "api/krt_api.h"
#include "commands/commands.h"
#include "commands/request_words.h"
#include "commands/verdict.h"
#include "util/state.h"

// --debug is hidden and has no help of its own.
const char debug_sh[] = "";
const char debug_help[] = "";

const char debuglv_sh[] = ":For switch debug level target";
const char debuglv_help[] =
    "\n"
    "Usage: debuglv -t <0|1>\n"
    "\n"
    "Chooses which messages the NVMe Controller firmware logs.\n"
    "\n"
    "Options:\n"
    "  -t, --target <0|1>\n"
    "        0: normal messages; 1: error messages only. Required.\n"
    "  -h, --help\n"
    "        Show this help.\n"
    "\n"
    "Example:\n"
    "  debuglv -t 1\n";

namespace {

const char kDebugShortOptions[] = "\x01:a:h";
const option kDebugLongOptions[] = {
    {"action", required_argument, nullptr, 'a'},
    {"help", no_argument, nullptr, 'h'},
    {"output", required_argument, nullptr, KRT_OUTPUT_OPTION},
    {nullptr, 0, nullptr, 0},
};

const char kDebuglvShortOptions[] = "\x01:t:h";
const option kDebuglvLongOptions[] = {
    {"target", required_argument, nullptr, 't'},
    {"help", no_argument, nullptr, 'h'},
    {"output", required_argument, nullptr, KRT_OUTPUT_OPTION},
    {nullptr, 0, nullptr, 0},
};

// Sub-command of the controller class that sets the firmware's log level.
constexpr KRT_U8 kDebugLevelSubOpcode = 0x12;

}  // namespace

int doDebug(int argc, char **argv, const Command_Info *entry)
{
    // Only "disable" turns debugging off: a bare --debug, or any other word,
    // turns it on.
    bool enable = true;

    optind = 0;
    int opt;
    while ((opt = getopt_long(argc, argv, kDebugShortOptions, kDebugLongOptions, nullptr)) != -1) {
        if (opt == '?') {
            break;
        }
        if (opt == 'h') {
            printCommandHelp(entry);
            return 0;
        }
        if (opt == 'a') {
            enable = strcasecmp(optarg, "disable") != 0;
        }
    }

    dbg_enable = enable ? 1 : 0;
    tell(Verdict::Ok, "Set debug mode to %s\n", enable ? "enable" : "disable");
    return 0;
}

int doSDEBUGLV(int argc, char **argv, const Command_Info *entry)
{
    int targetCount = 0;
    KRT_U16 target = 0;

    optind = 0;
    int opt;
    while ((opt = getopt_long(argc, argv, kDebuglvShortOptions, kDebuglvLongOptions, nullptr)) != -1) {
        switch (opt) {
            case KRT_OUTPUT_OPTION:
                break;
            case 't':
                if (strcasecmp(optarg, "0") == 0) {
                    target = 0;
                } else if (strcasecmp(optarg, "1") == 0) {
                    target = 1;
                } else {
                    tell(Verdict::UsageError, "-t : invalid target '%s'.\n", optarg);
                    return 0;
                }
                ++targetCount;
                break;
            case 'h':
                printCommandHelp(entry);
                return 0;
            default:
                // getopt has said what was wrong.
                unknownOption();
                return 0;
        }
    }

    if (argc == 1) {
        return bareCommand(entry);
    }
    if (targetCount > 1) {
        duplicateOption();
        return 1;
    }
    if (targetCount == 0) {
        optionRequired(argv[0], 't');
        return 0;
    }

    krt_admin_command_format cmd{};
    cmd.CDW[0] = KRT_VENDOR_OPCODE;
    cmd.CDW[12] = krt_cdw12(KRT_CLASS_ADAPTER, kDebugLevelSubOpcode, target);
    cmd.cdw_flag = (1u << 0) | (1u << 12);
    printRequestWords(cmd, {0, 12});

    const KRT_U32 status = KRT_Adapter_PassthruAdmin(gCurrentAdapter, &cmd, nullptr, 0, nullptr, 0);
    const char *what = target == 0 ? "normal" : "error only";
    if (status == 0) {
        tell(Verdict::Ok, "debug level access to %s success.\n", what);
    } else {
        tell(Verdict::RequestFailed, "debug level access to %s failed.\n", what);
    }
    return static_cast<int>(status);
}

const CommandOptions debug_options = {kDebugShortOptions, kDebugLongOptions};
const CommandOptions debuglv_options = {kDebuglvShortOptions, kDebuglvLongOptions};
