// The logs the controller keeps as the machine changes: events of finished
// activities, and the SPI log that records events while it is on.
#include <gtest/gtest.h>

#include <string>

#include "sim_client.h"

using namespace krt_sim_test;

namespace {

std::string eventText(const LibMachine &m)
{
    Reply page{};
    EXPECT_EQ(m.read(cmd({{0, KRT_VENDOR_OPCODE}, {10, 1023}, {12, krt_cdw12(0xFE, 4, 0)}, {14, 4096}}), page), 0u);
    return text(page.data() + 40, strnlen(reinterpret_cast<const char *>(page.data() + 40), 4056));
}

std::string spiLog(const LibMachine &m)
{
    std::string log;
    m.query(krt_cdw12(0xFE, 2, 0));  // a read-out starts with the state
    for (int i = 0; i < 4; ++i) {
        const Reply chunk = m.query(krt_cdw12(0xFE, 0, 0));
        const KRT_U32 n = std::min<KRT_U32>(record<KRT_U32>(chunk), 4080);
        if (n == 0)
            break;
        log += text(chunk.data() + 16, n);
    }
    return log;
}

}  // namespace

TEST(SimLogs, FinishedActivityIsStampedWhenItFinished)
{
    LibMachine m("degraded");  // VD 1 initialises from 10 % at 6 s per percent
    ASSERT_EQ(m.run("clock advance 1000").status, 0);
    const std::string events = eventText(m);
    const unsigned long start = std::stoul(events.substr(events.find("[TIME]") + 6));
    EXPECT_NE(events.find("[SEQ]4[TIME]" + std::to_string(start + 540) + "[MSG]VD 1 initialization completed\n"),
              std::string::npos)
        << events;
}

TEST(SimLogs, SpiLogRecordsEventsWhileOnAndKeepsTheNewest)
{
    krt_test::TempDir dir;
    krt_test::writeFile(dir.file("f.json"), R"({"adapters": [{"pd_count": 4, "vds": [{"raid": "raid0", "members": [0]},
        {"raid": "raid0", "members": [1]}], "spi_log": ")" +
                                                std::string(4090, 'L') + R"("}]})");
    LibMachine m(dir.file("f.json"));
    ASSERT_EQ(m.act(krt_cdw12(0xE2, 4, 1)), 0u);
    const std::string full = spiLog(m);
    EXPECT_EQ(full.size(), 4096u);
    EXPECT_EQ(full.substr(4096 - 22), "event 4: VD 1 deleted\n");
    EXPECT_EQ(spiLog(m), full) << "each read-out starts from the top";

    ASSERT_EQ(m.act(krt_cdw12(0xFE, 3, 0), 0, 0), 0u);
    ASSERT_EQ(m.act(krt_cdw12(0xE2, 4, 0)), 0u);
    EXPECT_EQ(spiLog(m), full) << "switched off, the log stays as it was";
    EXPECT_NE(eventText(m).find("[SEQ]5["), std::string::npos);
}
