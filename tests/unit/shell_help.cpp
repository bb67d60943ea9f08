#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "shell/completion.h"
#include "shell/shell.h"
#include "stream_capture.h"
#include "util/state.h"

namespace {

// Every command in table order, public then hidden, with the exact one-line
// summary the help listing shows.
const std::pair<const char *, const char *> kSummaries[] = {
    {"?", ":Get brief help for all commands."},
    {"help", ":Get brief help for all commands or detail help for one command."},
    {"adapter", ":Default NVMe Controller the following CLI commands refers to."},
    {"version", ":Show API, CLI and support firmware version"},
    {"smart", ":Get SSD backend RC/Slot SMART info."},
    {"flash", ":Update flash image."},
    {"log", ":For show/on/off SPI log"},
    {"info", ":For display NVMe Controller(hba), virtual disk(vd), physical disk(pd) or Namespace(ns) information."},
    {"event", ":For getting event from NVMe Controller."},
    {"import", ":For import VD"},
    {"init", ":For start or stop VD initialization."},
    {"mp", ":For start or stop media patrol for a virtual disk."},
    {"rebuild", ":For start or stop VD rebuild."},
    {"debuglv", ":For switch debug level target"},
    {"get", ":For getting configuration information of NVMe Controller."},
    {"set", ":For setting configuration parameters of NVMe Controller."},
    {"passthru", ":Passthrough NVMe admin command to backend device"},
    {"spi", ":Read and write SPI data. Maximal size of SPI data is 4096 bytes."},
    {"vd", ":For VD create and delete"},
    {"reset",
     ":For reset back-end device\n[Notice]\n  <Default GPIO setting>\n    Set power: \n"
     "        Power pin id 0 means control GPIO4\n        Power pin id 1 means control GPIO5\n"
     "    Set perstn\n        PD id 0 means control GPIO8\n        PD id 1 means control GPIO10\n"
     "        PD id 2 means control GPIO9\n        PD id 3 means control GPIO11"},
    {"led", ":For control LED of device"},
    {"vpd", ":For switch VPD access target"},
    {"dumphba", ":For dump hba info data structure"},
    {"gpio", ":For GPIO setting in HBA info (Only for GPIO 4 to 7)"},
    {"ns", ":For namespace management"},
    {"identify", ":Get controller identify info."},
    {"inverse", ":For GPIO 8,9,10 and 11 inverse control."},
    {"vpdread", ":Read VPD via standard MI-Send and MI-Receive"},
    {"--debug", ""},
    {"gen", ":Using for generate PRP data which file name is prp_data and size is 4K for nvme standard admin command"},
    {"reg", ":For read and write PCIe register. Maximal size of data is 4 bytes."},
    {"dvf", ":For control manufacture flash tool"},
    {"protect", ":For control protection area"},
    {"i2c", ":For test i2c device"},
    {"pcie", ":For get PCIe information from backend device"},
    {"sriov", ":For control SRIOV feature"},
    {"hotkey", ":For hotkey."},
    {"getoemdata", ":For read OEM data."},
    {"mi_passthruread", ":Read pass-through command via standard MI-Send and MI-Receive"},
    {"mi_passthruwrite", ":Write pass-through command via standard MI-Send"},
    {"vm_cmd", ":For get PCIe advanced error reporting from backend PD"},
};
constexpr int kPublic = 28;

// What dispatching the words returned and printed.
std::pair<int, std::string> run(std::vector<std::string> words)
{
    pCmdTable = generalCmdTableV1;
    cmdTableSize = generalCmdTableV1Size();
    std::vector<char *> argv;
    for (std::string &w : words)
        argv.push_back(w.data());
    argv.push_back(nullptr);
    krt_unit::StreamCapture out;
    const int result = cmdDispatcher(static_cast<int>(words.size()), argv.data());
    return {result, out.text()};
}

// What -h and help print for a command: its summary and its long help.
std::string description(const char *name)
{
    pCmdTable = generalCmdTableV1;
    cmdTableSize = generalCmdTableV1Size();
    int matches = 0;
    const Command_Info *e = lookupCommand(name, &matches);
    return std::string("Description") + e->cmdShortHelp + "\n" + e->cmdHelp;
}

// Walks both tables: names and summaries in order, the listing of the public
// ones, and every command's -h describing the command without a controller.
TEST(ShellHelp, TablesListingAndEveryCommandsDashH)
{
    ASSERT_EQ(generalCmdTableV1Size(), kPublic);
    ASSERT_EQ(hiddenCmdTableV1Size(), 41 - kPublic);
    const std::string page = run({"help"}).second;
    EXPECT_EQ(run({"?"}).second, page);
    std::string listing = "COMMAND   BRIEF DESCRIPTION \n" + std::string(65, '-') + "\n";
    for (int i = 0; i < 41; ++i) {
        const Command_Info &e = i < kPublic ? generalCmdTableV1[i] : hiddenCmdTableV1[i - kPublic];
        SCOPED_TRACE(kSummaries[i].first);
        EXPECT_STREQ(e.cmd, kSummaries[i].first);
        EXPECT_STREQ(e.cmdShortHelp, kSummaries[i].second);
        // help prints these as format texts: a conversion character would garble them.
        EXPECT_EQ(std::strchr(e.cmdHelp, '%'), nullptr);
        EXPECT_EQ(e.cmdLen, static_cast<int>(std::strlen(e.cmd)) + 1);
        const std::string expected = std::string("Description") + e.cmdShortHelp + "\n" + e.cmdHelp;
        EXPECT_EQ(run({e.cmd, "-h"}).second.substr(0, expected.size()), expected);
        char line[512];
        std::snprintf(line, sizeof line, "%-18s %s\n", e.cmd, e.cmdShortHelp);
        listing += i < kPublic ? line : "";
    }
    const std::size_t at = page.find(listing);
    ASSERT_NE(at, std::string::npos) << page;
    EXPECT_NE(page.find("Type '-output [filename]' to output to a file. \n"
                        "Type 'help' to display this page. \n"
                        "Type 'help command' to display the help page of 'command'. \n"
                        "Type 'command -h' to display help for 'command'. \n"),
              std::string::npos);
    EXPECT_NE(page.find("krt_cli [<Adapter ID>] <COMMAND> <OPTIONS>", at), std::string::npos);
    EXPECT_NE(page.find("krt_cli 1 info -o pd", at), std::string::npos);
    EXPECT_EQ(page.back(), '\n');
}

// A whole hidden name after an abbreviation of a public one runs the public
// entry at the hidden entry's position. No pair of shipped names reaches
// this, so a made-up public table stands in.
TEST(ShellDispatch, WholeHiddenNameAfterPublicAbbreviationUsesThePublicPosition)
{
    const Command_Info table[] = {{"genuine", 8, nullptr, "", ":first", nullptr},
                                  {"other", 6, nullptr, "", ":second", nullptr}};
    pCmdTable = table;
    cmdTableSize = 2;
    int matches = 0;
    EXPECT_EQ(lookupCommand("gen", &matches), &table[1]);  // "gen" is hidden entry 1
    EXPECT_EQ(lookupCommand("ge", &matches), nullptr);     // genuine, gen, getoemdata
    EXPECT_EQ(matches, 3);
    EXPECT_EQ(lookupCommand("genu", &matches), &table[0]);
    pCmdTable = generalCmdTableV1;
    cmdTableSize = generalCmdTableV1Size();
}

TEST(ShellHelp, NamedCommandsAndOptions)
{
    const std::string none = "No help available for 'foo'\n";
    const struct {
        std::vector<std::string> words;
        std::string expected;
    } cases[] = {
        {{"HELP", "vd", "spi"}, description("vd") + description("spi")},
        {{"he", "VD"}, "No help available for 'VD'\n"},
        {{"help", "gen"}, "No help available for 'gen'\n"},  // hidden commands have no help
        {{"help", "foo", "vd"}, none + description("vd")},
        // Once a name was found, later unknown names pass in silence.
        {{"help", "vd", "foo", "bar"}, description("vd")},
        {{"help", "foo", "bar"}, none + "No help available for 'bar'\n"},
        // Any option shows help's own description, wherever it stands...
        {{"help", "--debug"}, description("help")},
        {{"?", "vd", "-x"}, description("?")},
        // ...but the marked "-output" word and its file name are passed over.
        {{"help", "vd", "-\x01utput", "out.txt"}, description("vd")},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.words));
        EXPECT_EQ(run(c.words), std::make_pair(0, c.expected));
    }
}

}  // namespace

// What Tab offers for the text before the cursor.
TEST(ShellCompletion, NamesOptionsAndNothingWhereAValueIsDue)
{
    using Words = std::vector<std::string>;
    pCmdTable = generalCmdTableV1;
    cmdTableSize = generalCmdTableV1Size();
    const struct {
        const char *line;
        Words offered;
    } cases[] = {
        {"IN", {"info", "init", "inverse"}},  // command words in any case
        {"ge", {"get"}},                      // never a hidden command
        {"rebuild --", {"--action", "--help", "--pd_id", "--vd_id"}},
        {"mp -i 1 ", {"--action", "--help", "--vd_id", "-a", "-h", "-i"}},
        {"info -o ", {}},  // the value of -o comes next
        {"info --obj ", {}},
        {"adapter --l", {"--list"}},
        {"help id", {"identify"}},
        {"help info ID", {}},  // help takes names as the table spells them
        {"gen -", {}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.line);
        const Completion completion = completeShellLine(c.line);
        EXPECT_EQ(completion.candidates, c.offered);
        EXPECT_EQ(completion.start, std::string_view(c.line).find_last_of(' ') + 1);
    }
    EXPECT_EQ(completeShellLine("").candidates.size(), std::size_t{generalCmdTableV1Size()});
}
