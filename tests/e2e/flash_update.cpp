// flash against the simulated machine: the table of runs
// (tests/cases/flash.cases), then new controller firmware that runs after
// the reboot, a raw image activated with its CRC, the words of an SSD update
// shown with debugging on, and the progress shown while the controller
// writes its flash.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "cases.h"
#include "machine.h"
#include "text.h"

namespace {

using krt_test::has;
using krt_test::SimMachine;

TEST(Flash, Cases)
{
    krt_test::runCaseFile("flash.cases");
}

TEST(Flash, NewFirmwareRunsAfterTheRebootAndDebugWords)
{
    const SimMachine m("raid");
    // The last segment goes whole: after the file's last 904 bytes, what the
    // segment before left from byte 904 on. Only so does the version the
    // image carries come together, from the file's end and its byte 904.
    std::string image = krt_test::pattern(5000);
    image.replace(4992, 8, "KRTFW:7.").replace(904, 6, "7.7.7;");
    krt_test::writeFile(m.dir().file("fw.bin"), image);
    EXPECT_EQ(m.cli({"flash", "-o", "hba", "-f", "fw.bin", "-s", "2", "-c", "1"}).status, 0);
    EXPECT_EQ(m.cli({"flash", "-o", "hba", "-q", "firmware"}).out,
              "Slot count: 7\nActive Slot: 1, Next Active Slot: 2\n");
    EXPECT_TRUE(has(m.cli({"info", "-o", "hba"}).out, "Firmware Version:                    2.1.0.0035\n"));
    m.krtsim({"reboot"});
    EXPECT_TRUE(has(m.cli({"info", "-o", "hba"}).out, "Firmware Version:                    7.7.7.0007\n"));
    EXPECT_EQ(m.cli({"flash", "-o", "hba", "-q", "firmware"}).out,
              "Slot count: 7\nActive Slot: 2, Next Active Slot: 0\n");

    // A raw image: whole blocks whose little-endian words add up to 0. It is
    // activated with the byte-swapped CRC of its bytes, then committed.
    std::string raw(8192, '\0');
    raw.replace(0, 8, std::string("\x01\0\0\0\xff\xff\xff\xff", 8));
    krt_test::writeFile(m.dir().file("raw.bin"), raw);
    m.krtsim({"log", "clear"});
    EXPECT_EQ(m.cli({"flash", "-o", "hba", "-t", "RAW", "-f", "raw.bin"}).status, 0);
    const std::string log = m.krtsim({"log"}).out;
    EXPECT_TRUE(has(log, "opc=0x11 nsid=0 cdw10=0x000003ff cdw11=0x00000400 ")) << log;
    EXPECT_TRUE(has(log,
                    "opc=0xe2 nsid=0 cdw10=0x00000000 cdw11=0x00000000 cdw12=0x00010be0 cdw13=0x2054524b "
                    "cdw14=0x00000000 cdw15=0x8feb53c7 dir=from len=0 status=0x0\n"
                    "vmhba1 opc=0x10 nsid=0 cdw10=0x00000009 "));
    m.krtsim({"reboot"});
    EXPECT_TRUE(has(m.cli({"info", "-o", "hba"}).out, "Firmware Version:                    7.7.7.0008\n"));

    // An SSD update, word by word with debugging on.
    krt_test::writeFile(m.dir().file("ssd.bin"), krt_test::pattern(5000));
    const std::string debug = m.shell("--debug\nflash -o pd -i 2 -f ssd.bin -s 1 -c 1\n");
    EXPECT_TRUE(has(debug, "total_size: 5000\ncount: 0, offset: 0\nDownload firmware percentage:0\n")) << debug;
    EXPECT_TRUE(has(debug,
                    "offset: 4096, data length: 904, total_size: 5000\n"
                    "admin_cmd.CDW[10]: 0xe1\nadmin_cmd.CDW[11]: 0x400\nadmin_cmd.CDW[14]: 0x11\n"));
    EXPECT_TRUE(has(debug,
                    "admin_cmd.CDW[0]: 0xc3\nadmin_cmd.CDW[1]: 0x2\nadmin_cmd.CDW[10]: 0x9\n"
                    "admin_cmd.CDW[14]: 0x10\nerrStatus: 0x0\n"));
}

TEST(Flash, ProgressShowsWhileTheControllerWritesItsFlash)
{
    const SimMachine m("raid");
    // 64 KiB at 40 s per MiB: a download of about two and a half seconds.
    ASSERT_EQ(m.krtsim({"pace", "40000"}).status, 0);
    krt_test::writeFile(m.dir().file("fw.bin"), krt_test::pattern(64 << 10));
    const auto r = m.cli({"flash", "-o", "hba", "-f", "fw.bin", "-s", "2", "-c", "1"});
    EXPECT_EQ(r.status, 0);
    std::vector<int> shown;
    const std::string poll = "flash NVMe Controller, percentage ";
    for (std::size_t at = 0; (at = r.out.find(poll, at)) != std::string::npos; at += poll.size())
        shown.push_back(std::stoi(r.out.substr(at + poll.size())));
    EXPECT_TRUE(std::is_sorted(shown.begin(), shown.end())) << r.out;
    EXPECT_TRUE(std::any_of(shown.begin(), shown.end(), [](int p) { return p > 1 && p < 99; })) << r.out;
}

}  // namespace
