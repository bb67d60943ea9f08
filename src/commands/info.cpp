// info: shows the controller, its physical disks, virtual disks and namespaces.
#include "commands/info.h"

#include <getopt.h>
#include <strings.h>

#include <cstdlib>

#include "commands/commands.h"
#include "commands/verdict.h"
#include "util/state.h"
#include "util/text.h"

const char info_sh[] =
    ":For display NVMe Controller(hba), virtual disk(vd), physical disk(pd) or Namespace(ns) information.";
const char info_help[] =
    "\n"
    "Usage: info -o <object> [-i <id>] [-t <type>] [-v <vd id>]\n"
    "\n"
    "Options:\n"
    "  -o, --object <hba|pd|hd|vd|ld|ns>\n"
    "        Object to show: the NVMe Controller (hba), physical disks (pd or hd),\n"
    "        virtual disks (vd or ld) or namespaces (ns). Required.\n"
    "  -i, --id <id>\n"
    "        Show only the object with this id. Without it every object is shown.\n"
    "        Not accepted with '-o hba'.\n"
    "  -t, --type <host|vd|ld>\n"
    "        For '-o ns' only: namespaces reported to the host (host, the default)\n"
    "        or namespaces of virtual disks (vd or ld).\n"
    "  -v, --vd_id <vd id>\n"
    "        For '-o ns -t vd' only: the virtual disk whose namespaces are shown.\n"
    "        Without it the namespaces of every virtual disk are shown.\n"
    "  -h, --help\n"
    "        Show this help.\n"
    "\n"
    "Examples:\n"
    "  info -o hba\n"
    "  info -o pd -i 1\n"
    "  info -o ns -t vd -v 0\n";

namespace {

enum class InfoObject { None, Hba, Pd, Vd, Ns };

const char kInfoShortOptions[] = "\x01:o:i:t:v:u:h";
// The long name of -v is "vdid"; scripts written against it keep working.
const option kInfoLongOptions[] = {
    {"object", required_argument, nullptr, 'o'},
    {"id", required_argument, nullptr, 'i'},
    {"type", required_argument, nullptr, 't'},
    {"vdid", required_argument, nullptr, 'v'},
    {"help", no_argument, nullptr, 'h'},
    {"output", required_argument, nullptr, KRT_OUTPUT_OPTION},
    {nullptr, 0, nullptr, 0},
};

InfoObject parseObject(const char *word)
{
    if (strcasecmp(word, "hba") == 0) {
        return InfoObject::Hba;
    }
    if (strcasecmp(word, "pd") == 0 || strcasecmp(word, "hd") == 0) {
        return InfoObject::Pd;
    }
    if (strcasecmp(word, "vd") == 0 || strcasecmp(word, "ld") == 0) {
        return InfoObject::Vd;
    }
    if (strcasecmp(word, "ns") == 0) {
        return InfoObject::Ns;
    }
    return InfoObject::None;
}

// Decimal id as typed; isNumber has already vouched for the digits.
int toId(const char *text)
{
    return static_cast<int>(std::strtol(text, nullptr, 10));
}

}  // namespace

int doSInfo(int argc, char **argv, const Command_Info *entry)
{
    InfoObject object = InfoObject::None;
    int id = KRT_ALL_IDS;
    int vdid = KRT_ALL_IDS;
    bool nsOfVDs = false;
    int objectCount = 0, idCount = 0, typeCount = 0, vdidCount = 0;
    bool failed = false;

    optind = 0;
    int opt;
    while (!failed && (opt = getopt_long(argc, argv, kInfoShortOptions, kInfoLongOptions, nullptr)) != -1) {
        switch (opt) {
            case KRT_OUTPUT_OPTION:
                break;
            case 'o':
                object = parseObject(optarg);
                if (object == InfoObject::None) {
                    tell(Verdict::UsageError, "-o : invalid object '%s'\n", optarg);
                    failed = true;
                }
                ++objectCount;
                break;
            case 'i':
                if (!isNumber(optarg)) {
                    tell(Verdict::UsageError, "-i : id should be a number\n");
                    failed = true;
                    break;
                }
                id = toId(optarg);
                ++idCount;
                break;
            case 't':
                if (strcasecmp(optarg, "vd") == 0 || strcasecmp(optarg, "ld") == 0) {
                    nsOfVDs = true;
                } else if (strcasecmp(optarg, "host") != 0) {
                    tell(Verdict::UsageError, "-t : invalid type '%s'\n", optarg);
                    failed = true;
                }
                ++typeCount;
                break;
            case 'v':
                if (!isNumber(optarg)) {
                    tell(Verdict::UsageError, "-v : VD id should be a number\n");
                    failed = true;
                    break;
                }
                vdid = toId(optarg);
                ++vdidCount;
                break;
            case '?':
                unknownOption();
                printCommandHelp(entry);
                return 0;
            default:
                // -h and -u ask for the help, as does anything unknown.
                printCommandHelp(entry);
                return 0;
        }
    }

    if (argc == 1) {
        return bareCommand(entry);
    }
    if (objectCount > 1 || idCount > 1 || typeCount > 1 || vdidCount > 1) {
        duplicateOption();
        return 1;
    }
    if (objectCount == 0) {
        optionRequired(argv[0], 'o');
        return 1;
    }
    if (failed) {
        return 1;
    }

    if (object == InfoObject::Hba && idCount == 0 && gSpecificAdapterFlag == 1) {
        id = gCurrentAdapter;
    }

    switch (object) {
        case InfoObject::Hba:
            if (idCount != 0) {
                tell(Verdict::UsageError, "\n'info -o hba' does not support '-i' action\n");
                return 1;
            }
            getAdapterInfoSA(id);
            break;
        case InfoObject::Pd:
        case InfoObject::Vd:
            if (idCount != 0 && g_oneBaseMode == 1) {
                id -= 1;
                if (id < 0) {
                    // Kept going on purpose: the id wraps to the top of the
                    // 16-bit range, as the command has always done.
                    tell(Verdict::UsageError, "-i : id should be a number\n");
                }
                id &= 0xFFFF;
            }
            if (object == InfoObject::Pd) {
                getHDInfoSA(id);
            } else {
                getLDInfoSA(id);
            }
            break;
        case InfoObject::Ns:
            if (nsOfVDs) {
                getNSInfoOfVDSA(id, vdid);
            } else {
                getNSInfoSA(id);
            }
            break;
        case InfoObject::None:
            break;
    }
    return 0;
}

const CommandOptions info_options = {kInfoShortOptions, kInfoLongOptions};
