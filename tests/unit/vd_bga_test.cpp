// vd, init and rebuild where the simulator cannot take them: one-base
// numbering (never on at run time) and a host whose OS volume sits on a
// virtual disk. An in-process driver records what reaches the controller.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "commands/commands.h"
#include "device/device_management.h"
#include "guard/osvolume.h"
#include "guard_temp_tree.h"
#include "stream_capture.h"
#include "transport_fake_driver.h"
#include "util/state.h"

namespace {

class ArrayCommands : public ::testing::Test {
  protected:
    void SetUp() override
    {
        fake::Adapter a = fake::managedAdapter("vmhba1");
        a.adapterInfo[8 + 158] = 0x3A;  // the PCI address 3a:00.0 the host tree names
        fake::scan({a});
        ASSERT_EQ(GetDeviceManagementInstance()->getDeviceCount(), 1);
    }
    void TearDown() override
    {
        g_oneBaseMode = 0;
        sysdisk_final();
        GetDeviceManagementInstance()->Final();
    }

    // Runs a command as the dispatcher does; what it printed.
    std::string run(std::vector<std::string> words, int expected = 0)
    {
        static const Command_Info table[] = {
            {"vd", 3, doSVD, vd_help, vd_sh, &vd_options},
            {"init", 5, doSINIT, init_help, init_sh, &init_options},
            {"rebuild", 8, doSRebuild, rebuild_help, rebuild_sh, &rebuild_options},
        };
        const Command_Info *entry = nullptr;
        for (const Command_Info &e : table)
            if (words[0] == e.cmd)
                entry = &e;
        std::vector<char *> argv;
        for (std::string &word : words)
            argv.push_back(word.data());
        argv.push_back(nullptr);
        krt_unit::StreamCapture out;
        EXPECT_EQ(entry->cmdHandler(static_cast<int>(words.size()), argv.data(), entry), expected);
        return out.text();
    }

    // CDW12 and CDW14 of the vendor requests sent since the last call.
    std::vector<std::vector<KRT_U32>> sent()
    {
        std::vector<std::vector<KRT_U32>> words;
        for (const fake::Request &r : fake::sent(KRT_VENDOR_OPCODE))
            words.push_back({r.io.cmd[12], r.io.cmd[13], r.io.cmd[14]});
        fake::driver().requests.clear();
        return words;
    }

    fake::Installed installed;
};

using Sent = std::vector<std::vector<KRT_U32>>;

TEST_F(ArrayCommands, OneBaseNumbersAreShiftedDownAndZeroIsRefused)
{
    g_oneBaseMode = 1;
    const std::string ok = "cmd success\n";
    EXPECT_EQ(run({"vd", "-a", "create", "-r", "1", "-d", "1,2"}), ok);
    EXPECT_EQ(sent(), (Sent{{0x010003E2, 0x3, 0}}));
    EXPECT_EQ(run({"vd", "-a", "create", "-r", "1", "-d", "2,0"}), "-d : invalid PD ID '2,0'\n");
    EXPECT_EQ(run({"vd", "-a", "delete", "-i", "0"}), "-i : invalid id '0'\n");
    EXPECT_EQ(run({"init", "-i", "0"}), "-i : invalid vd id '0'.\n");
    EXPECT_EQ(run({"rebuild", "-i", "1", "-d", "0"}), "-i : invalid pd id '0'.\n");
    EXPECT_EQ(sent(), Sent{});

    // Counted from one, the widest ids still fit their 16 bits.
    EXPECT_EQ(run({"vd", "-a", "delete", "-i", "65536"}), ok);
    EXPECT_EQ(run({"init", "-i", "1"}), ok);
    EXPECT_EQ(run({"rebuild", "-i", "3", "-d", "65536"}), ok);
    EXPECT_EQ(sent(), (Sent{{0xFFFF04E2, 0, 0}, {0x06E3, 0, 0x00020000}, {0x07E3, 0, 0xFFFF0002}}));
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

    EXPECT_EQ(run({"vd", "-a", "delete", "-i", "2"}), "\nUnable to delete VD 2. Because it contains a OS volume.\n");
    g_oneBaseMode = 1;
    EXPECT_EQ(run({"vd", "-a", "delete", "-i", "3"}), "\nUnable to delete VD 3. Because it contains a OS volume.\n");
    EXPECT_EQ(sent(), Sent{}) << "no delete reached the controller";

    // Another VD goes.
    g_oneBaseMode = 0;
    EXPECT_EQ(run({"vd", "-a", "delete", "-i", "1"}), "cmd success\n");
    EXPECT_EQ(sent(), (Sent{{0x000104E2, 0, 0}}));
}

}  // namespace
