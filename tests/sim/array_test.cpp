// Requests that change the machine (virtual disks and their background
// activities) and the logs they leave behind.
#include <gtest/gtest.h>

#include "sim_client.h"

using namespace krt_sim_test;

namespace {

KRT_U32 vendor(KRT_U8 code)
{
    return 0x700u | code;
}

KRT_U32 vdCreate(KRT_U8 stripe, KRT_U8 mode)
{
    return krt_cdw12(0xE2, 3, static_cast<KRT_U16>(stripe | mode << 8));
}

_NVME_VD_Info vdInfo(const LibMachine &m, KRT_U32 id)
{
    return record<_NVME_VD_Info>(m.query(krt_cdw12(0xE2, 0, 0), id));
}

_NVME_BGA_STATUS activity(const LibMachine &m, KRT_U32 vd)
{
    return record<_NVME_BGA_STATUS>(m.query(krt_cdw12(0xE3, 2, 0), vd));
}

}  // namespace

TEST(SimArray, CreateAndDeleteVd)
{
    LibMachine m("raid");  // PDs 0-3 RAID5, 4-5 RAID1, 6-7 spare
    struct Case {
        KRT_U32 cdw12, members, namespaces, status;
    } refused[] = {
        {vdCreate(3, KRT_RAID1), 0xC0, 0, vendor(62)}, {vdCreate(0, 0x33), 0xC0, 0, vendor(60)},
        {vdCreate(0, KRT_RAID5), 0xC0, 0, vendor(61)}, {vdCreate(0, KRT_RAID1), 0x300, 0, vendor(6)},
        {vdCreate(0, KRT_RAID1), 0x81, 0, vendor(59)}, {vdCreate(0, KRT_RAID1), 0xC0, 9, vendor(74)},
    };
    for (const Case &c : refused)
        EXPECT_EQ(m.act(c.cdw12, c.members, c.namespaces), c.status) << std::hex << c.cdw12 << " " << c.members;
    EXPECT_EQ(m.query(krt_cdw12(0xE2, 0, 0), 2)[4], 7) << "a refused create leaves nothing";

    ASSERT_EQ(m.act(vdCreate(1, KRT_RAID1), 0xC0, 2), 0u);
    _NVME_VD_Info vd = vdInfo(m, 2);
    EXPECT_EQ(vd.RaidMode, KRT_RAID1);
    EXPECT_EQ(vd.PDIDs[1], 7);
    EXPECT_EQ(vd.StripBlockSize, 512);
    EXPECT_EQ(vd.NSIDs[1], 5);
    EXPECT_EQ(m.act(vdCreate(0, KRT_RAID1), 0xC0, 0), vendor(59)) << "members are taken now";

    ASSERT_EQ(m.act(krt_cdw12(0xE2, 4, 0)), 0u);
    EXPECT_EQ(m.act(krt_cdw12(0xE2, 4, 0)), vendor(7));
    // The freed disks make a new parity array, which starts initialising.
    ASSERT_EQ(m.act(vdCreate(0, KRT_RAID5), 0x0F, 0), 0u);
    EXPECT_EQ(vdInfo(m, 0).Status, KRT_VD_INITIALIZATION);
    EXPECT_EQ(activity(m, 0).BgaType, KRT_BGA_INIT);
}

TEST(SimArray, RebuildRunsWithTheClock)
{
    LibMachine m("degraded");  // VD 0 RAID6 missing a member, rebuild paused; VD 1 RAID5 initialising
    EXPECT_EQ(m.act(krt_cdw12(0xE3, 7, 0), 0, 0x00090001), vendor(54)) << "VD 1 misses no member";
    EXPECT_EQ(m.act(krt_cdw12(0xE3, 4, 0), 0, 0x00030000), 0u) << "stop the paused rebuild";
    EXPECT_EQ(m.act(krt_cdw12(0xE3, 7, 0), 0, 0x00040000), vendor(6)) << "PD 4 has failed";
    EXPECT_EQ(m.act(krt_cdw12(0xE3, 7, 0), 0, 0x00090000), 0u);
    EXPECT_EQ(vdInfo(m, 0).Status, KRT_VD_REBUILDING);
    ASSERT_EQ(m.run("clock advance 50").status, 0);
    EXPECT_EQ(activity(m, 0).Percentage, 50);
    ASSERT_EQ(m.run("clock advance 50").status, 0);
    EXPECT_EQ(activity(m, 0).BgaStatus, KRT_NVME_BGA_STATUS_NONE);
    _NVME_VD_Info vd = vdInfo(m, 0);
    EXPECT_EQ(vd.Status, KRT_VD_FUNCTIONAL);
    EXPECT_EQ(vd.PDIDs[3], 9);
}

TEST(SimArray, ActivityQueryWithoutAVdNamesTheCurrentOne)
{
    krt_test::TempDir dir;
    krt_test::writeFile(dir.file("f.json"), R"({"adapters": [{"pd_count": 8, "vds": [
        {"raid": "raid1", "members": [0, 1]},
        {"id": 2, "raid": "raid5", "members": [2, 3, 4], "bga": {"type": "init", "state": "paused", "percent": 30}},
        {"id": 3, "raid": "raid1", "members": [5, 6], "bga": {"type": "media_patrol", "percent": 5}}]}]})");
    LibMachine m(dir.file("f.json"));
    struct Expected {
        KRT_U8 type, id, percent, status;
    };
    auto expectCurrent = [&](const Expected &e, const char *what) {
        const _NVME_BGA_STATUS b = activity(m, 0);
        EXPECT_EQ((std::vector<int>{b.BgaType, b.ID, b.Percentage, b.BgaStatus}),
                  (std::vector<int>{e.type, e.id, e.percent, e.status}))
            << what;
    };
    // The lowest VD with an activity, paused or not; VD 0 itself is idle.
    expectCurrent({KRT_BGA_INIT, 2, 30, KRT_NVME_BGA_STATUS_NONE}, "VD 2's, with VD 0's idle status");
    EXPECT_EQ(activity(m, 3).BgaStatus, KRT_NVME_BGA_STATUS_RUNNING) << "a VD named in CDW14 answers for itself";
    ASSERT_EQ(m.act(krt_cdw12(0xE2, 4, 0)), 0u);
    expectCurrent({KRT_BGA_INIT, 2, 30, KRT_NVME_BGA_STATUS_PAUSE}, "no VD 0: the activity's own status");
    ASSERT_EQ(m.act(krt_cdw12(0xE3, 4, 0), 0, 0x00030002), 0u);
    expectCurrent({KRT_BGA_MEDIA_PATROL, 3, 5, KRT_NVME_BGA_STATUS_RUNNING}, "VD 3's once VD 2's stopped");
    ASSERT_EQ(m.act(krt_cdw12(0xE3, 4, 0), 0, 0x00030003), 0u);
    expectCurrent({0, 0, 0, KRT_NVME_BGA_STATUS_NONE}, "nothing left");
    EXPECT_EQ(m.query(krt_cdw12(0xE3, 2, 0))[4], 0);
}

TEST(SimLogs, EventRingWrapsInWholeLinesAndSpiLogComesInChunks)
{
    krt_test::TempDir dir;
    krt_test::writeFile(dir.file("f.json"),
                        R"({"adapters": [{"event_fill": 300, "spi_log": ")" + std::string(4096, 'L') + R"("}]})");
    LibMachine m(dir.file("f.json"));
    std::string events;
    Words words = cmd({{0, KRT_VENDOR_OPCODE}, {10, 1023}, {12, krt_cdw12(0xFE, 4, 0)}, {14, 4096}});
    for (KRT_U32 page = 0; page < 16; ++page) {
        Reply reply{};
        words[13] = page * 4096;
        ASSERT_EQ(m.read(words, reply), 0u);
        std::string part = text(reply.data() + 40, strnlen(reinterpret_cast<char *>(reply.data() + 40), 4056));
        EXPECT_TRUE(part.empty() || part.back() == '\n') << "page " << page;
        events += part;
    }
    // 303 events in a ring of 256: slot 0 holds event 257, the oldest kept is 48.
    EXPECT_EQ(events.rfind("[SEQ]257[TIME]", 0), 0u);
    EXPECT_NE(events.find("[MSG]Event 300\n[SEQ]48[TIME]"), std::string::npos);
    EXPECT_EQ(events.find("[SEQ]47["), std::string::npos);

    std::vector<KRT_U32> lengths;
    for (int i = 0; i < 3; ++i)
        lengths.push_back(record<KRT_U32>(m.query(krt_cdw12(0xFE, 0, 0))));
    EXPECT_EQ(lengths, (std::vector<KRT_U32>{4080, 16, 0}));
}

TEST(SimLogs, SmartOfTheControllerAndOfEachDisk)
{
    LibMachine m("degraded");  // PD 7 has the SMART critical warning
    std::array<KRT_U8, 512> smart{};
    ASSERT_EQ(m.read(cmd({{0, NVME_ADMIN_GET_LOG_PAGE}, {1, 0xFFFFFFFF}, {10, 0x007F0002}}), smart), 0u);
    EXPECT_EQ(smart[0], 1) << "the controller reports its worst disk";

    Words disk = cmd({{0, KRT_PD_CMD_FROM_DISK}, {10, 0x007F0002}, {14, NVME_ADMIN_GET_LOG_PAGE}, {15, 0xFFFFFFFF}});
    const std::tuple<KRT_U32, KRT_U32, KRT_U8> cases[] = {{0, 0, 0}, {7, 0, 1}, {31, 0x706, 0xEE}};
    for (const auto &[pd, status, warning] : cases) {
        smart.fill(0xEE);
        disk[1] = pd;
        EXPECT_EQ(m.read(disk, smart), status) << pd;
        EXPECT_EQ(smart[0], warning) << pd;
    }
}
