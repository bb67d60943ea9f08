// adapter: chooses the NVMe Controller that later commands address.
#include <getopt.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "api/krt_api.h"
#include "commands/commands.h"
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
        return false;
    }
    text = buffer.data();
    return true;
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
                    std::fprintf(stream, "-i : invalid NVMe Controller id '%s'\n", optarg);
                    return 1;
                }
                const long number = std::strtol(optarg, nullptr, 10);
                const long index = number - base;
                if (index >= gNumAdaptersFound) {
                    std::fprintf(stream, "NVMe Controller %d does not exist.\n", static_cast<int>(number));
                    return 1;
                }
                if (index < 0) {
                    std::fprintf(stream, "-i : invalid NVMe Controller id '%s'\n", optarg);
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
                    std::fprintf(stream, "-s : length of slot should be no more than %d characters\n",
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
                    std::fprintf(stream, "-n : length of subnqn should be no more than %d characters\n",
                                 static_cast<int>(kSubnqnMax));
                    return 1;
                }
                int found = 0;
                if (!SetAdapterIdFromSUBNQN(subnqn.c_str(), &found)) {
                    std::fprintf(stream, "SUBNQN \"%s\" does not exist.\n", subnqn.c_str());
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
                return 1;
            default:
                printCommandHelp(entry);
                return 0;
        }
    }

    if (argc == 1) {
        printCommandHelp(entry);
        return 1;
    }
    if (idCount > 1 || slotCount > 1 || subnqnCount > 1 || listCount > 1) {
        std::fputs(ErrorDuplicate, stream);
        return 1;
    }

    if (listCount != 0) {
        // Asked again rather than trusted from start-up: the answer is the
        // registry's, whatever was typed with -i on this line.
        gNumAdaptersFound = static_cast<KRT_U8>(KRT_Adapter_GetCount());
        std::fprintf(stream, "Total number of NVMe Controllers: %d\n", gNumAdaptersFound);
        std::fprintf(stream, "Current default NVMe Controller ID for CLI commands: %d\n", gCurrentAdapter + base);
        return 0;
    }
    if (slotCount != 0) {
        if (idCount != 0) {
            std::fputs("argument '-s' not allow use in the same time.\n", stream);
            return 1;
        }
        int found = 0;
        if (!findAdapterId(slot.c_str(), &found)) {
            std::fprintf(stream, "%s is not NVMe Controller\n", slot.c_str());
            return 0;
        }
        gCurrentAdapter = static_cast<KRT_U8>(found);
        std::fprintf(stream, "Updated current NVMe Controller id : %d\n", found + base);
        return 0;
    }
    if (subnqnCount != 0) {
        gCurrentAdapter = static_cast<KRT_U8>(idCell);
        std::fprintf(stream, "Updated current NVMe Controller id : %d\n", gCurrentAdapter + base);
        return 0;
    }
    if (idCount != 0) {
        gCurrentAdapter = static_cast<KRT_U8>(idCell);
        // The number chosen was shown by the "set as default" line; this one
        // reports the SUBNQN lookup, which did not run.
        std::fprintf(stream, "Updated current NVMe Controller id : %d\n", subnqnCell);
        return 0;
    }
    return 0;
}

const CommandOptions adapter_options = {kAdapterShortOptions, kAdapterLongOptions};
