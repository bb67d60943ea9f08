// adapter: chooses the NVMe Controller that later commands address.
#include <getopt.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "api/krt_api.h"
#include "commands/commands.h"
#include "commands/info.h"
#include "commands/verdict.h"
#include "util/fields.h"
#include "util/state.h"
#include "util/text.h"

const char adapter_sh[] = ":Default NVMe Controller the following CLI commands refers to.";
const char adapter_help[] =
    "\n"
    "Usage: adapter [-i <id> | -s <bus:slot.func> | -n <subnqn> | --list]\n"
    "\n"
    "Options:\n"
    "  -i, --id <id>\n"
    "        Address the NVMe Controller with this id from now on.\n"
    "  -s, --slot <bus:slot.func>\n"
    "        Address the NVMe Controller at this PCI location, written exactly as\n"
    "        'info -o hba' shows it after \"Bus Device Fun:\" (at most 12 characters).\n"
    "        Not accepted together with -i.\n"
    "  -n, --SUBNQN <subnqn>\n"
    "        Address the NVMe Controller with this subsystem NQN (at most 255 characters).\n"
    "  --list\n"
    "        Show the number of NVMe Controllers and the one addressed now.\n"
    "  -h, --help\n"
    "        Show this help.\n"
    "\n"
    "Examples:\n"
    "  adapter -i 1\n"
    "  adapter -s 10:00.00\n"
    "  adapter --list\n";

namespace {

constexpr std::size_t kSlotMax = 12;
constexpr std::size_t kSubnqnMax = 255;

// The short form of --list takes an argument; only the long form works bare.
const char kAdapterShortOptions[] = "\x01:i:s:n:l:h";
const option kAdapterLongOptions[] = {
    {"id", required_argument, nullptr, 'i'},
    {"slot", required_argument, nullptr, 's'},
    {"SUBNQN", required_argument, nullptr, 'n'},
    {"list", no_argument, nullptr, 'l'},
    {"help", no_argument, nullptr, 'h'},
    {"output", required_argument, nullptr, KRT_OUTPUT_OPTION},
    {nullptr, 0, nullptr, 0},
};

// An option argument without its double quotes. False (after the message)
// for an argument in single quotes.
bool unquoted(const char *arg, std::string &text)
{
    const std::size_t length = std::strlen(arg);
    // Room for the copy and the terminator written one past it.
    std::vector<char> buffer(length + 2, '\0');
    if (noQuoteStrncpy(buffer.data(), arg, length) != 0) {
        // The hint went to the terminal.
        json_output::noteResult(Verdict::UsageError, "Please use double quotation mark to include strings.");
        return false;
    }
    text = buffer.data();
    return true;
}

// What a script needs to tell the controllers apart and to address one. The
// text shows only their count.
void listControllers(int base)
{
    const FieldWriter out(stream, 0);
    for (int index = 0; index < gNumAdaptersFound; ++index) {
        const auto at = static_cast<KRT_U16>(index);
        out.beginRecord("controller");
        out.extra("index", json_output::Value::number(index));
        out.extra("nvme_controller_id", json_output::Value::number(index + base));
        out.extra("bus_device_fun",
                  json_output::Value::text(json_output::trimmed(orEmpty(KRT_Adapter_GetDeviceFun(at)))));
        out.extra("device", json_output::Value::text(json_output::trimmed(orEmpty(KRT_Adapter_GetDevicePath(at)))));
        out.extra("subnqn",
                  json_output::Value::text(json_output::trimmed(controllerSubnqn(KRT_Adapter_GetDeviceSUBNQN(at)))));
        out.extra("current", json_output::Value::boolean(index == gCurrentAdapter));
        out.endRecord();
    }
}

}  // namespace

int doAdapter(int argc, char **argv, const Command_Info *entry)
{
    const int base = g_oneBaseMode == 1 ? 1 : 0;
    int idCount = 0, slotCount = 0, subnqnCount = 0, listCount = 0;
    int idCell = gCurrentAdapter;
    int subnqnCell = 0;
    std::string slot;

    optind = 0;
    int opt;
    while ((opt = getopt_long(argc, argv, kAdapterShortOptions, kAdapterLongOptions, nullptr)) != -1) {
        switch (opt) {
            case KRT_OUTPUT_OPTION:
                break;
            case 'i': {
                if (!isNumber(optarg)) {
                    tell(Verdict::UsageError, "-i : invalid NVMe Controller id '%s'\n", optarg);
                    return 1;
                }
                const long number = std::strtol(optarg, nullptr, 10);
                const long index = number - base;
                if (index >= gNumAdaptersFound) {
                    tell(Verdict::NotFound, "NVMe Controller %d does not exist.\n", static_cast<int>(number));
                    return 1;
                }
                if (index < 0) {
                    tell(Verdict::UsageError, "-i : invalid NVMe Controller id '%s'\n", optarg);
                    return 1;
                }
                idCell = static_cast<int>(index);
                ++idCount;
                std::fprintf(stream, "NVMe Controller %d set as default CLI commands refers to.\n",
                             static_cast<int>(number));
                break;
            }
            case 's':
                if (!unquoted(optarg, slot)) {
                    return 1;
                }
                if (slot.size() > kSlotMax) {
                    tell(Verdict::UsageError, "-s : length of slot should be no more than %d characters\n",
                         static_cast<int>(kSlotMax));
                    return 1;
                }
                ++slotCount;
                break;
            case 'n': {
                std::string subnqn;
                if (!unquoted(optarg, subnqn)) {
                    return 1;
                }
                if (subnqn.size() > kSubnqnMax) {
                    tell(Verdict::UsageError, "-n : length of subnqn should be no more than %d characters\n",
                         static_cast<int>(kSubnqnMax));
                    return 1;
                }
                int found = 0;
                if (!SetAdapterIdFromSUBNQN(subnqn.c_str(), &found)) {
                    tell(Verdict::NotFound, "SUBNQN \"%s\" does not exist.\n", subnqn.c_str());
                    return 1;
                }
                subnqnCell = found;
                idCell = found;
                ++subnqnCount;
                break;
            }
            case 'l':
                ++listCount;
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
    if (idCount > 1 || slotCount > 1 || subnqnCount > 1 || listCount > 1) {
        duplicateOption();
        return 1;
    }

    if (listCount != 0) {
        // Asked again rather than trusted from start-up: the answer is the
        // registry's, whatever was typed with -i on this line.
        gNumAdaptersFound = static_cast<KRT_U8>(KRT_Adapter_GetCount());
        listControllers(base);
        const FieldWriter out(stream, 0);
        out.beginRecord("summary");
        out.typed("Total number of NVMe Controllers:", std::to_string(gNumAdaptersFound),
                  json_output::Value::number(gNumAdaptersFound), "total_of_hba");
        out.typed("Current default NVMe Controller ID for CLI commands:", std::to_string(gCurrentAdapter + base),
                  json_output::Value::number(gCurrentAdapter + base), "current_nvme_controller_id");
        out.endRecord();
        return 0;
    }
    if (slotCount != 0) {
        if (idCount != 0) {
            tell(Verdict::UsageError, "argument '-s' not allow use in the same time.\n");
            return 1;
        }
        int found = 0;
        if (!findAdapterId(slot.c_str(), &found)) {
            tell(Verdict::NotFound, "%s is not NVMe Controller\n", slot.c_str());
            return 0;
        }
        gCurrentAdapter = static_cast<KRT_U8>(found);
        tell(Verdict::Ok, "Updated current NVMe Controller id : %d\n", found + base);
        return 0;
    }
    if (subnqnCount != 0) {
        gCurrentAdapter = static_cast<KRT_U8>(idCell);
        tell(Verdict::Ok, "Updated current NVMe Controller id : %d\n", gCurrentAdapter + base);
        return 0;
    }
    if (idCount != 0) {
        gCurrentAdapter = static_cast<KRT_U8>(idCell);
        // The number chosen was shown by the "set as default" line; this one
        // reports the SUBNQN lookup, which did not run.
        tell(Verdict::Ok, "Updated current NVMe Controller id : %d\n", subnqnCell);
        return 0;
    }
    return 0;
}

const CommandOptions adapter_options = {kAdapterShortOptions, kAdapterLongOptions};
