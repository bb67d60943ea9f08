// When committed firmware starts to run: at once, or at the next reset of
// a controller that cannot activate without one, and what a reboot of the
// host makes of pending slots and half-finished downloads.
#include <gtest/gtest.h>

#include "sim_client.h"
#include "text.h"

using namespace krt_sim_test;

namespace {

KRT_U32 download(const LibMachine &m, const std::string &version, KRT_U32 cdw0 = NVME_ADMIN_FW_DOWNLOAD, KRT_U32 pd = 0)
{
    std::vector<KRT_U8> chunk(4096, 0x33);
    const std::string marker = "KRTFW:" + version + ";";
    std::copy(marker.begin(), marker.end(), chunk.begin() + 8);
    if (cdw0 == KRT_PD_CMD_TO_DISK)
        return m.send(cmd({{0, cdw0}, {1, pd}, {10, 1023}, {14, NVME_ADMIN_FW_DOWNLOAD}}), chunk);
    return m.send(cmd({{0, cdw0}, {10, 1023}}), chunk);
}

KRT_U32 commit(const LibMachine &m, KRT_U32 cdw10)
{
    return m.send(cmd({{0, NVME_ADMIN_FW_COMMIT}, {10, cdw10}}));
}

NVME_Version_Info running(const LibMachine &m)
{
    return record<_NVME_Adapter_Info>(m.query(krt_cdw12(0xE0, 0, 0))).FirmwareVersion;
}

KRT_U8 activeAndNext(const LibMachine &m)
{
    std::array<KRT_U8, 512> slots{};
    m.read(cmd({{0, NVME_ADMIN_GET_LOG_PAGE}, {1, 0xFFFFFFFF}, {10, 0x007F0003}}), slots);
    return slots[0];
}

TEST(SimFirmwareActivation, CommitActionThreeActivatesTheSlotOrTheNewImage)
{
    LibMachine m("raid");
    ASSERT_EQ(download(m, "5.0.0.2"), 0u);
    ASSERT_EQ(commit(m, 0 << 3 | 3), 0u) << "stored in slot 3, not activated";
    EXPECT_EQ(running(m).MajorVersion, 2);
    EXPECT_EQ(commit(m, 3 << 3 | 3), 0u) << "no new image: slot 3's runs";
    EXPECT_EQ(running(m).MajorVersion, 5);
    EXPECT_EQ(activeAndNext(m), 0x03);
    EXPECT_EQ(commit(m, 3 << 3 | 4), 0x106u) << "an empty slot has nothing to run";
}

TEST(SimFirmwareActivation, ControllerThatNeedsAResetWaitsForTheReboot)
{
    krt_test::TempDir dir;
    krt_test::writeFile(dir.file("f.json"), R"({"adapters": [{"frmw": "0x0E", "pd_count": 2}]})");
    LibMachine m(dir.file("f.json"));
    ASSERT_EQ(download(m, "6.1.0.9"), 0u);
    EXPECT_EQ(commit(m, 3 << 3 | 2), 0x10Bu) << "activation requires a conventional reset";
    EXPECT_EQ(running(m).MajorVersion, 2);
    EXPECT_EQ(activeAndNext(m), 0x21);

    // An SSD image committed for the next reset, and one left half-way.
    ASSERT_EQ(download(m, "7.0.1", KRT_PD_CMD_TO_DISK, 1), 0u);
    ASSERT_EQ(m.send(cmd({{0, KRT_PD_CMD_TO_DISK}, {1, 1}, {10, 1 << 3 | 2}, {14, NVME_ADMIN_FW_COMMIT}})), 0u);
    ASSERT_EQ(download(m, "8.0.0.1"), 0u);

    ASSERT_EQ(m.run("reboot").status, 0);
    const NVME_Version_Info v = running(m);
    EXPECT_EQ((std::vector<int>{v.MajorVersion, v.MinorVersion, v.OEMNumber, v.BuildNumber}),
              (std::vector<int>{6, 1, 0, 9}));
    EXPECT_EQ(activeAndNext(m), 0x02);
    EXPECT_EQ(commit(m, 1 << 3 | 4), 0x107u) << "the download before the reboot is gone";
    _NVME_PD_Info pd = record<_NVME_PD_Info>(m.query(krt_cdw12(0xE1, 0, 0), 1));
    EXPECT_EQ(text(pd.FWVersion, 5), "7.0.1");
    EXPECT_TRUE(krt_test::has(m.run("show").out, "  firmware slots: 1=2.1.35 2=6.1.0.9 (active)\n"));

    // Slot 1 holds the revision text the controller started with: running it
    // again gives back that version, not a new build.
    ASSERT_EQ(commit(m, 2 << 3 | 1), 0u);
    m.run("reboot");
    EXPECT_EQ(running(m).BuildNumber, 35);
    EXPECT_EQ(running(m).MajorVersion, 2);
}

}  // namespace
