// vd, init, rebuild and ns where the simulator cannot take them: one-base
// numbering (never on at run time) and a host whose OS volume sits on a
// virtual disk. An in-process driver records what reaches the controller.
#include <gtest/gtest.h>

#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "device/device_management.h"
#include "guard/osvolume.h"
#include "guard_temp_tree.h"
#include "shell/shell.h"
#include "stream_capture.h"
#include "transport_fake_driver.h"
#include "util/state.h"

namespace {

using Words = std::vector<KRT_U32>;

class ArrayCommands : public ::testing::Test {
  protected:
    void SetUp() override
    {
        fake::Adapter a = fake::managedAdapter("vmhba1");
        a.adapterInfo[8 + 158] = 0x3A;  // the PCI address 3a:00.0 the host tree names
        fake::scan({a});
        ASSERT_EQ(GetDeviceManagementInstance()->getDeviceCount(), 1);
        // The cached record: namespaces, but MaxNS 0 (no namespace table).
        info_.Features = KRT_FEATURE_NS_MGMT;
        g_pAdInfos = &info_;
        gNumAdaptersFound = 1;
        gCurrentAdapter = 0;
        pCmdTable = generalCmdTableV1;
        cmdTableSize = generalCmdTableV1Size();
    }
    void TearDown() override
    {
        g_oneBaseMode = 0;
        g_pAdInfos = nullptr;
        gNumAdaptersFound = 0;
        pCmdTable = nullptr;
        cmdTableSize = 0;
        sysdisk_final();
        GetDeviceManagementInstance()->Final();
    }

    // Runs a command line through the dispatcher; what it printed.
    std::string run(const std::string &line)
    {
        std::istringstream in(line);
        std::vector<std::string> words{std::istream_iterator<std::string>(in), {}};
        std::vector<char *> argv;
        for (std::string &word : words)
            argv.push_back(word.data());
        argv.push_back(nullptr);
        fake::driver().requests.clear();
        krt_unit::StreamCapture out;
        EXPECT_EQ(cmdDispatcher(static_cast<int>(words.size()), argv.data()), 0);
        sent.clear();
        for (const fake::Request &r : fake::sent(KRT_VENDOR_OPCODE))
            for (KRT_U32 word : fake::dwords(r.io, 12, 15))
                sent.push_back(word);
        return out.text();
    }

    fake::Installed installed;
    _NVME_Adapter_Info info_{};
    Words sent;  // CDW12-14 of each vendor request of the last run
};

TEST_F(ArrayCommands, OneBaseNumbersAreShiftedDownAndZeroIsRefused)
{
    // Every vendor request gets this page: a disk of 512-byte sectors.
    _NVME_PD_Info pd{};
    pd.SectorSize = 512;
    fake::answer(fake::driver().adapters[0].adapterInfo, pd);
    g_oneBaseMode = 1;
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
        EXPECT_EQ(run(c.words), c.out) << c.words;
        EXPECT_EQ(sent, c.sent) << c.words;
        // A refusal sends nothing at all.
        EXPECT_TRUE(!c.sent.empty() || fake::driver().requests.empty()) << c.words;
    }

    // The controller list of an attachment counts from one too.
    EXPECT_EQ(run("ns -a attach -i 1 -d 1,,2"), "Attach namespace success\n");
    const auto attach = fake::sent(NVME_ADMIN_NS_ATTACH);
    ASSERT_EQ(attach.size(), 1u);
    EXPECT_EQ(fake::dwords(attach[0].io, 10, 11), Words{0});
    ASSERT_EQ(attach[0].sent.size(), 4096u);
    EXPECT_EQ(std::vector<KRT_U8>(attach[0].sent.begin(), attach[0].sent.begin() + 8),
              (std::vector<KRT_U8>{2, 0, 0, 0, 1, 0, 0, 0}));
}

TEST_F(ArrayCommands, TheVdHoldingTheOsVolumeIsNeverDeleted)
{
    // The host's root file system lives on namespace 1 of this controller...
    TempTree host;
    const std::string ns = "sys/devices/pci0000:00/0000:3a:00.0/nvme/nvme0/nvme0n1";
    host.write("proc/self/mountinfo", "25 1 259:1 / / rw - ext4 /dev/nvme0n1 rw\n");
    host.write(ns + "/nsid", "1\n");
    host.symlink("../../devices/pci0000:00/0000:3a:00.0/nvme/nvme0/nvme0n1", "sys/dev/block/259:1");
    os_vol_scan(host.path().c_str());
    ASSERT_TRUE(os_vol_on_namespace(0, 1));
    // ... which belongs to VD 2.
    _NVME_NS_Info record{};
    record.NSID = 1;
    record.device_type = 1;
    record.ID = 2;
    record.Status = KRT_NS_VALID | KRT_NS_ACTIVE;
    fake::answer(fake::driver().adapters[0].pairReply, record);

    EXPECT_EQ(run("vd -a delete -i 2"), "\nUnable to delete VD 2. Because it contains a OS volume.\n");
    EXPECT_EQ(sent, Words{}) << "no delete reached the controller";
    g_oneBaseMode = 1;
    EXPECT_EQ(run("vd -a delete -i 3"), "\nUnable to delete VD 3. Because it contains a OS volume.\n");
    EXPECT_EQ(sent, Words{});

    // Another VD goes.
    g_oneBaseMode = 0;
    EXPECT_EQ(run("vd -a delete -i 1"), "cmd success\n");
    EXPECT_EQ(sent, (Words{0x000104E2, 0, 0}));
}

}  // namespace
