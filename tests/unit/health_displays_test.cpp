// The SMART and Identify displays fed with hand-built logs and pages: the
// values no simulated disk reports (zero temperature, counters past 2^64,
// texts that are cut short or hold control bytes, a wrapping LBA format
// count).
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "commands/identify.h"
#include "commands/smart_log.h"
#include "stream_capture.h"
#include "text.h"

namespace {

using krt_test::has;
using krt_test::occurrences;

template <class Print>
std::string printed(Print print)
{
    krt_unit::StreamCapture out;
    print();
    return out.text();
}

std::string line(const std::string &label, const std::string &value)
{
    return label + std::string(54 - label.size(), ' ') + ": " + value + "\n";
}

// The log's owner counts only in the JSON document.
constexpr SmartSubject kDisk{SmartSubject::Kind::PhysicalDisk, 0, 1};

TEST(SmartDisplay, EveryLineInOrderAndTheNamespaceForm)
{
    // Each counter its own value, so that no two can trade places unseen.
    _krt_smart_log log{};
    log.critical_warning = 0x05;
    log.avail_spare = 97;
    log.spare_thresh = 10;
    log.percent_used = 255;
    const KRT_U8 twoMillion[] = {0x80, 0x84, 0x1E};
    std::memcpy(log.data_units_read, twoMillion, sizeof twoMillion);
    log.host_reads[12] = 0x10;  // 2^100
    KRT_U8 *counters[] = {log.data_units_written, log.host_writes,      log.ctrl_busy_time, log.power_cycles,
                          log.power_on_hours,     log.unsafe_shutdowns, log.media_errors,   log.num_err_log_entries};
    for (int i = 0; i < 8; ++i)
        counters[i][0] = static_cast<KRT_U8>(3 + i);
    log.media_errors[1] = 1;  // 256 + 9
    log.warning_temp_time = 0xFFFFFFFF;
    log.critical_comp_time = 11;
    log.tmt1tc = 12, log.tmt2tc = 13, log.ttftmt1 = 14, log.ttftmt2 = 15;
    EXPECT_EQ(printed([&] { showLogSmartInfo(log, 0, kDisk); }),
              "\nNVME SMART Information :\nNotice: Please refer to NVMe Specific v1.3, Get Log Page - SMART / Health "
              "Information Log definition\n\n" +
                  line("Critical Warning", "0x05") + line("Composite Temperature", "-273 Celsius") +
                  line("Available Spare", "97%") + line("Available Spare Threshold", "10%") +
                  line("Percentage Used", "255%") + line("Data Units Read", "2000000 (1024 GB)") +
                  line("Data Units Written", "3 (0 GB)") +
                  line("Host Read Commands", "1267650600228229401496703205376") + line("Host Write Commands", "4") +
                  line("Controller Busy Time", "5") + line("Power Cycles", "6") + line("Power On Hours", "7") +
                  line("Unsafe Shutdowns", "8") + line("Media and Data Integrity Errors", "265") +
                  line("Num Err Log Entries", "10") + line("Warning Composite Temperature Time", "-1") +
                  line("Critical Composite Temperature Time", "11") +
                  line("Thermal Management Temperature 1 Transition Count", "12") +
                  line("Thermal Management Temperature 2 Transition Count", "13") +
                  line("Total Time For Thermal Management Temperature 1", "14") +
                  line("Total Time For Thermal Management Temperature 2", "15") + "\n");

    // A namespace that reports no temperature, and its counters without GB.
    const std::string ns = printed([&] { showLogSmartInfo_no_calculator(log, 0, kDisk); });
    EXPECT_TRUE(has(ns, line("Composite Temperature", "0") + line("Available Spare", "97%"))) << ns;
    EXPECT_TRUE(has(ns, line("Data Units Read", "2000000") + line("Data Units Written", "3"))) << ns;

    KRT_U8 counter[16] = {2, 0, 0, 0, 0, 0, 0, 0, 1};  // 2^64 + 2: beyond a 64-bit cut
    EXPECT_EQ(smartCounter(counter), 18446744073709551618.0L);
}

TEST(IdentifyDisplay, ControllerTextsCapacitiesAndSubnqn)
{
    _krt_id_ctrl id{};
    std::memcpy(id.mn, "   Model X  ", 12);  // leading blanks
    std::memcpy(id.fr, "1.2.3\0zz", 8);      // ends early
    id.ieee[2] = 0xAB;
    id.tnvmcap[0] = 3ull << 30;
    id.tnvmcap[1] = 9;  // above 2^64: shown in hex only
    id.unvmcap[0] = 0xFFFFFFFFFFFFFFFFull;
    id.nn = 32;
    id.sgls = 0x80000001;
    std::memcpy(id.subnqn, "nqn.x\x01\x7F\xFF", 8);
    id.subnqn[59] = 'Z';
    const KRT_U32 tail = 4096;
    std::memcpy(id.subnqn + KRT_ID_SUBNQN_TEXT, &tail, sizeof tail);
    const std::string text = printed([&] { _showIDDetail(id); });
    EXPECT_TRUE(has(text, "MN:                      Model X  \nFR:                      1.2.3\n"));
    EXPECT_TRUE(has(text, "IEEE[2]:                 0xab\nMIC:"));
    EXPECT_TRUE(has(text,
                    "TNVMCAP_LOW:             0xc0000000\nTNVMCAP_HIGH:            0x9\n"
                    "UNVMCAP_LOW:             0xffffffffffffffff\nUNVMCAP_HIGH:            0x0\n"
                    "TNVMCAP(Bytes):          3221225472\nTNVMCAP(GB):             3\n"
                    "UNVMCAP(Bytes):          18446744073709551615\nUNVMCAP(GB):             17179869183\n"));
    EXPECT_TRUE(has(text, "NN:                      0x20\n"));
    EXPECT_TRUE(has(text, "SQLS:                    0x80000001\n"));
    // Control bytes show as blanks; the number behind the text follows it.
    EXPECT_TRUE(text.ends_with("SUBNQN:                  nqn.x   " + std::string(51, ' ') + "Z4096\n\n")) << text;
    EXPECT_EQ(occurrences(text, "\n"), 44);
}

TEST(IdentifyDisplay, LbaFormatsAsManyAsTheCountSays)
{
    _krt_id_ns ns{};
    ns.nlbaf = 1;
    ns.lbaf[1] = {8, 12, 0xFF};
    std::string text = printed([&] { _showNSDetail(ns, 1); });
    EXPECT_TRUE(
        text.ends_with("[LBAF]               0\n  MS:                0x0\n  DS:                0x0\n"
                       "  RP:                0x0\n[LBAF]               1\n  MS:                0x8\n"
                       "  DS:                0xc\n  RP:                0xff\n"))
        << text;
    EXPECT_EQ(occurrences(text, "[LBAF]"), 2);

    // 255 formats + 1 wraps to none; 254 lists all 255, the last far past
    // the 64 NVMe defines but inside the page.
    ns.nlbaf = 255;
    EXPECT_EQ(occurrences(printed([&] { _showNSDetail(ns, 1); }), "[LBAF]"), 0);
    ns.nlbaf = 254;
    ns.lbaf[254].ds = 0x77;
    text = printed([&] { _showNSDetail(ns, 1); });
    EXPECT_EQ(occurrences(text, "[LBAF]"), 255);
    EXPECT_TRUE(has(text, "[LBAF]               254\n  MS:                0x0\n  DS:                0x77\n"));
}

}  // namespace
