// SMART counters wider than 64 bits, from the fixture to the summed log of
// the controller, and commands forwarded to an SSD with odd lengths.
#include <gtest/gtest.h>

#include "krt/smart_log.h"
#include "sim_client.h"
#include "text.h"

namespace {

using namespace krt_sim_test;

TEST(SimHealth, CountersOf128BitsFromFixtureToController)
{
    LibMachine m("raid");
    krt_test::TempDir dir;
    // Two SSDs just below 2^64 data units read: the controller's sum carries.
    krt_test::writeFile(dir.file("big.json"), R"({"adapters": [{"pds": [
        {"data_units_read": "0xFFFFFFFFFFFFFFFF"}, {"data_units_read": 18446744073709551615},
        {"data_units_read": 0, "data_units_written": "340282366920938463463374607431768211455"}]}]})");
    ASSERT_EQ(m.run("reset " + dir.file("big.json")).status, 0);
    std::array<KRT_U8, 512> page{};
    ASSERT_EQ(m.read(cmd({{0, NVME_ADMIN_GET_LOG_PAGE}, {1, 0xFFFFFFFF}, {10, NVME_SMART_LOG_CDW10}}), page), 0u);
    const auto log = record<_krt_smart_log>(page, 0);
    const KRT_U8 sum[16] = {0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 1};
    EXPECT_EQ(std::memcmp(log.data_units_read, sum, 16), 0);

    Words disk = cmd({{0, KRT_PD_CMD_FROM_DISK}, {1, 2}, {10, NVME_SMART_LOG_CDW10}, {14, NVME_ADMIN_GET_LOG_PAGE}});
    ASSERT_EQ(m.read(disk, page), 0u);
    const KRT_U8 all[16] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
                            0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    EXPECT_EQ(std::memcmp(record<_krt_smart_log>(page, 0).data_units_written, all, 16), 0);

    const std::pair<const char *, const char *> bad[] = {
        {R"({"adapters": [{"pds": [{"data_units_read": "0x100000000000000000000000000000000"}]}]})", "too large"},
        {R"({"adapters": [{"pds": [{"data_units_read": "12ab"}]}]})", "not a number"},
    };
    for (const auto &[json, message] : bad) {
        krt_test::writeFile(dir.file("bad.json"), json);
        auto r = m.run("reset " + dir.file("bad.json"));
        EXPECT_EQ(r.status, 1) << json;
        EXPECT_TRUE(krt_test::has(r.err, message)) << r.err;
    }
}

TEST(SimHealth, ForwardedReadsKeepToTheCallersLength)
{
    LibMachine m("raid");
    const Words identify = cmd({{0, KRT_PD_CMD_FROM_DISK}, {1, 1}, {10, 1}, {14, NVME_ADMIN_IDENTIFY}});
    // No buffer at all: the disk answers, nothing is written.
    EXPECT_EQ(m.admin(identify, XFER_FROM_DEV, nullptr, 0).compStatus, 0u);
    // More room than the page: the page, and the rest left alone.
    std::array<KRT_U8, 8192> big;
    big.fill(0xEE);
    ASSERT_EQ(m.read(identify, big), 0u);
    EXPECT_EQ(big[0], 0x6B);
    EXPECT_EQ(big[4095], 0);
    EXPECT_EQ(big[4096], 0xEE);
    // Less room: only that much (the sanitizer run watches the edge).
    std::array<KRT_U8, 5> small{};
    ASSERT_EQ(m.read(identify, small), 0u);
    EXPECT_EQ(small[4], 'S');  // the serial begins
}

}  // namespace
