// help and "?": the command list and each command's own help.
#include <getopt.h>

#include <cstdio>
#include <cstring>

#include "commands/commands.h"
#include "commands/verdict.h"
#include "util/state.h"

const char help_sh[] = ":Get brief help for all commands or detail help for one command.";
const char help_q_sh[] = ":Get brief help for all commands.";
const char help_help[] =
    "Usage:\n"
    "  help [<COMMAND> ...]\n"
    "  ?\n"
    "\n"
    "  Without a command name, lists every command with a one-line description.\n"
    "  With command names, prints the detail help of each one. Names are matched\n"
    "  exactly (lower case, not abbreviated).\n"
    "\n"
    "Example:\n"
    "  help info\n";

namespace {

const char kGeneralHelp[] =
    "\n"
    "Notation:\n"
    "  [ ]        optional part\n"
    "  < >        a value to be filled in\n"
    "  |          choose one of the alternatives\n"
    "\n"
    "Abbreviations:\n"
    "  VD         Virtual Disk\n"
    "  PD         Physical Disk (SSD backend RC/Slot)\n"
    "  NS         Namespace\n"
    "  BGA        Background Activity (initialization, media patrol, rebuild)\n"
    "\n"
    "Type '-output [filename]' to output to a file. \n"
    "Type 'help' to display this page. \n"
    "Type 'help command' to display the help page of 'command'. \n"
    "Type 'command -h' to display help for 'command'. \n"
    "\n"
    "Command names are case-insensitive and may be abbreviated as long as the\n"
    "abbreviation is unique. Long options may be abbreviated in the same way and\n"
    "take their parameter as \"--arg=param\" or \"--arg param\".\n"
    "\n"
    "COMMAND   BRIEF DESCRIPTION \n"
    "-----------------------------------------------------------------\n";

const char kUsage[] =
    "\n"
    "Usage in non-shell mode:\n"
    "  krt_cli [<Adapter ID>] <COMMAND> <OPTIONS>\n"
    "  Default Adapter ID is 0.\n"
    "\n"
    "Examples:\n"
    "  krt_cli info -o pd      show all physical disks of NVMe Controller 0\n"
    "  krt_cli 1 info -o pd    show all physical disks of NVMe Controller 1\n";

constexpr int kNameWidth = 18;

void printCommandList()
{
    std::fputs(kGeneralHelp, stream);
    for (int i = 0; i < cmdTableSize; ++i) {
        std::fprintf(stream, "%-*s %s\n", kNameWidth, pCmdTable[i].cmd, pCmdTable[i].cmdShortHelp);
    }
    std::fputs(kUsage, stream);
    std::fputc('\n', stream);
}

const Command_Info *findCommand(const char *name)
{
    for (int i = 0; i < cmdTableSize; ++i) {
        if (std::strcmp(pCmdTable[i].cmd, name) == 0)
            return &pCmdTable[i];
    }
    return nullptr;
}

// help takes command names, not options: any option word asks for help's
// own description.
const char kHelpShortOptions[] = "\x01:";
const option kHelpLongOptions[] = {
    {"output", required_argument, nullptr, KRT_OUTPUT_OPTION},
    {nullptr, 0, nullptr, 0},
};

}  // namespace

const CommandOptions help_options = {kHelpShortOptions, kHelpLongOptions};

int doHelp(int argc, char **argv, const Command_Info *entry)
{
    optind = 0;
    int c = 0;
    while ((c = getopt_long(argc, argv, kHelpShortOptions, kHelpLongOptions, nullptr)) != -1) {
        if (c == KRT_OUTPUT_OPTION)
            continue;
        printCommandHelp(entry);
        return 0;
    }

    if (optind >= argc) {
        printCommandList();
        return 0;
    }

    // Once one name was found, later unknown names pass without a word.
    bool found = false;
    for (int i = optind; i < argc; ++i) {
        const Command_Info *command = findCommand(argv[i]);
        if (command != nullptr) {
            printCommandHelp(command);
            found = true;
        } else if (!found) {
            tell(Verdict::NotFound, "No help available for '%s'\n", argv[i]);
        }
    }
    return 0;
}
