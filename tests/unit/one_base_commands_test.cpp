// adapter, info, get, set, import, reset and led in one-base numbering, which
// is never on at run time: typed numbers count from 1, the request words from
// 0, namespace ids are never shifted. No controller answers here; the words
// shown with debugging on are what counts.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "commands/commands.h"
#include "krt/records.h"
#include "stream_capture.h"
#include "text.h"
#include "util/state.h"

namespace {

struct Case {
    std::vector<std::string> words;
    int status;
    std::string out;  // a part of the output
    int current = 0;  // the controller chosen afterwards
};

constexpr KRT_U32 kRaid = KRT_FEATURE_RAID | KRT_FEATURE_IMPORT;
constexpr KRT_U32 kJbof = KRT_FEATURE_IMPORT;

// Runs the cases through the entry's handler as controller 0 of two, whose
// cached records carry `features`.
void runOneBased(const Command_Info &entry, KRT_U32 features, std::vector<Case> cases)
{
    _NVME_Adapter_Info infos[2]{};
    infos[0].Features = infos[1].Features = features;
    g_pAdInfos = infos;
    g_oneBaseMode = 1;
    dbg_enable = 1;
    gNumAdaptersFound = 2;
    for (Case &c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.words));
        gCurrentAdapter = 0;
        std::vector<char *> argv;
        for (std::string &word : c.words)
            argv.push_back(word.data());
        argv.push_back(nullptr);
        krt_unit::StreamCapture out;
        EXPECT_EQ(entry.cmdHandler(static_cast<int>(c.words.size()), argv.data(), &entry), c.status);
        EXPECT_TRUE(krt_test::has(out.text(), c.out)) << out.text();
        EXPECT_EQ(gCurrentAdapter, c.current);
    }
    g_pAdInfos = nullptr;
    g_oneBaseMode = 0;
    dbg_enable = 0;
    gNumAdaptersFound = 0;
    gCurrentAdapter = 0;
}

TEST(OneBase, ControllerNumbers)
{
    const std::string chosen = "NVMe Controller 1 set as default CLI commands refers to.\n";
    runOneBased(
        {"adapter", 8, doAdapter, adapter_help, adapter_sh, &adapter_options}, kRaid,
        {
            {{"adapter", "-i", "0"}, 1, "-i : invalid NVMe Controller id '0'\n"},
            {{"adapter", "-i", "3"}, 1, "NVMe Controller 3 does not exist.\n"},
            {{"adapter", "-i", "x1"}, 1, "-i : invalid NVMe Controller id 'x1'\n"},
            {{"adapter", "-i", "2"},
             0,
             "NVMe Controller 2 set as default CLI commands refers to.\nUpdated current NVMe Controller id : 0\n",
             1},
            {{"adapter", "-i", "1", "-i", "1"}, 1, chosen + chosen + "Duplicated option specified.\n"},
        });
    runOneBased({"get", 4, doSGet, get_help, get_sh, &get_options}, kRaid,
                {
                    {{"get", "-o", "hba", "-i", "0"}, 1, "-i : invalid id '0'\n"},
                    {{"get", "-o", "hba", "-i", "3"}, 1, "-i : invalid id '3'\n"},
                    {{"get", "-o", "hba", "-i", "2"}, 1, "CDW[12]: 0x000001e0\n"},  // index 1: asked for
                });
    runOneBased({"set", 4, doSSet, set_help, set_sh, &set_options}, kRaid,
                {
                    {{"set", "-o", "hba", "-i", "0", "-a", "on"}, 1, "-i : invalid id '0'\n"},
                    {{"set", "-o", "hba", "-i", "1", "-v", "0"}, 1, "-v : invalid vd id '0'\n"},
                    {{"set", "-o", "hba", "-i", "1", "-v", "2"}, 1, "Unable to get configuration info of adapter 0\n"},
                });
}

TEST(OneBase, DiskAndVdIdsAreShiftedAndNamespaceIdsAreNot)
{
    runOneBased({"info", 5, doSInfo, info_help, info_sh, &info_options}, kRaid,
                {
                    {{"info", "-o", "pd", "-i", "1"}, 0, "CDW[12]: 0x000000e1\nCDW[14]: 0x00000000\n"},
                    {{"info", "-o", "vd", "-i", "3"}, 0, "CDW[12]: 0x000000e2\nCDW[14]: 0x00000002\n"},
                    // Below the first number: reported, then asked for all the same.
                    {{"info", "-o", "pd", "-i", "0"},
                     0,
                     "-i : id should be a number\nCDW[0] : 0x000000e2\nCDW[12]: 0x000000e1\nCDW[14]: 0x0000ffff\n"},
                    {{"info", "-o", "vd", "-i", "0"}, 0, "CDW[12]: 0x000000e2\nCDW[14]: 0x0000ffff\n"},
                    // 256 counted from one is id 255: every disk.
                    {{"info", "-o", "pd", "-i", "256"}, 0, "\nNo physical disk is found.\n"},
                    {{"info", "-o", "ns", "-t", "vd", "-v", "3"}, 0, "CDW[12]: 0x000301e5\nCDW[14]: 0x00000000\n"},
                });
    runOneBased({"import", 7, doSImport, import_help, import_sh, &import_options}, kJbof,
                {
                    {{"import", "-l", "0"}, 1, "-l : invalid VD ID '0'\n"},
                    {{"import", "-p", "0", "-l", "1"}, 1, "-p : invalid PD ID '0'\n"},
                    {{"import", "-n", "0", "-l", "1"}, 1, "-n : invalid NS Table ID '0'\n"},
                    {{"import", "-i", "0", "-l", "1"}, 1, "-i : invalid NVMe Controller id '0'\n"},
                    {{"import", "-i", "3", "-l", "1"}, 1, "NVMe Controller 2 does not exist.\n"},
                    // 0xff stands for every table and is not shifted.
                    {{"import", "-p", "3", "-n", "0xff", "-l", "1"},
                     0,
                     "CDW[12]: 0x000009e1\nCDW[14]: 0x00ff0002\n\nFail to import NS Table ID 256.\n"},
                    {{"import", "-p", "1", "-n", "0x10", "-l", "1"}, 0, "CDW[14]: 0x000f0000\n"},
                    {{"import", "-p", "1", "-n", "65536", "-l", "1"}, 0, "CDW[14]: 0xffff0000\n"},
                });
    runOneBased({"import", 7, doSImport, import_help, import_sh, &import_options}, kRaid,
                {
                    {{"import", "-l", "65536"}, 0, "CDW[14]: 0x0000ffff\n\nUnable to get info of VD\n"},
                    {{"import", "-l", "65537"}, 1, "-l : invalid VD ID '65537'\n"},
                });
    runOneBased(
        {"reset", 6, doSReset, reset_help, reset_sh, &reset_options}, kRaid,
        {
            {{"reset", "-i", "0"}, 0, "-i : invalid device id '0'\n"},
            {{"reset", "-t", "power", "-a", "on", "-i", "3"}, 1, "Power Pin ID only support 1 or 2\n"},
            {{"reset", "-t", "power", "-a", "off", "-i", "2"}, 1, "CDW[14]: 0x02010001\nReset failed.\n"},
            {{"reset", "-t", "perstn", "-a", "off", "-i", "4"}, 1, "CDW[12]: 0x000008e1\nCDW[14]: 0x02020003\n"},
            {{"reset", "-i", "65537"}, 0, "-i : invalid device id '65537'\n"},
        });
    runOneBased({"led", 4, doSLed, led_help, led_sh, &led_options}, kRaid,
                {
                    {{"led", "-o", "rc", "-i", "0", "-a", "on"}, 0, "-i : invalid id '0'\n"},
                    {{"led", "-o", "rc", "-i", "3", "-a", "qb"},
                     1,
                     "CDW[0] : 0x000000e2\nCDW[12]: 0x000007e1\nCDW[14]: 0x00030002\nLED control failed.\n"},
                });
}

}  // namespace
