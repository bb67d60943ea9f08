// The SMART and Identify displays fed with hand-built logs and pages: the
// values no simulated disk reports (zero temperature, counters past 2^64,
// unterminated texts, a wrapping LBA format count).
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

template <std::size_t N>
void setCounter(KRT_U8 (&field)[16], const KRT_U8 (&littleEndian)[N])
{
    std::memcpy(field, littleEndian, N);
}

// The log's owner counts only in the JSON document.
constexpr SmartSubject kDisk{SmartSubject::Kind::PhysicalDisk, 0, 1};

std::string line(const std::string &label, const std::string &value)
{
    return label + std::string(54 - label.size(), ' ') + ": " + value + "\n";
}

TEST(SmartDisplay, EveryLineInOrder)
{
    _krt_smart_log log{};
    log.critical_warning = 0x05;
    log.temperature = 310;
    log.avail_spare = 97;
    log.spare_thresh = 10;
    log.percent_used = 255;
    setCounter(log.data_units_read, {0x80, 0x84, 0x1E});  // 2000000
    log.power_cycles[0] = 7;
    log.media_errors[1] = 1;  // 256
    log.warning_temp_time = 0xFFFFFFFF;
    log.ttftmt2 = 12;
    const std::string expected =
        "\nNVME SMART Information :\n"
        "Notice: Please refer to NVMe Specific v1.3, Get Log Page - SMART / Health Information Log definition\n\n" +
        line("Critical Warning", "0x05") + line("Composite Temperature", "37 Celsius") +
        line("Available Spare", "97%") + line("Available Spare Threshold", "10%") + line("Percentage Used", "255%") +
        line("Data Units Read", "2000000 (1024 GB)") + line("Data Units Written", "0 (0 GB)") +
        line("Host Read Commands", "0") + line("Host Write Commands", "0") + line("Controller Busy Time", "0") +
        line("Power Cycles", "7") + line("Power On Hours", "0") + line("Unsafe Shutdowns", "0") +
        line("Media and Data Integrity Errors", "256") + line("Num Err Log Entries", "0") +
        line("Warning Composite Temperature Time", "-1") + line("Critical Composite Temperature Time", "0") +
        line("Thermal Management Temperature 1 Transition Count", "0") +
        line("Thermal Management Temperature 2 Transition Count", "0") +
        line("Total Time For Thermal Management Temperature 1", "0") +
        line("Total Time For Thermal Management Temperature 2", "12") + "\n";
    EXPECT_EQ(printed([&] { showLogSmartInfo(log, 0, kDisk); }), expected);

    // The controller's own list stops after the wear, then one blank line.
    const std::string controller = printed([&] { showLogSmartInfo(log, 1, kDisk); });
    EXPECT_EQ(controller, expected.substr(0, expected.find("Data Units Read")) + "\n");
}

TEST(SmartDisplay, TemperatureZeroAndTheNamespaceForm)
{
    _krt_smart_log log{};
    setCounter(log.data_units_written, {0x80, 0x84, 0x1E});
    EXPECT_TRUE(has(printed([&] { showLogSmartInfo(log, 0, kDisk); }), line("Composite Temperature", "-273 Celsius")));

    const std::string ns = printed([&] { showLogSmartInfo_no_calculator(log, 0, kDisk); });
    EXPECT_TRUE(has(ns, line("Composite Temperature", "0")));
    EXPECT_TRUE(has(ns, line("Data Units Written", "2000000")));
    EXPECT_FALSE(has(ns, "GB"));
    log.temperature = 300;
    EXPECT_TRUE(has(printed([&] { showLogSmartInfo_no_calculator(log, 1, kDisk); }),
                    line("Composite Temperature", "27 Celsius")));
}

TEST(SmartDisplay, CountersBeyond64BitsAreNotCut)
{
    KRT_U8 counter[16] = {};
    counter[0] = 2;
    counter[8] = 1;  // 2^64 + 2
    EXPECT_EQ(smartCounter(counter), 18446744073709551618.0L);
    counter[0] = 0;
    counter[8] = 0;
    counter[12] = 0x10;  // 2^100
    EXPECT_EQ(smartCounter(counter), 1267650600228229401496703205376.0L);

    _krt_smart_log log{};
    std::memcpy(log.host_reads, counter, 16);
    log.data_units_read[8] = 1;
    const std::string text = printed([&] { showLogSmartInfo(log, 0, kDisk); });
    EXPECT_TRUE(has(text, line("Host Read Commands", "1267650600228229401496703205376")));
    EXPECT_TRUE(has(text, line("Data Units Read", "18446744073709551616 (9444732965739290 GB)")));
}

_krt_id_ctrl controllerPage()
{
    _krt_id_ctrl id{};
    id.vid = 0x1E6B;
    id.ssvid = 0x0001;
    std::memset(id.sn, 'S', sizeof id.sn);   // no terminator
    std::memcpy(id.mn, "   Model X  ", 12);  // leading blanks
    std::memcpy(id.fr, "1.2.3\0zz", 8);      // ends early
    id.ieee[2] = 0xAB;
    id.oacs = 0x1F;
    id.tnvmcap[0] = 3ull << 30;
    id.tnvmcap[1] = 9;  // above 2^64: shown in hex only
    id.unvmcap[0] = 0xFFFFFFFFFFFFFFFFull;
    id.nn = 32;
    id.sgls = 0x80000001;
    std::memcpy(id.subnqn, "nqn.x\x01\x7F\xFF", 8);
    id.subnqn[59] = 'Z';
    const KRT_U32 tail = 4096;
    std::memcpy(id.subnqn + KRT_ID_SUBNQN_TEXT, &tail, sizeof tail);
    return id;
}

TEST(IdentifyDisplay, ControllerFieldsTextsAndSubnqn)
{
    const _krt_id_ctrl id = controllerPage();
    const std::string text = printed([&] { _showIDDetail(id); });
    EXPECT_EQ(text.rfind("\nNVME identify Information :\n\nVID:                     0x1e6b\n", 0), 0u);
    EXPECT_TRUE(has(text, "SN:                      SSSSSSSSSSSSSSSSSSSS\n"));
    EXPECT_TRUE(has(text, "MN:                      Model X  \n"));  // trailing blanks kept
    EXPECT_TRUE(has(text, "FR:                      1.2.3\n"));
    EXPECT_TRUE(has(text, "IEEE[2]:                 0xab\nMIC:"));
    EXPECT_TRUE(has(text,
                    "TNVMCAP_LOW:             0xc0000000\nTNVMCAP_HIGH:            0x9\n"
                    "UNVMCAP_LOW:             0xffffffffffffffff\nUNVMCAP_HIGH:            0x0\n"
                    "TNVMCAP(Bytes):          3221225472\nTNVMCAP(GB):             3\n"
                    "UNVMCAP(Bytes):          18446744073709551615\nUNVMCAP(GB):             17179869183\n"));
    EXPECT_TRUE(has(text, "NN:                      0x20\n"));
    EXPECT_TRUE(has(text, "SQLS:                    0x80000001\n"));
    EXPECT_TRUE(has(text, "SUBNQN:                  nqn.x   " + std::string(51, ' ') + "Z4096\n\n"));
    EXPECT_EQ(occurrences(text, "\n"), 44);
}

TEST(IdentifyDisplay, NamespaceAndItsLbaFormats)
{
    _krt_id_ns ns{};
    ns.nsze = 0x1234567890ull;
    ns.nlbaf = 1;
    ns.flbas = 1;
    ns.nacwu = 0xBEEF;
    ns.eui64[7] = 0x42;
    ns.lbaf[1] = {8, 12, 0xFF};
    const std::string text = printed([&] { _showNSDetail(ns, 1); });
    EXPECT_EQ(text.rfind("NSZE:                0x1234567890\nNCAP:                0x0\n", 0), 0u);
    EXPECT_TRUE(has(text, "nacwu:               0xbeef\n"));
    EXPECT_TRUE(has(text, "eui64[7]:            0x42\n"));
    EXPECT_TRUE(has(text,
                    "[LBAF]               0\n  MS:                0x0\n  DS:                0x0\n"
                    "  RP:                0x0\n"
                    "[LBAF]               1\n  MS:                0x8\n  DS:                0xc\n"
                    "  RP:                0xff\n"));
    EXPECT_EQ(text.back(), '\n');
    EXPECT_EQ(occurrences(text, "[LBAF]"), 2);

    // 255 formats + 1 wraps to none; 254 lists all 255, the last far past
    // the 64 NVMe defines but inside the page.
    ns.nlbaf = 255;
    EXPECT_EQ(occurrences(printed([&] { _showNSDetail(ns, 1); }), "[LBAF]"), 0);
    ns.nlbaf = 254;
    ns.lbaf[254].ds = 0x77;
    const std::string all = printed([&] { _showNSDetail(ns, 1); });
    EXPECT_EQ(occurrences(all, "[LBAF]"), 255);
    EXPECT_TRUE(has(all, "[LBAF]               254\n  MS:                0x0\n  DS:                0x77\n"));
}

}  // namespace
