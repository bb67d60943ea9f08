// The controller model below what the tool asks for: commits of firmware
// images and slots, blank images, a raw image's CRC, firmware that waits for
// the next reset, the stamp of an event, and what maintenance requests the
// tool never sends are refused with. What the tool sends and shows runs in
// the e2e tables.
#include <gtest/gtest.h>

#include <tuple>

#include "sim_client.h"
#include "text.h"

using namespace krt_sim_test;

namespace {

// One segment carrying `version`; without one, zero bytes only (no image).
KRT_U32 download(const LibMachine &m, const std::string &version)
{
    std::vector<KRT_U8> chunk(4096, 0);
    const std::string marker = version.empty() ? "" : "KRTFW:" + version + ";";
    std::copy(marker.begin(), marker.end(), chunk.begin() + 8);
    return m.send(cmd({{0, NVME_ADMIN_FW_DOWNLOAD}, {10, 1023}}), chunk);
}

// A commit of slot (bits 2:0) with commit action (bits 5:3).
KRT_U32 commit(const LibMachine &m, KRT_U32 cdw10)
{
    return m.send(cmd({{0, NVME_ADMIN_FW_COMMIT}, {10, cdw10}}));
}

// The running version's words, then the slot log's active (bits 2:0) and
// next (bits 6:4) slots.
std::vector<int> state(const LibMachine &m)
{
    const auto v = record<_NVME_Adapter_Info>(m.query(krt_cdw12(0xE0, 0, 0))).FirmwareVersion;
    std::array<KRT_U8, 512> log{};
    m.read(cmd({{0, NVME_ADMIN_GET_LOG_PAGE}, {1, 0xFFFFFFFF}, {10, 0x007F0003}}), log);
    return {v.MajorVersion, v.MinorVersion, v.OEMNumber, v.BuildNumber, log[0]};
}

constexpr KRT_U32 kReset = 0x000008E1;
constexpr KRT_U32 kSetConfig = 0x000002E0;
constexpr KRT_U32 kImportVd = 0x000006E2;

KRT_U32 slot(KRT_U32 id, KRT_U32 type, KRT_U32 action)
{
    return id | type << 16 | action << 24;
}

}  // namespace

TEST(SimFirmware, CommitsOfTheImageAndOfTheSlots)
{
    LibMachine m("raid");
    EXPECT_EQ(commit(m, 1 << 3 | 2), 0x107u) << "nothing downloaded";
    EXPECT_EQ(commit(m, 3 << 3 | 2), 0x106u) << "nothing downloaded and nothing in slot 2 to activate";
    ASSERT_EQ(download(m, "5.0.0.2"), 0u);
    ASSERT_EQ(commit(m, 0 << 3 | 3), 0u) << "stored in slot 3, not activated";
    EXPECT_EQ(commit(m, 1 << 3 | 4), 0x107u) << "a commit uses the image up";
    EXPECT_EQ(state(m), (std::vector<int>{2, 1, 0, 35, 0x01}));
    EXPECT_EQ(commit(m, 3 << 3 | 3), 0u) << "no new image: slot 3's runs";
    EXPECT_EQ(state(m), (std::vector<int>{5, 0, 0, 2, 0x03}));
    EXPECT_EQ(commit(m, 3 << 3 | 4), 0x106u) << "an empty slot has nothing to run";

    // Zero bytes only are no image, neither to store nor to activate.
    ASSERT_EQ(download(m, ""), 0u);
    EXPECT_EQ(commit(m, 3 << 3 | 3), 0x107u) << "not slot 3's image instead";

    // A raw image (words that sum to zero) with one bit off its CRC; the
    // right one is accepted in the flash e2e test.
    std::vector<KRT_U8> raw(4096, 0);
    raw[0] = 1;
    std::fill(raw.begin() + 4, raw.begin() + 8, 0xFF);
    ASSERT_EQ(m.send(cmd({{0, NVME_ADMIN_FW_DOWNLOAD}, {10, 1023}}), raw), 0u);
    EXPECT_EQ(m.send(cmd({{0, KRT_VENDOR_OPCODE}, {12, 1 << 16 | 0x0BE0}, {13, 0x2054524B}, {15, 0xB4ADFFFC}})),
              0x704u);
}

TEST(SimFirmware, ControllerThatNeedsAResetWaitsForTheReboot)
{
    krt_test::TempDir dir;
    krt_test::writeFile(dir.file("f.json"), R"({"adapters": [{"frmw": "0x0E"}]})");
    LibMachine m(dir.file("f.json"));
    ASSERT_EQ(download(m, "6.1.0.9"), 0u);
    EXPECT_EQ(commit(m, 3 << 3 | 2), 0x10Bu) << "activation requires a conventional reset";
    EXPECT_EQ(state(m), (std::vector<int>{2, 1, 0, 35, 0x21}));
    ASSERT_EQ(download(m, "8.0.0.1"), 0u);  // left half-way

    ASSERT_EQ(m.run("reboot").status, 0);
    EXPECT_EQ(state(m), (std::vector<int>{6, 1, 0, 9, 0x02}));
    EXPECT_EQ(commit(m, 1 << 3 | 4), 0x107u) << "the download before the reboot is gone";
    EXPECT_TRUE(krt_test::has(m.run("show").out, "  firmware slots: 1=2.1.35 2=6.1.0.9 (active)\n"));

    // Slot 1 holds the revision text the controller started with: running it
    // again gives back that version, not a new build.
    ASSERT_EQ(commit(m, 2 << 3 | 1), 0u);
    m.run("reboot");
    EXPECT_EQ(state(m), (std::vector<int>{2, 1, 0, 35, 0x01}));
}

// The event of a finished activity is stamped when it reached 100 %, not
// when the clock was next looked at.
TEST(SimHealth, FinishedActivityIsStampedWhenItFinished)
{
    LibMachine m("degraded");  // VD 1 initialises from 10 % at 6 s per percent
    ASSERT_EQ(m.run("clock advance 1000").status, 0);
    Reply page{};
    ASSERT_EQ(m.read(cmd({{0, KRT_VENDOR_OPCODE}, {10, 1023}, {12, krt_cdw12(0xFE, 4, 0)}, {14, 4096}}), page), 0u);
    const std::string events(reinterpret_cast<const char *>(page.data() + 40));
    const unsigned long start = std::stoul(events.substr(events.find("[TIME]") + 6));
    EXPECT_TRUE(
        krt_test::has(events, "[SEQ]4[TIME]" + std::to_string(start + 540) + "[MSG]VD 1 initialization completed\n"))
        << events;
}

TEST(SimMaintenance, RequestsAndTheirRefusals)
{
    krt_test::TempDir dir;
    krt_test::writeFile(dir.file("f.json"), R"({"adapters": [{"pds": [{}, {}, {"importable": true}],
        "vds": [{"raid": "raid1", "members": [0, 1], "importable": true, "status": "foreign"}]}]})");
    LibMachine m(dir.file("f.json"));
    const std::tuple<const char *, KRT_U32, KRT_U32, KRT_U32> cases[] = {
        {"settings: BGA rate 32, auto rebuild off", kSetConfig, 32 << 8 | 0, 0},
        {"a rate the controller does not know", kSetConfig, 30 << 8 | 1, 0x704},
        {"auto rebuild is on or off", kSetConfig, 2 << 8 | 2, 0x704},
        {"power pin 2 does not exist", kReset, slot(2, 1, 2), 0x704},
        {"reset line 4 does not exist", kReset, slot(4, 2, 2), 0x704},
        {"unknown type", kReset, slot(0, 3, 0), 0x704},
        {"unknown action", kReset, slot(0, 1, 3), 0x704},
        {"power off slot 1, a member of the foreign VD 0", kReset, slot(1, 1, 2), 0},
        {"a VD with a member out of sight", kImportVd, 0, 0x73A},
        {"power slot 1 on", kReset, slot(1, 1, 1), 0},
        {"import VD 0", kImportVd, 0, 0},
        {"VD 0 again: already in the table", kImportVd, 0, 0x739},
    };
    for (const auto &[what, cdw12, cdw14, status] : cases)
        EXPECT_EQ(m.act(cdw12, 0, cdw14), status) << what;

    const Reply settings = m.query(0x000001E0);
    EXPECT_EQ((std::vector<int>{settings[8], settings[9]}), (std::vector<int>{0, 32})) << "the refused left them";
    EXPECT_EQ(record<_NVME_VD_Info>(m.query(0x000000E2, 0)).Status, KRT_VD_FUNCTIONAL) << "imported";
}
