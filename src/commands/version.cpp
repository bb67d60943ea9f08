// version: the tool's own version and the oldest firmware it supports.
#include <getopt.h>

#include "commands/commands.h"
#include "commands/verdict.h"
#include "util/fields.h"
#include "util/state.h"

const char version_sh[] = ":Show API, CLI and support firmware version";
const char version_help[] =
    "\n"
    "Usage: version\n"
    "\n"
    "Shows the version of this CLI and the controller firmware versions it supports.\n"
    "The NVMe Controller is not asked.\n"
    "\n"
    "Options:\n"
    "  -h, --help\n"
    "        Show this help.\n"
    "\n"
    "Example:\n"
    "  version\n";

namespace {

// -i is taken, with its argument, as a request for this help.
const char kVersionShortOptions[] = "\x01:hi:";
const option kVersionLongOptions[] = {
    {"help", no_argument, nullptr, 'h'},
    {"output", required_argument, nullptr, KRT_OUTPUT_OPTION},
    {nullptr, 0, nullptr, 0},
};

}  // namespace

int doVersion(int argc, char **argv, const Command_Info *entry)
{
    optind = 0;
    int opt;
    while ((opt = getopt_long(argc, argv, kVersionShortOptions, kVersionLongOptions, nullptr)) != -1) {
        switch (opt) {
            case KRT_OUTPUT_OPTION:
                break;
            case '?':
                unknownOption();
                return 1;
            default:
                printCommandHelp(entry);
                return 0;
        }
    }

    const FieldWriter out(stream, 0);
    out.beginRecord("version");
    out.str("CLI Version:", CLI_VERSION);
    // The oldest firmware the tool works with; newer ones work too.
    out.typed("Support Firmware Version:", "1.0.x.1039 above", json_output::Value::text("1.0.x.1039"),
              "minimum_firmware_version");
    out.endRecord();
    return 0;
}

const CommandOptions version_options = {kVersionShortOptions, kVersionLongOptions};
