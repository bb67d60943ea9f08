// The OS-volume guard on fake host trees, and its VD hooks against an
// in-process driver.
#include <gtest/gtest.h>

#include <cstring>

#include "device/device_management.h"
#include "guard/osvolume.h"
#include "guard_temp_tree.h"
#include "transport_fake_driver.h"

namespace {

const char kPciPath[] = "devices/pci0000:00/0000:00:1d.0/0000:3a:00.0/nvme/nvme0";

// A Linux host whose root file system is partition 2 of namespace 1 of an
// NVMe controller at 3a:00.0.
void linuxHost(const TempTree &t, const std::string &rootDev = "259:2")
{
    t.write("proc/self/mountinfo",
            "1 0 0:1 / / rw - rootfs rootfs rw\n"
            "25 1 " +
                rootDev +
                " / / rw,relatime shared:1 - ext4 /dev/nvme0n1p2 rw\n"
                "26 25 0:5 / /dev rw - devtmpfs udev rw\n");
    const std::string ns = std::string("sys/") + kPciPath + "/nvme0n1";
    t.write(ns + "/nsid", "1\n");
    t.write(ns + "/eui", "00 25 38 5b 71 b0 12 34\n");
    t.write(ns + "/nguid", "6479a753-0b6f-4e8d-9f00-00000000abcd\n");
    t.write(ns + "/nvme0n1p2/partition", "2\n");
    t.symlink(std::string("../../") + kPciPath + "/nvme0n1/nvme0n1p2", "sys/dev/block/259:2");
}

TEST(OsVolumeFind, LinuxRootOnAnNvmePartition)
{
    TempTree t;
    linuxHost(t);
    const auto found = os_vol_find(t.path());
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].bdf, "3a:00.00");
    EXPECT_EQ(found[0].nsid, 1u);
    ASSERT_TRUE(found[0].hasEui64);
    EXPECT_EQ(found[0].eui64[0], 0x00);
    EXPECT_EQ(found[0].eui64[7], 0x34);
    ASSERT_TRUE(found[0].hasNguid);
    EXPECT_EQ(found[0].nguid[0], 0x64);
    EXPECT_EQ(found[0].nguid[15], 0xCD);
}

TEST(OsVolumeFind, RootNotOnNvmeOrUnknown)
{
    TempTree none;
    EXPECT_TRUE(os_vol_find(none.path()).empty());

    TempTree sata;
    sata.write("proc/self/mountinfo", "25 1 8:1 / / rw - ext4 /dev/sda1 rw\n");
    sata.write("sys/devices/pci0000:00/0000:00:17.0/ata1/host0/block/sda/sda1/partition", "1\n");
    sata.symlink("../../devices/pci0000:00/0000:00:17.0/ata1/host0/block/sda/sda1", "sys/dev/block/8:1");
    EXPECT_TRUE(os_vol_find(sata.path()).empty());

    TempTree overlay;
    overlay.write("proc/self/mountinfo", "25 1 0:52 / / rw - overlay overlay rw\n");
    EXPECT_TRUE(os_vol_find(overlay.path()).empty());
}

TEST(OsVolumeFind, MappedDeviceFollowsItsUnderlyingNamespace)
{
    TempTree t;
    linuxHost(t, "253:0");
    t.mkdir("sys/devices/virtual/block/dm-0/slaves");
    t.symlink(std::string("../../../../") + (kPciPath + std::strlen("devices/")) + "/nvme0n1/nvme0n1p2",
              "sys/devices/virtual/block/dm-0/slaves/nvme0n1p2");
    t.symlink("../../devices/virtual/block/dm-0", "sys/dev/block/253:0");
    const auto found = os_vol_find(t.path());
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].nsid, 1u);
    EXPECT_EQ(found[0].bdf, "3a:00.00");
}

TEST(OsVolumeFind, HypervisorBootBankOnAnEuiDevice)
{
    TempTree t;
    t.mkdir("vmfs/volumes/eui.0025385b71b01234:5");
    t.symlink("/vmfs/volumes/eui.0025385b71b01234:5", "bootbank");
    const auto found = os_vol_find(t.path());
    ASSERT_EQ(found.size(), 1u);
    EXPECT_TRUE(found[0].bdf.empty());
    ASSERT_TRUE(found[0].hasEui64);
    EXPECT_EQ(found[0].eui64[1], 0x25);

    TempTree plain;
    plain.mkdir("vmfs/volumes/5f1e2d3c-aaaa");
    plain.symlink("/vmfs/volumes/5f1e2d3c-aaaa", "bootbank");
    EXPECT_TRUE(os_vol_find(plain.path()).empty());
}

// A registered controller at 3a:00.0 whose reply pages the tests set.
class Guard : public ::testing::Test {
  protected:
    void SetUp() override
    {
        fake::Adapter a = fake::managedAdapter("vmhba1");
        a.adapterInfo[8 + 156] = 0;
        a.adapterInfo[8 + 158] = 0x3A;
        a.identify[NVME_ID_CNTLID] = 0x21;
        a.identify[NVME_ID_CNTLID + 1] = 0x43;
        fake::driver().adapters = {a};
        registry()->m_smbios_path = "/nonexistent/smbios";
        testing::internal::CaptureStdout();
        registry()->ScanV2();
        testing::internal::GetCapturedStdout();
        ASSERT_EQ(registry()->getDeviceCount(), 1);
        fake::driver().requests.clear();
    }
    void TearDown() override
    {
        sysdisk_final();
        registry()->Final();
    }
    static DeviceManagement *registry() { return GetDeviceManagementInstance(); }
    fake::Page &reply() { return fake::driver().adapters[0].pairReply; }

    // A VD list reply: the header, then count VDs with the given namespaces.
    void vdList(int count, std::initializer_list<KRT_U8> nsids)
    {
        reply().fill(0);
        std::memcpy(reply().data(), "KRT", 3);
        _RequestHeader head{};
        head.numReturned = static_cast<KRT_U8>(count);
        std::memcpy(reply().data() + 8, &head, sizeof head);
        _NVME_VD_Info vd{};
        int i = 0;
        for (KRT_U8 n : nsids)
            vd.NSIDs[i++] = n;
        std::memcpy(reply().data() + 8 + sizeof head, &vd, sizeof vd);
    }
    std::vector<fake::Request> sentWithOpcode(KRT_U8 opcode)
    {
        std::vector<fake::Request> out;
        for (const auto &r : fake::driver().requests) {
            if ((r.io.cmd[0] & 0xFF) == opcode)
                out.push_back(r);
        }
        return out;
    }

    fake::Installed installed;
};

TEST_F(Guard, VdHoldingTheOsVolume)
{
    TempTree t;
    linuxHost(t);
    os_vol_scan(t.path().c_str());
    EXPECT_TRUE(fake::driver().requests.empty()) << "a PCI address match needs no command";
    EXPECT_TRUE(os_vol_on_namespace(0, 1));
    EXPECT_FALSE(os_vol_on_namespace(0, 2));

    // The namespaces of VD 0: namespace 1 (valid) belongs to it.
    reply().fill(0);
    std::memcpy(reply().data(), "KRT", 3);
    _NVME_NS_Info ns{};
    ns.NSID = 1;
    ns.device_type = 1;
    ns.ID = 0;
    ns.Status = KRT_NS_VALID;
    std::memcpy(reply().data() + 8, &ns, sizeof ns);
    EXPECT_EQ(KRT_VD_Has_OS(0, 0, 32), 256);
    const auto pairs = sentWithOpcode(203);
    ASSERT_EQ(pairs.size(), 1u);
    EXPECT_EQ(pairs[0].io.cmd[12], 0x100E5u) << "sub-command 1 of the namespace class";
    EXPECT_EQ(pairs[0].sent[8] | (pairs[0].sent[9] << 8), 0xE5);
    EXPECT_EQ(pairs[0].sent[12], 0) << "the VD ID travels as the third word";

    ns.ID = 1;
    std::memcpy(reply().data() + 8, &ns, sizeof ns);
    EXPECT_EQ(KRT_VD_Has_OS(0, 1, 32), 256);
    ns.NSID = 2;
    std::memcpy(reply().data() + 8, &ns, sizeof ns);
    EXPECT_EQ(KRT_VD_Has_OS(0, 1, 32), 0);
    // An overlong MaxNS is bounded by one reply.
    EXPECT_EQ(KRT_VD_Has_OS(0, 1, 255), 0);
}

TEST_F(Guard, NoOsVolumeOnTheControllerAsksNothing)
{
    TempTree t;
    os_vol_scan(t.path().c_str());
    EXPECT_EQ(KRT_VD_Has_OS(0, 0, 32), 0);
    EXPECT_TRUE(fake::driver().requests.empty());

    // The system disk sits on another PCI function: its identifiers are not
    // looked for on this controller.
    TempTree other;
    linuxHost(other);
    registry()->getDevice(0)->bus_dev_fun[1] = 'b';
    os_vol_scan(other.path().c_str());
    EXPECT_FALSE(os_vol_on_namespace(0, 1));
    EXPECT_TRUE(fake::driver().requests.empty());
}

TEST_F(Guard, IdentifierMatchProbesNamespaces)
{
    TempTree t;
    t.mkdir("vmfs/volumes/eui.0025385b71b01234");
    t.symlink("/vmfs/volumes/eui.0025385b71b01234", "bootbank");
    fake::Adapter &a = fake::driver().adapters[0];
    a.identify[516] = 2;  // two namespaces
    // Both namespaces answer with the same page: both match.
    const KRT_U8 eui[8] = {0x00, 0x25, 0x38, 0x5b, 0x71, 0xb0, 0x12, 0x34};
    std::memcpy(&a.identify[120], eui, sizeof eui);
    os_vol_scan(t.path().c_str());
    EXPECT_TRUE(os_vol_on_namespace(0, 1));
    EXPECT_TRUE(os_vol_on_namespace(0, 2));
    EXPECT_FALSE(os_vol_on_namespace(1, 1));
    EXPECT_EQ(sentWithOpcode(6).size(), 3u);
}

TEST_F(Guard, HooksAttachAndDetachTheOnlyVd)
{
    vdList(1, {3, 5});
    EXPECT_EQ(after_create_vd(0), 0);
    auto attach = sentWithOpcode(NVME_ADMIN_NS_ATTACH);
    ASSERT_EQ(attach.size(), 2u);
    EXPECT_EQ(attach[0].io.cmd[1], 3u);
    EXPECT_EQ(attach[1].io.cmd[1], 5u);
    EXPECT_EQ(attach[0].io.cmd[10], 0u);
    ASSERT_EQ(attach[0].sent.size(), 4096u);
    EXPECT_EQ(attach[0].sent[0], 1);
    EXPECT_EQ(attach[0].sent[2], 0x21);
    EXPECT_EQ(attach[0].sent[3], 0x43);

    fake::driver().requests.clear();
    EXPECT_EQ(before_delete_vd(0, 0), 0);
    auto detach = sentWithOpcode(NVME_ADMIN_NS_ATTACH);
    ASSERT_EQ(detach.size(), 2u);
    EXPECT_EQ(detach[0].io.cmd[10], 1u);

    fake::driver().requests.clear();
    vdList(2, {3});
    EXPECT_EQ(after_create_vd(0), 0);
    EXPECT_EQ(before_delete_vd(0, 1), 0);
    EXPECT_TRUE(sentWithOpcode(NVME_ADMIN_NS_ATTACH).empty()) << "only with exactly one VD";

    EXPECT_EQ(before_create_vd(0), 0);
    EXPECT_EQ(after_delete_vd(0), 0);
    EXPECT_EQ(after_import_vd(0), 0);
}

}  // namespace
