// flash against the simulated machine: the table of runs
// (tests/cases/flash.cases), then new controller firmware that runs after
// the reboot, a raw image activated with its CRC, the progress shown while
// the controller writes its flash, and the words of an SSD update shown with
// debugging on.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "cases.h"
#include "machine.h"
#include "text.h"

namespace {

using krt_test::has;
using krt_test::SimMachine;

// The bytes the table's images are made of, with the version the image
// carries at byte 64.
std::string pattern(std::size_t length, const std::string &version = "")
{
    std::string bytes(length, '\0');
    for (std::size_t i = 0; i < length; ++i)
        bytes[i] = static_cast<char>(i * 7 % 253);
    return bytes.replace(64, version.size(), version);
}

TEST(Flash, Cases)
{
    krt_test::runCaseFile("flash.cases");
}

TEST(Flash, NewFirmwareRunsAfterTheReboot)
{
    const SimMachine m("raid");
    krt_test::writeFile(m.dir().file("fw.bin"), pattern(5000, "KRTFW:3.1.0.7;"));
    EXPECT_EQ(m.cli({"flash", "-o", "hba", "-f", "fw.bin", "-s", "2", "-c", "1"}).status, 0);
    EXPECT_EQ(m.cli({"flash", "-o", "hba", "-q", "firmware"}).out,
              "Slot count: 7\nActive Slot: 1, Next Active Slot: 2\n");
    EXPECT_TRUE(has(m.cli({"info", "-o", "hba"}).out, "Firmware Version:                    2.1.0.0035\n"));
    m.krtsim({"reboot"});
    EXPECT_TRUE(has(m.cli({"info", "-o", "hba"}).out, "Firmware Version:                    3.1.0.0007\n"));
    EXPECT_EQ(m.cli({"flash", "-o", "hba", "-q", "firmware"}).out,
              "Slot count: 7\nActive Slot: 2, Next Active Slot: 0\n");

    // A raw image: whole blocks whose little-endian words add up to 0. It is
    // activated with the byte-swapped CRC of its bytes, then committed.
    std::string raw = pattern(8192, "KRTFW:4.0.0.1;");
    std::uint32_t sum = 0;
    for (std::size_t at = 0; at + 4 < raw.size(); at += 4) {
        std::uint32_t word = 0;
        for (int b = 3; b >= 0; --b)
            word = word << 8 | static_cast<unsigned char>(raw[at + b]);
        sum += word;
    }
    for (int b = 0; b < 4; ++b)
        raw[raw.size() - 4 + b] = static_cast<char>((0u - sum) >> (8 * b));
    krt_test::writeFile(m.dir().file("raw.bin"), raw);
    m.krtsim({"log", "clear"});
    EXPECT_EQ(m.cli({"flash", "-o", "hba", "-t", "RAW", "-f", "raw.bin"}).status, 0);
    const std::string log = m.krtsim({"log"}).out;
    EXPECT_TRUE(has(log, "opc=0x11 nsid=0 cdw10=0x000003ff cdw11=0x00000400 ")) << log;
    EXPECT_TRUE(has(log,
                    "opc=0xe2 nsid=0 cdw10=0x00000000 cdw11=0x00000000 cdw12=0x00010be0 cdw13=0x2054524b "
                    "cdw14=0x00000000 cdw15=0xa6343954 dir=from len=0 status=0x0\n"
                    "vmhba1 opc=0x10 nsid=0 cdw10=0x00000009 "));
    m.krtsim({"reboot"});
    EXPECT_TRUE(has(m.cli({"info", "-o", "hba"}).out, "Firmware Version:                    4.0.0.0001\n"));
}

TEST(Flash, ProgressShowsWhileTheControllerWritesItsFlash)
{
    const SimMachine m("raid");
    // 64 KiB at 40 s per MiB: a download of about two and a half seconds.
    ASSERT_EQ(m.krtsim({"pace", "40000"}).status, 0);
    krt_test::writeFile(m.dir().file("fw.bin"), pattern(64 << 10));
    const auto r = m.cli({"flash", "-o", "hba", "-f", "fw.bin", "-s", "2", "-c", "1"});
    EXPECT_EQ(r.status, 0);
    std::vector<int> shown;
    std::istringstream in(r.out);
    const std::string poll = "flash NVMe Controller, percentage ";
    for (std::string line; std::getline(in, line);) {
        if (line.rfind(poll, 0) == 0)
            shown.push_back(std::stoi(line.substr(poll.size())));
    }
    EXPECT_TRUE(std::is_sorted(shown.begin(), shown.end())) << r.out;
    EXPECT_TRUE(std::any_of(shown.begin(), shown.end(), [](int p) { return p > 1 && p < 99; })) << r.out;
}

TEST(Flash, SsdWordsShownWithDebugging)
{
    const SimMachine m("raid");
    krt_test::writeFile(m.dir().file("ssd.bin"), pattern(5000));
    const std::string debug = m.shell("--debug\nflash -o pd -i 2 -f ssd.bin -s 1 -c 1\n");
    EXPECT_TRUE(has(debug, "total_size: 5000\ncount: 0, offset: 0\nDownload firmware percentage:0\n")) << debug;
    EXPECT_TRUE(has(debug,
                    "offset: 4096, data length: 904, total_size: 5000\n"
                    "admin_cmd.CDW[10]: 0xe1\nadmin_cmd.CDW[11]: 0x400\nadmin_cmd.CDW[14]: 0x11\n"));
    EXPECT_TRUE(has(debug,
                    "admin_cmd.CDW[0]: 0xc3\nadmin_cmd.CDW[1]: 0x2\nadmin_cmd.CDW[10]: 0x9\n"
                    "admin_cmd.CDW[14]: 0x10\nerrStatus: 0x0\n"));
}

}  // namespace
