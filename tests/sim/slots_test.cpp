// The controller's slot controls (reset, power, reset lines), the settings
// it accepts and the rules of taking over disks from elsewhere.
#include <gtest/gtest.h>

#include <tuple>

#include "sim_client.h"

namespace {

using krt_sim_test::LibMachine;
using krt_sim_test::record;

constexpr KRT_U32 kReset = 0x000008E1;
constexpr KRT_U32 kSetConfig = 0x000002E0;
constexpr KRT_U32 kImportVd = 0x000006E2;

KRT_U32 slot(KRT_U32 id, KRT_U32 type, KRT_U32 action)
{
    return id | type << 16 | action << 24;
}

_NVME_VD_Info vd(const LibMachine &m, KRT_U32 id)
{
    return record<_NVME_VD_Info>(m.query(0x000000E2, id));
}

TEST(SimSlots, RefusedRequests)
{
    LibMachine m("raid");
    const std::tuple<const char *, KRT_U32, KRT_U32, KRT_U32> cases[] = {
        {"power pin 2 does not exist", kReset, slot(2, 1, 2), 0x704},
        {"reset line 4 does not exist", kReset, slot(4, 2, 2), 0x704},
        {"unknown type", kReset, slot(0, 3, 0), 0x704},
        {"unknown action", kReset, slot(0, 1, 3), 0x704},
        {"empty slot", kReset, slot(9, 0, 0), 0x706},
        {"a rate the controller does not know", kSetConfig, 30 << 8 | 1, 0x704},
        {"auto rebuild is on or off", kSetConfig, 2 << 8 | 2, 0x704},
        {"VD 0 is this controller's own", kImportVd, 0, 0x739},
        {"a disk without a namespace table", 0x000009E1, 5, 0x738},
    };
    for (const auto &[what, cdw12, cdw14, status] : cases)
        EXPECT_EQ(m.act(cdw12, 0, cdw14), status) << what;
    EXPECT_EQ(m.query(0x000001E0)[9], 2) << "settings unchanged";
}

TEST(SimSlots, SwitchedOffDisksLeaveAndComeBack)
{
    krt_test::TempDir dir;
    krt_test::writeFile(dir.file("f.json"), R"({"adapters": [{"pd_count": 4, "vds": [
        {"raid": "raid0", "members": [2, 3]},
        {"raid": "raid1", "members": [0, 1]}]}]})");
    LibMachine m(dir.file("f.json"));
    ASSERT_EQ(m.act(kReset, 0, slot(0, 1, 2)), 0u);  // power off slot 0
    ASSERT_EQ(m.act(kReset, 0, slot(3, 2, 2)), 0u);  // hold slot 3 in reset

    EXPECT_EQ(m.query(0x000000E1, 0)[4], 6) << "Invalid HD ID";
    EXPECT_EQ(m.query(0x000000E1, 3)[4], 6) << "Invalid HD ID";
    EXPECT_EQ(m.act(kReset, 0, slot(0, 0, 0)), 0x706u) << "nothing to reset";
    EXPECT_EQ(m.act(0x000007E1, 0, 1 << 16), 0u) << "the slot's LED still works";
    EXPECT_EQ(vd(m, 0).Status, KRT_VD_OFFLINE);
    EXPECT_EQ(vd(m, 0).PDIDs[1], KRT_PD_MISSING);
    EXPECT_EQ(vd(m, 1).Status, KRT_VD_DEGRADE);
    EXPECT_EQ(vd(m, 1).PDIDs[0], KRT_PD_MISSING);
    EXPECT_EQ(vd(m, 1).PDIDs[1], 1);

    ASSERT_EQ(m.act(kReset, 0, slot(0, 1, 0)), 0u);  // a cycle ends powered
    ASSERT_EQ(m.act(kReset, 0, slot(3, 2, 1)), 0u);
    EXPECT_EQ(m.query(0x000000E1, 0)[4], 0);
    EXPECT_EQ(vd(m, 0).Status, KRT_VD_FUNCTIONAL);
    EXPECT_EQ(vd(m, 1).Status, KRT_VD_FUNCTIONAL);
    EXPECT_EQ(vd(m, 1).PDIDs[0], 0);
}

TEST(SimSlots, ForeignVdIsTakenOverWhole)
{
    LibMachine m("import");  // VD 1 foreign on PDs 0, 1, 4
    EXPECT_EQ(m.query(0x000000E1, 1)[8 + 2] & KRT_PD_IMPORTABLE, KRT_PD_IMPORTABLE);
    ASSERT_EQ(m.act(kReset, 0, slot(1, 1, 2)), 0u);
    EXPECT_EQ(vd(m, 1).Status, KRT_VD_NOT_IMPORTABLE);
    EXPECT_EQ(vd(m, 1).Importable, 0);
    EXPECT_EQ(m.act(kImportVd, 0, 1), 0x73Au);

    ASSERT_EQ(m.act(kReset, 0, slot(1, 1, 1)), 0u);
    EXPECT_EQ(vd(m, 1).Status, KRT_VD_FOREIGN);
    EXPECT_EQ(m.act(kImportVd, 0, 1), 0u);
    EXPECT_EQ(vd(m, 1).Status, KRT_VD_FUNCTIONAL);
    EXPECT_EQ(m.query(0x000000E1, 1)[8 + 2], KRT_PD_ASSIGNED) << "no longer importable";
}

TEST(SimSlots, StartingUpRunsPendingFirmware)
{
    LibMachine m("raid");
    const auto fw = [&] { return krt_sim_test::text(m.query(0x000000E1, 1).data() + 8 + 76, 5); };
    std::vector<KRT_U8> image(4096, 0);
    const std::string marker = "KRTFW:9.9.9";
    std::copy(marker.begin(), marker.end(), image.begin());
    using krt_sim_test::cmd;
    ASSERT_EQ(m.send(cmd({{0, KRT_PD_CMD_TO_DISK}, {1, 1}, {10, 1023}, {14, 0x11}}), image), 0u);
    ASSERT_EQ(m.send(cmd({{0, KRT_PD_CMD_TO_DISK}, {1, 1}, {10, 2 | 1 << 3}, {14, 0x10}})), 0u);

    ASSERT_EQ(m.act(kReset, 0, slot(1, 1, 2)), 0u);
    EXPECT_EQ(fw(), std::string(5, '\0')) << "not seen while off";
    ASSERT_EQ(m.act(kReset, 0, slot(1, 1, 1)), 0u);
    EXPECT_EQ(fw(), "9.9.9");
}

}  // namespace
