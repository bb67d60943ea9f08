// Requests that change the machine: virtual disks, background activities,
// namespaces and their attachment; and the logs, SMART and SPI data they
// leave behind.
#include <gtest/gtest.h>

#include <string>

#include "krt/records.h"
#include "sim_machine.h"

using krt_sim_test::LibMachine;

namespace {

const char *const kSig = "nvmeMgmt-vmhba1";

// A direct request without data, as the array commands send it; the outcome
// comes back as the completion status.
KRT_U32 act(LibMachine &m, KRT_U32 cdw12, KRT_U32 cdw13 = 0, KRT_U32 cdw14 = 0)
{
    std::array<KRT_U32, 16> cmd{};
    cmd[0] = KRT_VENDOR_OPCODE;
    cmd[12] = cdw12;
    cmd[13] = cdw13;
    cmd[14] = cdw14;
    return m.client().admin(kSig, cmd, XFER_TO_DEV, nullptr, 0).compStatus;
}

KRT_U32 vendor(KRT_U8 code)
{
    return 0x700u | code;
}

_NVME_VD_Info vdInfo(LibMachine &m, KRT_U32 id, KRT_U8 *status = nullptr)
{
    std::array<KRT_U8, 4096> reply{};
    m.client().direct(kSig, krt_cdw12(0xE2, 0, 0), id, reply);
    if (status != nullptr)
        *status = reply[4];
    _NVME_VD_Info vd;
    std::memcpy(&vd, reply.data() + 8, sizeof vd);
    return vd;
}

_NVME_BGA_STATUS bga(LibMachine &m, KRT_U32 vd)
{
    std::array<KRT_U8, 4096> reply{};
    m.client().direct(kSig, krt_cdw12(0xE3, 2, 0), vd, reply);
    _NVME_BGA_STATUS b;
    std::memcpy(&b, reply.data() + 8, sizeof b);
    return b;
}

std::vector<_NVME_NS_Info> hostNamespaces(LibMachine &m)
{
    std::array<KRT_U8, 4096> reply{};
    m.client().direct(kSig, krt_cdw12(0xE5, 0, 0), 0, reply);
    std::vector<_NVME_NS_Info> out;
    for (size_t at = 8; at + sizeof(_NVME_NS_Info) <= reply.size(); at += sizeof(_NVME_NS_Info)) {
        _NVME_NS_Info ns;
        std::memcpy(&ns, reply.data() + at, sizeof ns);
        if (ns.Status != 0)
            out.push_back(ns);
    }
    return out;
}

KRT_U32 vdCreate(KRT_U8 stripe, KRT_U8 mode)
{
    return krt_cdw12(0xE2, 3, static_cast<KRT_U16>(stripe | mode << 8));
}

}  // namespace

TEST(SimArray, CreateVdChecksWhatTheFirmwareChecks)
{
    LibMachine m("raid");  // PDs 0-3 RAID5, 4-5 RAID1, 6-7 spare
    struct Case {
        KRT_U32 cdw12;
        KRT_U32 members;
        KRT_U32 namespaces;
        KRT_U32 status;
    } refused[] = {
        {vdCreate(3, KRT_RAID1), 0xC0, 0, vendor(62)}, {vdCreate(0, 0x33), 0xC0, 0, vendor(60)},
        {vdCreate(0, KRT_RAID5), 0xC0, 0, vendor(61)}, {vdCreate(0, KRT_RAID1), 0x1C0, 0, vendor(61)},
        {vdCreate(0, KRT_RAID1), 0x300, 0, vendor(6)}, {vdCreate(0, KRT_RAID1), 0x81, 0, vendor(59)},
        {vdCreate(0, KRT_RAID1), 0xC0, 9, vendor(74)},
    };
    for (size_t i = 0; i < std::size(refused); ++i) {
        const auto &c = refused[i];
        EXPECT_EQ(act(m, c.cdw12, c.members, c.namespaces), c.status) << i;
    }
    EXPECT_EQ(m.krtsim({"show"}).out.find("VD 2"), std::string::npos) << "a refused create leaves nothing";

    ASSERT_EQ(act(m, vdCreate(1, KRT_RAID1), 0xC0, 2), 0u);
    KRT_U8 status = 0xFF;
    _NVME_VD_Info vd = vdInfo(m, 2, &status);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(vd.RaidMode, KRT_RAID1);
    EXPECT_EQ(vd.MemberCount, 2);
    EXPECT_EQ(vd.PDIDs[0], 6);
    EXPECT_EQ(vd.PDIDs[1], 7);
    EXPECT_EQ(vd.StripBlockSize, 512);
    EXPECT_EQ(vd.Status, KRT_VD_FUNCTIONAL);
    EXPECT_EQ(vd.NSIDs[0], 4);
    EXPECT_EQ(vd.NSIDs[1], 5);
    auto ns = hostNamespaces(m);
    ASSERT_EQ(ns.size(), 5u);
    EXPECT_EQ(ns[3].Status, KRT_NS_VALID) << "new namespaces wait for attachment";
    EXPECT_EQ(ns[3].LBA * 2, vd.LBA);
    EXPECT_EQ(act(m, vdCreate(0, KRT_RAID1), 0xC0, 0), vendor(59)) << "members are taken now";

    ASSERT_EQ(act(m, krt_cdw12(0xE2, 4, 0)), 0u);
    vdInfo(m, 0, &status);
    EXPECT_EQ(status, 7);
    EXPECT_EQ(hostNamespaces(m).size(), 3u);
    EXPECT_EQ(act(m, krt_cdw12(0xE2, 4, 0)), vendor(7));
    // The freed disks make a new parity array, which starts initialising.
    ASSERT_EQ(act(m, vdCreate(0, KRT_RAID5), 0x0F, 0), 0u);
    EXPECT_EQ(vdInfo(m, 0).Status, KRT_VD_INITIALIZATION);
    EXPECT_EQ(bga(m, 0).BgaType, KRT_BGA_INIT);
    EXPECT_EQ(bga(m, 0).BgaStatus, KRT_NVME_BGA_STATUS_RUNNING);
}

TEST(SimArray, BackgroundActivitiesStartStopAndFinish)
{
    LibMachine m("degraded");  // VD 0 RAID6 missing a member, rebuild paused; VD 1 RAID5 initialising
    EXPECT_EQ(act(m, krt_cdw12(0xE3, 6, 0), 0, 0x00020001), vendor(66)) << "VD 1 is busy";
    EXPECT_EQ(act(m, krt_cdw12(0xE3, 4, 0), 0, 0x00030001), 0u);
    EXPECT_EQ(bga(m, 1).BgaStatus, KRT_NVME_BGA_STATUS_NONE);
    EXPECT_EQ(act(m, krt_cdw12(0xE3, 4, 0), 0, 0x00030001), vendor(67));
    EXPECT_EQ(act(m, krt_cdw12(0xE3, 7, 0), 0, 0x00090001), vendor(54)) << "VD 1 misses no member";
    EXPECT_EQ(act(m, krt_cdw12(0xE3, 0x0A, 0), 0, 1), 0u);
    EXPECT_EQ(bga(m, 1).BgaType, KRT_BGA_MEDIA_PATROL);

    // VD 0: stop the paused rebuild, then rebuild onto PD 9 to the end.
    EXPECT_EQ(act(m, krt_cdw12(0xE3, 4, 0), 0, 0x00030000), 0u);
    EXPECT_EQ(act(m, krt_cdw12(0xE3, 7, 0), 0, 0x00040000), vendor(6)) << "PD 4 has failed";
    EXPECT_EQ(act(m, krt_cdw12(0xE3, 7, 0), 0, 0x00010000), vendor(59)) << "PD 1 is a member";
    EXPECT_EQ(act(m, krt_cdw12(0xE3, 7, 0), 0, 0x00090000), 0u);
    EXPECT_EQ(vdInfo(m, 0).Status, KRT_VD_REBUILDING);
    ASSERT_EQ(m.krtsim({"clock", "advance", "50"}).status, 0);
    EXPECT_EQ(bga(m, 0).Percentage, 50);
    ASSERT_EQ(m.krtsim({"clock", "advance", "50"}).status, 0);
    EXPECT_EQ(bga(m, 0).BgaStatus, KRT_NVME_BGA_STATUS_NONE);
    _NVME_VD_Info vd = vdInfo(m, 0);
    EXPECT_EQ(vd.Status, KRT_VD_FUNCTIONAL);
    EXPECT_EQ(vd.PDIDs[3], 9);
    EXPECT_EQ(act(m, krt_cdw12(0xE3, 6, 0), 0, 7), vendor(7));
}

TEST(SimArray, NamespacesOnAJbofAndTheirAttachment)
{
    LibMachine m("jbof");  // PDs 0-3, one namespace each (NSID 1-4), attached
    EXPECT_EQ(act(m, krt_cdw12(0xE5, 2, 1), 0, 3), 0u);
    auto ns = hostNamespaces(m);
    ASSERT_EQ(ns.size(), 6u);
    int onPd1 = 0;
    for (const auto &n : ns)
        onPd1 += n.ID == 1;
    EXPECT_EQ(onPd1, 3);
    EXPECT_EQ(act(m, krt_cdw12(0xE5, 2, 9), 0, 1), vendor(6));
    EXPECT_EQ(act(m, krt_cdw12(0xE5, 2, 0), 0, 0), vendor(74));

    // Create on PD 0 (byte 2 carries the id plus one): full already.
    EXPECT_EQ(act(m, krt_cdw12(0xE5, 4, 1), 1000, 0), vendor(65));
    EXPECT_EQ(act(m, krt_cdw12(0xE5, 2, 0), 0, 1), 0u);  // re-cut PD 0 into one namespace
    EXPECT_EQ(act(m, krt_cdw12(0xE5, 4, 0), 1000, 0), vendor(6));
    EXPECT_EQ(act(m, krt_cdw12(0xE5, 3, 2), 0, 1), 0u);
    EXPECT_EQ(act(m, krt_cdw12(0xE5, 3, 99), 0, 1), vendor(4));

    // Attachment: the list names this controller (CNTLID 1).
    std::array<KRT_U8, 4096> list{};
    list[0] = 1;
    list[2] = 1;
    std::array<KRT_U32, 16> cmd{};
    cmd[0] = NVME_ADMIN_NS_ATTACH;
    cmd[1] = 3;
    auto attach = [&](KRT_U32 sel) {
        cmd[10] = sel;
        return m.client().admin(kSig, cmd, XFER_TO_DEV, list.data(), list.size()).compStatus;
    };
    EXPECT_EQ(attach(0), 0x118u);
    EXPECT_EQ(attach(1), 0u);
    EXPECT_EQ(attach(1), 0x11Au);
    EXPECT_EQ(attach(0), 0u);
    list[2] = 5;
    EXPECT_EQ(attach(1), 0x11Cu);
    cmd[1] = 200;
    EXPECT_EQ(attach(0), 0x0Bu);
}

TEST(SimLogs, EventsSpiLogSmartAndSpiArea)
{
    LibMachine m("raid");
    ASSERT_EQ(act(m, krt_cdw12(0xE2, 4, 1)), 0u);  // an event to find
    std::array<KRT_U8, 4096> page{};
    std::array<KRT_U32, 16> cmd{};
    cmd[0] = KRT_VENDOR_OPCODE;
    cmd[10] = 1023;
    cmd[12] = krt_cdw12(0xFE, 4, 0);
    cmd[14] = 4096;
    ASSERT_EQ(m.client().admin(kSig, cmd, XFER_FROM_DEV, page.data(), page.size()).compStatus, 0u);
    std::string text(reinterpret_cast<char *>(page.data() + 40));
    EXPECT_EQ(text.rfind("[SEQ]1[TIME]", 0), 0u) << text;
    EXPECT_NE(text.find("[SEQ]4[TIME]"), std::string::npos);
    EXPECT_NE(text.find("[MSG]VD 1 deleted\n"), std::string::npos) << text;
    cmd[13] = 4096;
    page.fill(0xAA);
    m.client().admin(kSig, cmd, XFER_FROM_DEV, page.data(), page.size());
    EXPECT_EQ(page[40], 0) << "the second page is empty";

    // SPI log: state, then chunks until one of length 0.
    std::array<KRT_U8, 4096> reply{};
    m.client().direct(kSig, krt_cdw12(0xFE, 2, 0), 0, reply);
    EXPECT_EQ(reply[8], 1);
    m.client().direct(kSig, krt_cdw12(0xFE, 0, 0), 0, reply);
    KRT_U32 length = 0;
    std::memcpy(&length, reply.data() + 8, 4);
    EXPECT_GT(length, 0u);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(reply.data() + 16), 5), "boot:");
    m.client().direct(kSig, krt_cdw12(0xFE, 0, 0), 0, reply);
    std::memcpy(&length, reply.data() + 8, 4);
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(act(m, krt_cdw12(0xFE, 3, 0), 0, 0), 0u);
    m.client().direct(kSig, krt_cdw12(0xFE, 2, 0), 0, reply);
    EXPECT_EQ(reply[8], 0);

    // SPI data area: written with opcode 199, read back as log page 0xC0.
    std::array<KRT_U8, 4096> spi{};
    for (size_t i = 0; i < spi.size(); ++i)
        spi[i] = static_cast<KRT_U8>(i * 7);
    std::array<KRT_U32, 16> write{};
    write[0] = NVME_ADMIN_VENDOR_C7;
    write[10] = 1024;
    write[12] = 0x08E0;
    ASSERT_EQ(m.client().admin(kSig, write, XFER_TO_DEV, spi.data(), spi.size()).compStatus, 0u);
    std::array<KRT_U32, 16> read{};
    read[0] = NVME_ADMIN_GET_LOG_PAGE;
    read[10] = 0x03FF00C0;
    reply.fill(0);
    ASSERT_EQ(m.client().admin(kSig, read, XFER_FROM_DEV, reply.data(), reply.size()).compStatus, 0u);
    EXPECT_EQ(reply, spi);
}

TEST(SimLogs, SmartOfTheControllerAndOfEachDisk)
{
    LibMachine m("degraded");  // PD 7 has the SMART critical warning
    std::array<KRT_U8, 512> smart{};
    std::array<KRT_U32, 16> cmd{};
    cmd[0] = NVME_ADMIN_GET_LOG_PAGE;
    cmd[1] = 0xFFFFFFFF;
    cmd[10] = 0x007F0002;
    ASSERT_EQ(m.client().admin(kSig, cmd, XFER_FROM_DEV, smart.data(), smart.size()).compStatus, 0u);
    EXPECT_EQ(smart[0], 1) << "the controller reports its worst disk";
    EXPECT_EQ(smart[1] | smart[2] << 8, 308);

    std::array<KRT_U32, 16> disk{};
    disk[0] = KRT_PD_CMD_FROM_DISK;
    disk[10] = 0x007F0002;
    disk[14] = NVME_ADMIN_GET_LOG_PAGE;
    disk[15] = 0xFFFFFFFF;
    struct Case {
        KRT_U32 pd;
        KRT_U32 status;
        KRT_U8 warning;
    } cases[] = {{0, 0, 0}, {7, 0, 1}, {31, 0x706, 0}};
    for (const Case &c : cases) {
        disk[1] = c.pd;
        smart.fill(0xEE);
        auto r = m.client().admin(kSig, disk, XFER_FROM_DEV, smart.data(), smart.size());
        EXPECT_EQ(r.compStatus, c.status) << c.pd;
        if (c.status == 0) {
            EXPECT_EQ(smart[0], c.warning) << c.pd;
        }
    }

    // A namespace reports the disks under it.
    std::array<KRT_U32, 16> nsQuery{};
    nsQuery[0] = KRT_VENDOR_OPCODE;
    nsQuery[9] = 512;
    nsQuery[10] = 127;
    const std::pair<KRT_U32, KRT_U32> namespaces[] = {{1, 0}, {3, 1}, {99, 0xEE}};
    for (const auto &[nsid, warning] : namespaces) {
        nsQuery[12] = nsid << 16 | 0x08E5;
        smart.fill(0xEE);
        auto r = m.client().admin(kSig, nsQuery, XFER_FROM_DEV, smart.data(), smart.size());
        EXPECT_EQ(r.compStatus, nsid == 99 ? 0x0Bu : 0u);
        EXPECT_EQ(smart[0], warning) << nsid;
    }

    // The disk's own Identify, forwarded the same way.
    std::array<KRT_U8, 4096> id{};
    disk[1] = 2;
    disk[10] = 1;
    disk[14] = NVME_ADMIN_IDENTIFY;
    ASSERT_EQ(m.client().admin(kSig, disk, XFER_FROM_DEV, id.data(), id.size()).compStatus, 0u);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(id.data() + NVME_ID_SN), 15), "SSD010002000102");
}

TEST(SimLogs, EventRingWrapsAndSpiLogComesInChunks)
{
    krt_test::TempDir dir;
    const std::string log(4096, 'L');
    krt_test::writeFile(dir.file("f.json"), R"({"adapters": [{"event_fill": 300, "spi_log": ")" + log + R"("}]})");
    LibMachine m(dir.file("f.json"));
    std::string text;
    for (KRT_U32 page = 0; page < 16; ++page) {
        std::array<KRT_U8, 4096> reply{};
        std::array<KRT_U32, 16> cmd{};
        cmd[0] = KRT_VENDOR_OPCODE;
        cmd[10] = 1023;
        cmd[12] = krt_cdw12(0xFE, 4, 0);
        cmd[13] = page * 4096;
        cmd[14] = 4096;
        ASSERT_EQ(m.client().admin(kSig, cmd, XFER_FROM_DEV, reply.data(), reply.size()).compStatus, 0u);
        std::string pageText(reinterpret_cast<char *>(reply.data() + 40),
                             strnlen(reinterpret_cast<char *>(reply.data() + 40), 4056));
        if (!pageText.empty()) {
            EXPECT_EQ(pageText.back(), '\n') << "pages hold whole lines";
        }
        text += pageText;
    }
    // 303 events in a ring of 256: slot 0 holds event 257, the oldest kept is 48.
    EXPECT_EQ(text.rfind("[SEQ]257[TIME]", 0), 0u);
    EXPECT_NE(text.find("[MSG]Event 300\n[SEQ]48[TIME]"), std::string::npos);
    EXPECT_EQ(text.find("[SEQ]47["), std::string::npos);

    std::array<KRT_U8, 4096> reply{};
    std::vector<KRT_U32> lengths;
    for (int i = 0; i < 3; ++i) {
        m.client().direct(kSig, krt_cdw12(0xFE, 0, 0), 0, reply);
        KRT_U32 n = 0;
        std::memcpy(&n, reply.data() + 8, 4);
        lengths.push_back(n);
    }
    EXPECT_EQ(lengths, (std::vector<KRT_U32>{4080, 16, 0}));
}
