// What the tool reads of its host: the OS volume on fake host trees (and the
// guard's VD hooks against an in-process driver), and slot numbers from
// synthetic SMBIOS table files.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <functional>
#include <numeric>
#include <string>
#include <vector>

#include "device/device_management.h"
#include "device/smbios.h"
#include "guard/osvolume.h"
#include "transport_fake_driver.h"
#include "unit_support.h"

namespace {

using Bytes = std::vector<KRT_U8>;

const std::string kPci = "pci0000:00/0000:00:1d.0/0000:3a:00.0/nvme/nvme0";
const Bytes kEui = {0x00, 0x25, 0x38, 0x5b, 0x71, 0xb0, 0x12, 0x34};

// A Linux host whose root file system (device rootDev) is partition 2 of
// namespace 1 of an NVMe controller at 3a:00.0.
void linuxHost(const TempTree &t, const std::string &rootDev = "259:2")
{
    t.write("proc/self/mountinfo", "1 0 0:1 / / rw - rootfs rootfs rw\n25 1 " + rootDev +
                                       " / / rw,relatime shared:1 - ext4 /dev/nvme0n1p2 rw\n"
                                       "26 25 0:5 / /dev rw - devtmpfs udev rw\n");
    const std::string ns = "sys/devices/" + kPci + "/nvme0n1";
    t.write(ns + "/nsid", "1\n");
    t.write(ns + "/eui", "00 25 38 5b 71 b0 12 34\n");
    t.write(ns + "/nguid", "6479a753-0b6f-4e8d-9f00-00000000abcd\n");
    t.write(ns + "/nvme0n1p2/partition", "2\n");
    t.symlink("../../devices/" + kPci + "/nvme0n1/nvme0n1p2", "sys/dev/block/259:2");
}

// A hypervisor host booted from the volume named by its boot bank's link.
void bootBank(const TempTree &t, const std::string &volume)
{
    t.write("vmfs/volumes/" + volume, "");
    t.symlink("/vmfs/volumes/" + volume, "bootbank");
}

std::string hex(const KRT_U8 *bytes, std::size_t size)
{
    std::string text;
    for (std::size_t i = 0; i < size; ++i)
        text += "0123456789abcdef"[bytes[i] >> 4] + std::string(1, "0123456789abcdef"[bytes[i] & 15]);
    return text;
}

// What each host says of its boot volume: PCI address and namespace, and
// its EUI64 and NGUID when it has them.
TEST(OsVolumeFind, EachKindOfHost)
{
    const struct {
        std::function<void(const TempTree &)> host;
        std::string found;
    } cases[] = {
        {[](const TempTree &t) { linuxHost(t); },
         "3a:00.00 1 eui 0025385b71b01234 nguid 6479a7530b6f4e8d9f0000000000abcd"},
        {[](const TempTree &t) {
             linuxHost(t, "253:0");
             t.symlink("../../../../" + kPci + "/nvme0n1/nvme0n1p2", "sys/devices/virtual/block/dm-0/slaves/nvme0n1p2");
             t.symlink("../../devices/virtual/block/dm-0", "sys/dev/block/253:0");
         },
         "3a:00.00 1 eui 0025385b71b01234 nguid 6479a7530b6f4e8d9f0000000000abcd"},
        {[](const TempTree &t) { bootBank(t, "eui.0025385b71b01234:5"); }, " 0 eui 0025385b71b01234"},
        // Nothing when the system disk is not an NVMe namespace.
        {[](const TempTree &) {}, ""},
        {[](const TempTree &t) {
             const std::string sda = "devices/pci0000:00/0000:00:17.0/ata1/host0/block/sda/sda1";
             t.write("proc/self/mountinfo", "25 1 8:1 / / rw - ext4 /dev/sda1 rw\n");
             t.write("sys/" + sda + "/partition", "1\n");
             t.symlink("../../" + sda, "sys/dev/block/8:1");
         },
         ""},
        {[](const TempTree &t) { bootBank(t, "5f1e2d3c-aaaa"); }, ""},
    };
    for (const auto &c : cases) {
        TempTree t;
        c.host(t);
        std::string found;
        for (const OsVolume &v : os_vol_find(t.path())) {
            found += v.bdf + " " + std::to_string(v.nsid);
            found += v.hasEui64 ? " eui " + hex(v.eui64, 8) : "";
            found += v.hasNguid ? " nguid " + hex(v.nguid, 16) : "";
        }
        EXPECT_EQ(found, c.found) << &c - cases;
    }
}

// A registered controller at 3a:00.0 whose reply pages the tests set.
class Guard : public ::testing::Test {
  protected:
    void SetUp() override
    {
        fake::Adapter a = fake::managedAdapter("vmhba1");
        a.adapterInfo[8 + 158] = 0x3A;
        a.identify[NVME_ID_CNTLID] = 0x21;
        a.identify[NVME_ID_CNTLID + 1] = 0x43;
        fake::scan({a});
        ASSERT_EQ(GetDeviceManagementInstance()->getDeviceCount(), 1);
    }
    void TearDown() override
    {
        sysdisk_final();
        GetDeviceManagementInstance()->Final();
    }
    fake::Adapter &adapter() { return fake::driver().adapters[0]; }
    // Namespace nsid (valid) in the namespace list of a VD.
    void namespaceOfTheVd(KRT_U32 nsid, KRT_U16 vd = 0)
    {
        _NVME_NS_Info ns{};
        ns.NSID = nsid;
        ns.ID = vd;
        ns.device_type = 1;
        ns.Status = KRT_NS_VALID;
        fake::answer(adapter().pairReply, ns);
    }
    // Identify data: that many namespaces, each with the volume's EUI64.
    void euiOnNamespaces(KRT_U8 namespaces)
    {
        adapter().identify[516] = namespaces;
        std::memcpy(&adapter().identify[120], kEui.data(), kEui.size());
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

    namespaceOfTheVd(1);
    EXPECT_EQ(KRT_VD_Has_OS(0, 0, 32), 256);
    const auto pairs = fake::sent(203);
    ASSERT_EQ(pairs.size(), 1u);
    EXPECT_EQ(pairs[0].io.cmd[12], 0x100E5u) << "sub-command 1 of the namespace class";
    EXPECT_EQ(pairs[0].sent[12], 0) << "the VD ID travels as the third word";
    namespaceOfTheVd(2);
    EXPECT_EQ(KRT_VD_Has_OS(0, 0, 32), 0);
    EXPECT_EQ(KRT_VD_Has_OS(0, 0, 255), 0) << "an overlong MaxNS is bounded by one reply";

    // vd never deletes it (VD 2 here), in either numbering; another VD goes.
    namespaceOfTheVd(1, 2);
    _NVME_Adapter_Info info{};
    info.Features = KRT_FEATURE_NS_MGMT;
    g_pAdInfos = &info;
    gNumAdaptersFound = 1;
    const std::string held = " Because it contains a OS volume.\n";
    for (const char *id : {"2", "3", "1"}) {
        g_oneBaseMode = *id == '3';
        fake::driver().requests.clear();
        const bool ours = *id != '1';
        EXPECT_EQ(krt_unit::runLine(std::string("vd -a delete -i ") + id).second,
                  ours ? "\nUnable to delete VD " + std::string(id) + "." + held : "cmd success\n");
        const auto deletes = fake::sent(KRT_VENDOR_OPCODE);
        ASSERT_EQ(deletes.size(), ours ? 0u : 1u) << id;
        EXPECT_TRUE(ours || deletes[0].io.cmd[12] == 0x000104E2u);
    }
    g_pAdInfos = nullptr;
    g_oneBaseMode = gNumAdaptersFound = 0;

    // The system disk on another PCI function: its identifiers are not
    // looked for on this controller.
    fake::driver().requests.clear();
    GetDeviceManagementInstance()->getDevice(0)->bus_dev_fun[1] = 'b';
    os_vol_scan(t.path().c_str());
    EXPECT_FALSE(os_vol_on_namespace(0, 1));
    TempTree none;
    os_vol_scan(none.path().c_str());
    EXPECT_EQ(KRT_VD_Has_OS(0, 0, 32), 0);
    EXPECT_TRUE(fake::driver().requests.empty());
}

// An identifier match probes every namespace (both answer with the same
// page here: both match). Start-up only notes the scan; the first question
// runs it, once, and the answer is the one an immediate scan gives.
TEST_F(Guard, ScanOnDemandProbesTheNamespacesAtTheFirstQuestion)
{
    TempTree t;
    bootBank(t, "eui.0025385b71b01234");
    euiOnNamespaces(2);
    namespaceOfTheVd(1);
    const std::function<bool()> askers[] = {
        [] { return os_vol_on_namespace(0, 1); },
        [] { return KRT_VD_Has_OS(0, 0, 32) == KRT_VD_HAS_OS; },
    };
    for (const auto &ask : askers) {
        fake::driver().requests.clear();
        os_vol_scan_on_demand(t.path().c_str());
        EXPECT_TRUE(fake::sent(6).empty()) << "nothing is asked of the controller before the question";
        EXPECT_TRUE(ask());
        EXPECT_TRUE(ask());
        EXPECT_TRUE(os_vol_on_namespace(0, 2));
        EXPECT_FALSE(os_vol_on_namespace(1, 1));
        EXPECT_EQ(fake::sent(6).size(), 3u) << "the scan's Identify requests, once, at the question";
        sysdisk_final();
        EXPECT_FALSE(os_vol_on_namespace(0, 1)) << "a pending scan is dropped at the end";
    }
}

TEST_F(Guard, HooksAttachAndDetachTheOnlyVd)
{
    _RequestHeader head{};
    head.numReturned = 1;
    _NVME_VD_Info vd{};
    vd.NSIDs[0] = 3;
    vd.NSIDs[1] = 5;
    fake::answer(adapter().pairReply, head);
    fake::answer(adapter().pairReply, vd, sizeof head);
    // Namespace word, attach (0) or detach (1), and the first bytes of the
    // controller list (one controller: ours) of each request.
    const auto requests = [] {
        std::vector<Bytes> out;
        for (const auto &r : fake::sent(NVME_ADMIN_NS_ATTACH))
            out.push_back({static_cast<KRT_U8>(r.io.cmd[1]), static_cast<KRT_U8>(r.io.cmd[10]), r.sent.at(0),
                           r.sent.at(2), r.sent.at(3), static_cast<KRT_U8>(r.sent.size() >> 8)});
        fake::driver().requests.clear();
        return out;
    };
    EXPECT_EQ(after_create_vd(0), 0);
    EXPECT_EQ(requests(), (std::vector<Bytes>{{3, 0, 1, 0x21, 0x43, 16}, {5, 0, 1, 0x21, 0x43, 16}}));
    EXPECT_EQ(before_delete_vd(0, 0), 0);
    EXPECT_EQ(requests(), (std::vector<Bytes>{{3, 1, 1, 0x21, 0x43, 16}, {5, 1, 1, 0x21, 0x43, 16}}));

    head.numReturned = 2;
    fake::answer(adapter().pairReply, head);
    EXPECT_EQ(after_create_vd(0), 0);
    EXPECT_EQ(before_delete_vd(0, 1), 0);
    EXPECT_TRUE(requests().empty()) << "only with exactly one VD";
}

// A structure of the given type and formatted length with an empty string set.
Bytes structure(std::uint8_t type, std::uint8_t length)
{
    Bytes s(length, 0);
    s[0] = type;
    s[1] = length;
    s.insert(s.end(), {0, 0});
    return s;
}

// A System Slot structure: slot number, in-use flag and bus number.
Bytes systemSlot(std::uint8_t slot, std::uint8_t usage, std::uint8_t bus, const std::string &text = "")
{
    Bytes s = structure(9, 17);
    s[7] = usage;
    s[9] = slot;
    s[15] = bus;
    s.insert(s.begin() + 17, text.begin(), text.end());
    return s;
}

void fixChecksum(Bytes &b, std::size_t at, std::size_t from, std::size_t len)
{
    b[at] = static_cast<KRT_U8>(b[at] - std::accumulate(b.begin() + from, b.begin() + from + len, KRT_U8{0}));
}

// The table is read from the start of the file, entry point included: the
// entry point reads as one structure whose length byte is 'S' (83), so the
// first real structure follows 85 bytes in.
Bytes withEntry(const char *anchor, const std::vector<Bytes> &structures)
{
    Bytes b(85, 0);
    std::memcpy(b.data(), anchor, std::strlen(anchor));
    for (const Bytes &s : structures)
        b.insert(b.end(), s.begin(), s.end());
    return b;
}

Bytes sm3(const std::vector<Bytes> &structures, std::uint32_t size = 0)
{
    Bytes b = withEntry("_SM3_", structures);
    b[6] = 24;
    size = size != 0 ? size : static_cast<std::uint32_t>(b.size());
    std::memcpy(&b[12], &size, 4);
    fixChecksum(b, 5, 0, 24);
    return b;
}

Bytes sm2(const std::vector<Bytes> &structures, std::uint16_t count, std::uint8_t minor = 8)
{
    Bytes b = withEntry("_SM_", structures);
    b[5] = 31;
    b[6] = 2;
    b[7] = minor;
    std::memcpy(&b[16], "_DMI_", 5);
    const auto len = static_cast<std::uint16_t>(b.size());
    std::memcpy(&b[22], &len, 2);
    std::memcpy(&b[28], &count, 2);
    fixChecksum(b, 21, 16, 15);
    fixChecksum(b, 4, 0, 31);
    return b;
}

Bytes flipped(Bytes b, std::initializer_list<std::size_t> at)
{
    for (std::size_t i : at)
        b[i] ^= 1;
    return b;
}

TEST(Smbios, SlotOfTheControllersBus)
{
    const std::vector<Bytes> mixed = {structure(0, 24), systemSlot(5, 4, 0x10), systemSlot(7, 4, 0x3A, "PCIe Slot"),
                                      structure(127, 4)};
    const std::vector<Bytes> slot7 = {systemSlot(7, 4, 0x3A)};
    const std::vector<Bytes> endFirst = {structure(127, 4), systemSlot(6, 4, 0x3A)};
    const std::vector<Bytes> afterOne = {structure(1, 8), systemSlot(6, 4, 0x3A)};
    Bytes truncated = sm3(slot7), longEntry = sm3(slot7);
    truncated.resize(truncated.size() - 3);
    longEntry[6] = 40;
    TempTree dir;
    const std::string path = dir.file("smbios");
    const struct {
        const char *name;
        Bytes file;
        int slot;
        std::string says = "-";  // what it prints, when checked
        const char *bdf = "3a:00.00";
    } cases[] = {
        {"64-bit entry point", sm3(mixed), 7, ""},
        {"32-bit entry point", sm2(mixed, 5), 7},
        {"no slot on the bus", sm3(mixed), -1, "", "11:00.00"},
        {"last matching in-use slot wins",
         sm3({systemSlot(2, 4, 0x3A), systemSlot(9, 4, 0x3A), systemSlot(4, 3, 0x3A)}), 9},
        {"end-of-table stops the 64-bit walk", sm3(endFirst), -1},
        {"but not the 32-bit one", sm2(endFirst, 3), 6},
        {"count limits the 32-bit walk (entry point counts)", sm2(afterOne, 2), -1},
        {"count reaches the slot", sm2(afterOne, 3), 6},
        {"short headers are skipped uncounted", sm2({{1, 2, 0xAA, 0xBB, 0, 0}, systemSlot(6, 4, 0x3A)}, 2), 6},
        {"bad 64-bit checksum", flipped(sm3(slot7), {5}), -1},
        {"bad 32-bit checksum", flipped(sm2(slot7, 2), {4}), -1},
        {"bad _DMI_ checksum", flipped(sm2(slot7, 2), {21, 4}), -1},
        {"unknown anchor", flipped(sm3(slot7), {0}), -1},
        {"table size beyond the file is cut", sm3(slot7, 1u << 20), 7},
        {"structure past the end of the file", truncated, -1},
        {"short file", Bytes{'_', 'S', 'M'}, -1},
        {"empty file", Bytes{}, -1, path + ": Can't read data beyond EOF\n"},
        {"long entry point", longEntry, -1, "Entry point length too large (40 bytes, expected 24).\n"},
        {"version fixup", sm2(slot7, 2, 33), 7, "SMBIOS version fixup (2.33 -> 2.3).\n"},
    };
    for (const auto &c : cases) {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char *>(c.file.data()), std::ssize(c.file));
        EXPECT_EQ(get_SMBIOS_slot_ID(c.bdf, path.c_str()), c.slot) << c.name;
        const std::string said = testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr();
        if (c.says != "-") {
            EXPECT_EQ(said, c.says) << c.name;
        }
    }
    testing::internal::CaptureStderr();
    EXPECT_EQ(get_SMBIOS_slot_ID("3a:00.00", dir.file("absent").c_str()), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "no table file: quietly no slot";
}

}  // namespace
