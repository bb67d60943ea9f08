#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "shell/shell.h"
#include "stream_capture.h"
#include "util/state.h"

namespace {

// The exact one-line summaries: the help listing shows them as they are.
struct Summary {
    const char *name;
    const char *text;
};

const Summary kPublic[] = {
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
};

const Summary kHidden[] = {
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

TEST(ShellTables, HoldEveryCommandInOrderWithItsSummary)
{
    ASSERT_EQ(generalCmdTableV1Size(), 28);
    ASSERT_EQ(hiddenCmdTableV1Size(), 13);
    const auto check = [](const Command_Info *table, const Summary *expected, int size) {
        for (int i = 0; i < size; ++i) {
            const Command_Info &e = table[i];
            EXPECT_STREQ(e.cmd, expected[i].name) << i;
            EXPECT_EQ(e.cmdLen, static_cast<int>(std::strlen(e.cmd)) + 1) << e.cmd;
            EXPECT_NE(e.cmdHandler, nullptr) << e.cmd;
            EXPECT_STREQ(e.cmdShortHelp, expected[i].text) << e.cmd;
            // help prints these as format texts, -h prints them as they are:
            // both read the same only without conversion characters.
            EXPECT_EQ(std::strchr(e.cmdHelp, '%'), nullptr) << e.cmd;
            EXPECT_EQ(std::strchr(e.cmdShortHelp, '%'), nullptr) << e.cmd;
            // Every command but the hidden debug switch explains itself.
            if (std::strcmp(e.cmd, "--debug") != 0) {
                EXPECT_NE(std::strstr(e.cmdHelp, "Usage"), nullptr) << e.cmd;
            }
        }
    };
    check(generalCmdTableV1, kPublic, 28);
    check(hiddenCmdTableV1, kHidden, 13);
}

class ShellHelp : public testing::Test {
  protected:
    void SetUp() override
    {
        pCmdTable = generalCmdTableV1;
        cmdTableSize = generalCmdTableV1Size();
    }

    static std::string run(const char *command, std::vector<std::string> words, int result = 0)
    {
        words.insert(words.begin(), command);
        std::vector<char *> argv;
        for (std::string &w : words)
            argv.push_back(w.data());
        argv.push_back(nullptr);
        krt_unit::StreamCapture out;
        EXPECT_EQ(cmdDispatcher(static_cast<int>(words.size()), argv.data()), result);
        return out.text();
    }

    static std::string description(const char *name)
    {
        int matches = 0;
        const Command_Info *e = lookupCommand(name, &matches);
        return std::string("Description") + e->cmdShortHelp + "\n" + e->cmdHelp;
    }
};

TEST_F(ShellHelp, ListsThePublicCommands)
{
    const std::string page = run("help", {});
    EXPECT_EQ(run("?", {}), page);
    EXPECT_NE(page.find("Type '-output [filename]' to output to a file. \n"
                        "Type 'help' to display this page. \n"
                        "Type 'help command' to display the help page of 'command'. \n"
                        "Type 'command -h' to display help for 'command'. \n"),
              std::string::npos);
    const std::string heading = "COMMAND   BRIEF DESCRIPTION \n" + std::string(65, '-') + "\n";
    const std::size_t list = page.find(heading);
    ASSERT_NE(list, std::string::npos);
    std::size_t at = list + heading.size();
    for (const Summary &s : kPublic) {
        char line[512];
        std::snprintf(line, sizeof line, "%-18s %s\n", s.name, s.text);
        EXPECT_EQ(page.compare(at, std::strlen(line), line), 0) << s.name;
        at += std::strlen(line);
    }
    EXPECT_NE(page.find("krt_cli [<Adapter ID>] <COMMAND> <OPTIONS>", at), std::string::npos);
    EXPECT_NE(page.find("  Default Adapter ID is 0.", at), std::string::npos);
    EXPECT_NE(page.find("krt_cli 1 info -o pd", at), std::string::npos);
    EXPECT_EQ(page.find("hotkey"), std::string::npos);
    EXPECT_EQ(page.back(), '\n');
}

TEST_F(ShellHelp, ShowsTheHelpOfNamedCommands)
{
    EXPECT_EQ(run("help", {"vd"}), description("vd"));
    EXPECT_EQ(run("HELP", {"vd", "spi"}), description("vd") + description("spi"));
    EXPECT_EQ(run("he", {"VD"}), "No help available for 'VD'\n");
    EXPECT_EQ(run("help", {"gen"}), "No help available for 'gen'\n");
    EXPECT_EQ(run("help", {"foo", "vd"}), "No help available for 'foo'\n" + description("vd"));
    // Once a name was found, later unknown names pass in silence.
    EXPECT_EQ(run("help", {"vd", "foo", "bar"}), description("vd"));
    EXPECT_EQ(run("help", {"foo", "bar"}), "No help available for 'foo'\nNo help available for 'bar'\n");
}

TEST_F(ShellHelp, AnyOptionShowsHelpsOwnDescription)
{
    EXPECT_EQ(run("help", {"-h"}), description("help"));
    EXPECT_EQ(run("help", {"--debug"}), description("help"));
    EXPECT_EQ(run("?", {"vd", "-x"}), description("?"));
    // The marked "-output" word and its file name are passed over.
    EXPECT_EQ(run("help", {"vd", "-\x01utput", "out.txt"}), description("vd"));
}

TEST_F(ShellHelp, CommandsNotBuiltSayTheyAreNotAvailable)
{
    EXPECT_EQ(run("vpd", {"-h"}, 1), description("vpd") + "This command is not available in this build.\n");
}

// Walks both tables: every command's -h describes the command, and touches
// no controller on the way.
TEST_F(ShellHelp, EveryCommandDescribesItselfForDashH)
{
    const auto check = [](const Command_Info *table, int size) {
        for (int i = 0; i < size; ++i) {
            std::string name = table[i].cmd;
            std::string option = "-h";
            char *argv[] = {name.data(), option.data(), nullptr};
            krt_unit::StreamCapture out;
            (void)cmdDispatcher(2, argv);
            const std::string expected = std::string("Description") + table[i].cmdShortHelp + "\n" + table[i].cmdHelp;
            EXPECT_EQ(out.text().substr(0, expected.size()), expected) << table[i].cmd;
        }
    };
    check(generalCmdTableV1, generalCmdTableV1Size());
    check(hiddenCmdTableV1, hiddenCmdTableV1Size());
}

}  // namespace
