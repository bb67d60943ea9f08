// The commands in one-base numbering, which is never on at run time: typed
// controller, disk and VD numbers count from 1, request words from 0,
// namespace ids and "every table" are never shifted. An in-process driver
// records what reaches the controller.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "device/device_management.h"
#include "krt/records.h"
#include "text.h"
#include "transport_fake_driver.h"
#include "unit_support.h"

namespace {

using Words = std::vector<KRT_U32>;
constexpr KRT_U32 kRaid = KRT_FEATURE_RAID | KRT_FEATURE_IMPORT, kJbof = KRT_FEATURE_IMPORT;

class OneBase : public ::testing::Test {
  protected:
    void SetUp() override
    {
        g_pAdInfos = infos;
        g_oneBaseMode = 1;
    }
    void TearDown() override
    {
        g_pAdInfos = nullptr;
        g_oneBaseMode = dbg_enable = gNumAdaptersFound = gCurrentAdapter = 0;
        GetDeviceManagementInstance()->Final();
    }
    // What the line printed; CDW12-14 of each vendor request it sent into `sent`.
    std::pair<int, std::string> run(const std::string &line)
    {
        fake::driver().requests.clear();
        const auto result = krt_unit::runLine(line);
        sent.clear();
        for (const fake::Request &r : fake::sent(KRT_VENDOR_OPCODE))
            for (KRT_U32 word : fake::dwords(r.io, 12, 15))
                sent.push_back(word);
        return result;
    }

    fake::Installed installed;
    _NVME_Adapter_Info infos[2]{};
    Words sent;
};

// As controller 0 of two that never answer, with debugging on: the words
// show before they are sent.
TEST_F(OneBase, TypedNumbersCountFromOne)
{
    const struct {
        const char *words;
        int status;
        std::string out;  // a part of the output
        int current = 0;  // the controller chosen afterwards
        KRT_U32 features = kRaid;
    } cases[] = {
        {"adapter -i 0", 1, "-i : invalid NVMe Controller id '0'\n"},
        {"adapter -i 3", 1, "NVMe Controller 3 does not exist.\n"},
        {"adapter -i x1", 1, "-i : invalid NVMe Controller id 'x1'\n"},
        {"adapter -i 2", 0,
         "NVMe Controller 2 set as default CLI commands refers to.\nUpdated current NVMe Controller id : 0\n", 1},
        {"adapter -i 1 -i 1", 1, "refers to.\nNVMe Controller 1 set as default CLI commands refers to.\nDuplicated"},
        {"get -o hba -i 0", 1, "-i : invalid id '0'\n"},
        {"get -o hba -i 3", 1, "-i : invalid id '3'\n"},
        {"get -o hba -i 2", 1, "CDW[12]: 0x000001e0\n"},
        {"set -o hba -i 0 -a on", 1, "-i : invalid id '0'\n"},
        {"set -o hba -i 1 -v 0", 1, "-v : invalid vd id '0'\n"},
        {"set -o hba -i 1 -v 2", 1, "Unable to get configuration info of adapter 0\n"},
        {"info -o pd -i 1", 0, "CDW[12]: 0x000000e1\nCDW[14]: 0x00000000\n"},
        {"info -o vd -i 3", 0, "CDW[12]: 0x000000e2\nCDW[14]: 0x00000002\n"},
        // Below the first number: reported, then asked for all the same.
        {"info -o pd -i 0", 0,
         "-i : id should be a number\nCDW[0] : 0x000000e2\nCDW[12]: 0x000000e1\nCDW[14]: 0x0000ffff"},
        {"info -o vd -i 0", 0, "CDW[12]: 0x000000e2\nCDW[14]: 0x0000ffff\n"},
        {"info -o pd -i 256", 0, "\nNo physical disk is found.\n"},  // id 255: every disk
        {"info -o ns -t vd -v 3", 0, "CDW[12]: 0x000301e5\nCDW[14]: 0x00000000\n"},
        {"import -l 0", 1, "-l : invalid VD ID '0'\n", 0, kJbof},
        {"import -p 0 -l 1", 1, "-p : invalid PD ID '0'\n", 0, kJbof},
        {"import -n 0 -l 1", 1, "-n : invalid NS Table ID '0'\n", 0, kJbof},
        {"import -i 0 -l 1", 1, "-i : invalid NVMe Controller id '0'\n", 0, kJbof},
        {"import -i 3 -l 1", 1, "NVMe Controller 2 does not exist.\n", 0, kJbof},
        {"import -p 3 -n 0xff -l 1", 0, "CDW[12]: 0x000009e1\nCDW[14]: 0x00ff0002\n\nFail to import NS Table ID 256.\n",
         0, kJbof},
        {"import -p 1 -n 0x10 -l 1", 0, "CDW[14]: 0x000f0000\n", 0, kJbof},
        {"import -p 1 -n 65536 -l 1", 0, "CDW[14]: 0xffff0000\n", 0, kJbof},
        {"import -l 65536", 0, "CDW[14]: 0x0000ffff\n\nUnable to get info of VD\n"},
        {"import -l 65537", 1, "-l : invalid VD ID '65537'\n"},
        {"reset -i 0", 0, "-i : invalid device id '0'\n"},
        {"reset -i 65537", 0, "-i : invalid device id '65537'\n"},
        {"reset -t power -a on -i 3", 1, "Power Pin ID only support 1 or 2\n"},
        {"reset -t power -a off -i 2", 1, "CDW[14]: 0x02010001\nReset failed.\n"},
        {"reset -t perstn -a off -i 4", 1, "CDW[12]: 0x000008e1\nCDW[14]: 0x02020003\n"},
        {"led -o rc -i 0 -a on", 0, "-i : invalid id '0'\n"},
        {"led -o rc -i 3 -a qb", 1,
         "CDW[0] : 0x000000e2\nCDW[12]: 0x000007e1\nCDW[14]: 0x00030002\nLED control failed.\n"},
    };
    fake::scan({});
    dbg_enable = 1;
    gNumAdaptersFound = 2;
    for (const auto &c : cases) {
        infos[0].Features = infos[1].Features = c.features;
        gCurrentAdapter = 0;
        const auto [status, out] = run(c.words);
        EXPECT_EQ(status, c.status) << c.words;
        EXPECT_TRUE(krt_test::has(out, c.out)) << c.words << "\n" << out;
        EXPECT_EQ(gCurrentAdapter, c.current) << c.words;
    }
}

// vd, init, rebuild and ns against a controller whose every vendor request
// gets a disk of 512-byte sectors; namespaces, but no namespace table.
TEST_F(OneBase, ArrayCommandsShiftIdsDownAndRefuseZero)
{
    fake::scan({fake::managedAdapter("vmhba1")});
    _NVME_PD_Info pd{};
    pd.SectorSize = 512;
    fake::answer(fake::driver().adapters[0].adapterInfo, pd);
    infos[0].Features = KRT_FEATURE_NS_MGMT;
    gNumAdaptersFound = 1;
    const std::string ok = "cmd success\n";
    const struct {
        std::string words, out;
        Words sent;
    } cases[] = {
        {"vd -a create -r 1 -d 1,2", ok, {0x010003E2, 3, 0}},
        {"vd -a create -r 1 -d 2,0", "-d : invalid PD ID '2,0'\n", {}},
        {"vd -a delete -i 0", "-i : invalid id '0'\n", {}},
        {"init -i 0", "-i : invalid vd id '0'.\n", {}},
        {"rebuild -i 1 -d 0", "-i : invalid pd id '0'.\n", {}},
        // Counted from one, the widest ids still fit their 16 bits.
        {"vd -a delete -i 65536", ok, {0xFFFF04E2, 0, 0}},
        {"init -i 1", ok, {0x06E3, 0, 0x00020000}},
        {"rebuild -i 3 -d 65536", ok, {0x07E3, 0, 0xFFFF0002}},
        // -i is a disk only after "-a init" or "-a create": before it, the 3
        // is a namespace id and stays 3 (PD byte 4). After it, PD 2 is asked
        // for as 2 and sent as 3; controller 2 is id 1.
        {"ns -i 3 -a create -c 2 -l 1", "\nCreate NS successfully\n", {0xE1, 0, 3, 0x010404E5, 0x00200000, 0}},
        {"ns -a create -i 3 -c 2 -l 1", "\nCreate NS successfully\n", {0xE1, 0, 2, 0x010304E5, 0x00200000, 0}},
        {"ns -a init -i 1 -n 2", "\nInitial NS successfully\n", {0x2E5, 0, 2}},
        {"ns -a init -i 0 -n 2", "invalid id '0'\n", {}},
        {"ns -i 0 -a init -n 2", "\nInitial NS successfully\n", {0x2E5, 0, 2}},
        // Namespace ids are never shifted; the keeping controller is.
        {"ns -a share -i 5 -s no -c 4", "\nSet sharing NS successfully\n", {0x503E5, 0, 0x300}},
        {"ns -a detach -i 1 -d 2,0", "invalid controller id '0'\n", {}},
        {"ns -a create -i 1 -c 0 -l 1", "invalid controller id '0'\n", {}},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(run(c.words), std::make_pair(0, c.out)) << c.words;
        EXPECT_EQ(sent, c.sent) << c.words;
        // A refusal sends nothing at all.
        EXPECT_TRUE(!c.sent.empty() || fake::driver().requests.empty()) << c.words;
    }

    // The controller list of an attachment counts from one too.
    EXPECT_EQ(run("ns -a attach -i 1 -d 1,,2").second, "Attach namespace success\n");
    const auto attach = fake::sent(NVME_ADMIN_NS_ATTACH);
    ASSERT_EQ(attach.size(), 1u);
    EXPECT_EQ(fake::dwords(attach[0].io, 10, 11), Words{0});
    ASSERT_EQ(attach[0].sent.size(), 4096u);
    EXPECT_EQ(std::vector<KRT_U8>(attach[0].sent.begin(), attach[0].sent.begin() + 8),
              (std::vector<KRT_U8>{2, 0, 0, 0, 1, 0, 0, 0}));
}

}  // namespace
