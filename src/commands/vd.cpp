// vd: creating and deleting virtual disks.
#include <getopt.h>
#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "api/krt_api.h"
#include "commands/commands.h"
#include "commands/info.h"
#include "commands/request_words.h"
#include "commands/verdict.h"
#include "util/state.h"
#include "util/text.h"

const char vd_sh[] = ":For VD create and delete";
const char vd_help[] =
    "\n"
    "Usage:\n"
    "  vd -a create -r <RAID level> -d <PD ID list> [-b <128|256|512>] [-n <namespaces>]\n"
    "  vd -a delete -i <VD ID>\n"
    "\n"
    "Creates a virtual disk from physical disks, or deletes one. The NVMe Controller\n"
    "does the work; the command reports whether it was accepted.\n"
    "\n"
    "Options:\n"
    "  -a, --action <create|delete>\n"
    "        What to do. Required.\n"
    "  -r, --raidmode <0|1|10|5|50|6|60|JBOD>\n"
    "        RAID level of the new VD. Required for create.\n"
    "  -d, --pdid <PD ID list>\n"
    "        Member PDs of the new VD, separated by commas (for example 1,2,3).\n"
    "        Required for create. A PD listed twice is taken once.\n"
    "  -b, --sbs=<128|256|512>\n"
    "        Stripe block size in KB. Default 128.\n"
    "  -n, --namespace=<number>\n"
    "        Namespaces to create in the new VD; they share the VD's size equally.\n"
    "        Without it the NVMe Controller creates one.\n"
    "  -i, --vd_id <VD ID>\n"
    "        The VD to delete. Required for delete. A VD that holds the host's OS\n"
    "        volume is never deleted.\n"
    "  -h, --help\n"
    "        Show this help.\n"
    "\n"
    "The long forms of -b and -n take their value only after '=' (--sbs=256).\n"
    "\n"
    "Examples:\n"
    "  vd -a create -r 5 -d 6,7,8 -b 256 -n 2\n"
    "  vd -a delete -i 2\n";

namespace {

enum class VdAction { None, Create, Delete };

const char kVdShortOptions[] = "\x01:a:i:r:d:b:n:h";
// --sbs and --namespace take their value only joined by '='.
const option kVdLongOptions[] = {
    {"action", required_argument, nullptr, 'a'},
    {"vd_id", required_argument, nullptr, 'i'},
    {"raidmode", required_argument, nullptr, 'r'},
    {"pdid", required_argument, nullptr, 'd'},
    {"sbs", optional_argument, nullptr, 'b'},
    {"namespace", optional_argument, nullptr, 'n'},
    {"help", no_argument, nullptr, 'h'},
    {"output", required_argument, nullptr, KRT_OUTPUT_OPTION},
    {nullptr, 0, nullptr, 0},
};

constexpr KRT_U8 kCreateSubOpcode = 3;
constexpr KRT_U8 kDeleteSubOpcode = 4;
// CDW0, CDW12, CDW13 and CDW14.
constexpr KRT_U16 kVdCdwFlag = 0x7001;
// What the OS-volume guard answers for a VD that holds the host's OS volume.
constexpr int kHoldsOsVolume = 256;

// A member list names at most this many PDs, and only ids below it: the
// controller takes the members as a 32-bit bitmap.
constexpr long kMaxMemberId = 32;
// PD 0 is held as this mark in the member list, where 0 is a free slot.
constexpr long kPdZeroMark = 255;
// A VD id travels in the 16 bits of CDW12's unit.
constexpr long kMaxVdId = 0xFFFF;

// The members typed after -d ("1,2,3"), counted from 0. False for a list
// the controller cannot be given.
bool readMembers(const char *text, int base, std::vector<long> &members)
{
    const char *at = text;
    for (;;) {
        if (!std::isdigit(static_cast<unsigned char>(*at))) {
            return false;
        }
        char *end = nullptr;
        const long id = std::strtol(at, &end, 10) - base;
        if (id < 0) {
            return false;
        }
        // A repeated member is taken once, without a word.
        const long held = id == 0 ? kPdZeroMark : id;
        if (std::find(members.begin(), members.end(), held) == members.end()) {
            if (id >= kMaxMemberId) {
                return false;
            }
            members.push_back(held);
        }
        // Whatever follows the number up to the next comma is passed over.
        const char *comma = std::strchr(end, ',');
        if (comma == nullptr) {
            return true;
        }
        at = comma + 1;
    }
}

KRT_U32 memberBitmap(const std::vector<long> &members)
{
    KRT_U32 bitmap = 0;
    for (long held : members) {
        bitmap |= 1u << (held == kPdZeroMark ? 0 : held);
    }
    return bitmap;
}

// Stripe code of CDW12 byte 2 for a size in KB, or -1.
int stripeCode(const char *text)
{
    if (strcasecmp(text, "128") == 0) {
        return 0;
    }
    if (strcasecmp(text, "256") == 0) {
        return 1;
    }
    if (strcasecmp(text, "512") == 0) {
        return 2;
    }
    return -1;
}

}  // namespace

int doSVD(int argc, char **argv, const Command_Info *entry)
{
    const int base = g_oneBaseMode == 1 ? 1 : 0;
    VdAction action = VdAction::None;
    long vdId = 0;
    KRT_U8 raidMode = KRT_RAID_UNKNOWN;
    bool raidGiven = false;
    int stripe = 0;
    KRT_U8 namespaces = 0;
    std::vector<long> members;
    int actionCount = 0, idCount = 0, namespaceCount = 0, memberCount = 0, stripeCount = 0;

    optind = 0;
    int opt;
    while ((opt = getopt_long(argc, argv, kVdShortOptions, kVdLongOptions, nullptr)) != -1) {
        // A long option that wants '=' and has none comes without a value.
        const char *arg = optarg != nullptr ? optarg : "";
        switch (opt) {
            case KRT_OUTPUT_OPTION:
                break;
            case 'a':
                if (strcasecmp(arg, "create") == 0) {
                    action = VdAction::Create;
                } else if (strcasecmp(arg, "delete") == 0) {
                    action = VdAction::Delete;
                } else {
                    tell(Verdict::UsageError, "-a : invalid action '%s'.\n", arg);
                    return 0;
                }
                ++actionCount;
                break;
            case 'i':
                if (!isNumber(arg)) {
                    tell(Verdict::UsageError, "-i : invalid vd id '%s'.\n", arg);
                    return 0;
                }
                vdId = std::strtol(arg, nullptr, 10) - base;
                if (vdId < 0) {
                    tell(Verdict::UsageError, "-i : invalid id '%s'\n", arg);
                    return 0;
                }
                // A wider id would reach the controller cut short, naming
                // another VD.
                if (vdId > kMaxVdId) {
                    tell(Verdict::UsageError, "-i : invalid vd id '%s'.\n", arg);
                    return 0;
                }
                ++idCount;
                break;
            case 'r':
                // Not counted: a repeated -r is taken, the last one wins.
                raidMode = chooseRaidMode(arg);
                if (raidMode == KRT_RAID_UNKNOWN) {
                    tell(Verdict::UsageError, "-r : invalid raid mode %s\n", arg);
                    return 0;
                }
                raidGiven = true;
                break;
            case 'b':
                stripe = stripeCode(arg);
                if (stripe < 0) {
                    tell(Verdict::UsageError, "-b : invalid stripe block size '%s'.\n", arg);
                    return 0;
                }
                ++stripeCount;
                break;
            case 'n': {
                if (optarg == nullptr || !isNumber(arg)) {
                    tell(Verdict::UsageError, "-n : invalid namespaces '%s'.\n", arg);
                    return 0;
                }
                // The count travels in 8 bits.
                namespaces = static_cast<KRT_U8>(std::strtoul(arg, nullptr, 10));
                const _NVME_Adapter_Info &info = currentAdapterInfo();
                if (info.SKUID == 2 && info.MaxNSPerVD == 1 && namespaces >= 2) {
                    tell(Verdict::UsageError, "-n : invalid number of namespace '%s'.\n", arg);
                    return 0;
                }
                ++namespaceCount;
                break;
            }
            case 'd':
                if (!readMembers(arg, base, members)) {
                    tell(Verdict::UsageError, "-d : invalid PD ID '%s'\n", arg);
                    return 0;
                }
                ++memberCount;
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
    if (idCount > 1 || actionCount > 1 || namespaceCount > 1 || memberCount > 1 || stripeCount > 1) {
        duplicateOption();
        return 1;
    }

    krt_admin_command_format cmd{};
    cmd.CDW[0] = KRT_VENDOR_OPCODE;
    cmd.cdw_flag = kVdCdwFlag;
    switch (action) {
        case VdAction::Create:
            if (!raidGiven) {
                optionRequired(argv[0], 'r');
                return 0;
            }
            if (memberCount == 0) {
                optionRequired(argv[0], 'd');
                return 0;
            }
            cmd.CDW[12] = krt_cdw12(KRT_CLASS_VD, kCreateSubOpcode,
                                    static_cast<KRT_U16>(static_cast<unsigned>(stripe) | raidMode << 8));
            cmd.CDW[13] = memberBitmap(members);
            cmd.CDW[14] = namespaces;
            break;
        case VdAction::Delete:
            if (idCount == 0) {
                optionRequired(argv[0], 'i');
                return 0;
            }
            // Asked before anything is sent: the host must keep its OS volume.
            if (KRT_VD_Has_OS(gCurrentAdapter, static_cast<KRT_U16>(vdId), currentAdapterInfo().MaxNS) ==
                kHoldsOsVolume) {
                tell(Verdict::Refused, "\nUnable to delete VD %ld. Because it contains a OS volume.\n", vdId + base);
                return 0;
            }
            cmd.CDW[12] = krt_cdw12(KRT_CLASS_VD, kDeleteSubOpcode, static_cast<KRT_U16>(vdId));
            break;
        case VdAction::None:
            // The result is the length of the message, as it has always been.
            return tell(Verdict::UsageError, "Error action!\n");
    }

    printRequestWords(cmd, {0, 12, 13, 14});

    const KRT_U32 status = KRT_Adapter_PassthruAdmin(gCurrentAdapter, &cmd, nullptr, 0, nullptr, 0);
    if (status == 0) {
        tell(Verdict::Ok, CmdSuccess);
    } else {
        tell(Verdict::RequestFailed, CmdFailed);
    }
    return static_cast<int>(status);
}

const CommandOptions vd_options = {kVdShortOptions, kVdLongOptions};
