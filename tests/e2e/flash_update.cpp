// flash against the simulated machine: controller updates (normal and raw
// images) and SSD updates checked word by word in the command log, the
// firmware slots, and the options and images that send nothing.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "machine.h"
#include "text.h"

namespace {

using krt_test::has;
using krt_test::SimMachine;

using Bytes = std::vector<unsigned char>;
using U32 = std::uint32_t;

const std::string kStarted = "start to flash NVMe Controller firmware\n";
const std::string kDone =
    "flash NVMe Controller firmware success, please shutdown and boot again to make firmware active.\n";
const std::string kDoneAfterReset =
    "Flash NVMe Controller firmware success, please shutdown and boot again to make firmware active.\n";
const std::string kNotStarted =
    "start to flash NVMe Controller firmware failed (Invalid firmware image, please check image and try again.)\n";

Bytes pattern(std::size_t length, const std::string &version = "")
{
    Bytes bytes(length);
    for (std::size_t i = 0; i < length; ++i)
        bytes[i] = static_cast<unsigned char>(i * 7 % 253);
    const std::string marker = "KRTFW:" + version + ";";  // the version the image carries
    if (!version.empty())
        std::copy(marker.begin(), marker.end(), bytes.begin() + 64);
    return bytes;
}

// Whole blocks whose little-endian words add up to 0, as a raw image must be.
Bytes rawImage(std::size_t blocks, const std::string &version)
{
    Bytes bytes = pattern(blocks * 4096, version);
    U32 sum = 0;
    for (std::size_t at = 0; at + 4 < bytes.size(); at += 4)
        sum += bytes[at] | bytes[at + 1] << 8 | bytes[at + 2] << 16 | static_cast<U32>(bytes[at + 3]) << 24;
    for (int b = 0; b < 4; ++b)
        bytes[bytes.size() - 4 + b] = static_cast<unsigned char>((0u - sum) >> (8 * b));
    return bytes;
}

// CRC-32 of the reflected polynomial from ~0, without the final inversion.
U32 crc(const Bytes &bytes)
{
    U32 c = 0xFFFFFFFF;
    for (unsigned char b : bytes) {
        c ^= b;
        for (int k = 0; k < 8; ++k)
            c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
    }
    return c;
}

std::string image(const SimMachine &m, const std::string &name, const Bytes &bytes)
{
    const std::string path = m.dir().file(name);
    krt_test::writeFile(path, std::string(bytes.begin(), bytes.end()));
    return path;
}

// One command log line, as the simulator writes it: CDW10 onwards.
std::string logLine(U32 opc, U32 nsid, std::vector<U32> c, const char *dir, unsigned len, U32 status = 0)
{
    c.resize(6, 0);
    char text[256];
    std::snprintf(text, sizeof text,
                  "vmhba1 opc=0x%02x nsid=%u cdw10=0x%08x cdw11=0x%08x cdw12=0x%08x cdw13=0x%08x cdw14=0x%08x "
                  "cdw15=0x%08x dir=%s len=%u status=0x%x\n",
                  opc, nsid, c[0], c[1], c[2], c[3], c[4], c[5], dir, len, status);
    return text;
}

// The poll lines of a controller update come once a second, as many as the
// download takes: they are left out of the comparison.
std::string withoutPolls(const std::string &out)
{
    std::istringstream in(out);
    std::string kept;
    for (std::string line; std::getline(in, line);) {
        if (line.rfind("flash NVMe Controller, percentage ", 0) != 0)
            kept += line + "\n";
    }
    return kept;
}

// A machine whose runs of krt_cli are followed by what they sent beyond
// start-up's own requests.
class Machine : public SimMachine {
  public:
    using SimMachine::SimMachine;

    krt_test::RunResult run(const std::vector<std::string> &words)
    {
        if (startup_ < 0) {
            krtsim({"log", "clear"});
            cli({"flash", "-o", "none"});
            startup_ = krt_test::occurrences(krtsim({"log"}).out, "\n");
        }
        krtsim({"log", "clear"});
        krt_test::RunResult r = cli(words);
        std::istringstream in(krtsim({"log"}).out);
        sent.clear();
        int n = 0;
        for (std::string line; std::getline(in, line); ++n) {
            if (n >= startup_)
                sent += line + "\n";
        }
        return r;
    }

    // A run that ends with `status`, says `out` (poll lines aside) and sends
    // `expected` beyond start-up's requests.
    void expect(const std::vector<std::string> &words, int status, const std::string &out, const std::string &expected)
    {
        const krt_test::RunResult r = run(words);
        EXPECT_EQ(r.status, status) << testing::PrintToString(words);
        EXPECT_EQ(withoutPolls(r.out), out) << testing::PrintToString(words);
        EXPECT_EQ(sent, expected) << testing::PrintToString(words);
    }

    std::string sent;

  private:
    int startup_ = -1;
};

TEST(FlashController, ImageSegmentsCommitAndTheNewVersionAfterReboot)
{
    Machine m("raid");
    const std::string path = image(m, "fw.bin", pattern(5000, "3.1.0.7"));

    // Two whole segments (the second padded with the first one's tail),
    // then the commit: slot 2, commit action 1.
    m.expect({"flash", "-o", "hba", "-f", path, "-s", "2", "-c", "1"}, 0, kStarted + kDone,
             logLine(0x11, 0, {0x3FF, 0}, "to", 4096) + logLine(0x11, 0, {0x3FF, 0x400}, "to", 4096) +
                 logLine(0x10, 0, {0x0A}, "from", 0));

    EXPECT_EQ(m.run({"flash", "-o", "hba", "-q", "firmware"}).out,
              "Slot count: 7\nActive Slot: 1, Next Active Slot: 2\n");
    EXPECT_TRUE(has(m.cli({"info", "-o", "hba"}).out, "2.1.0.0035\n")) << "active at the next reset";
    ASSERT_EQ(m.krtsim({"reboot"}).status, 0);
    EXPECT_TRUE(has(m.cli({"info", "-o", "hba"}).out, "Firmware Version:                    3.1.0.0007\n"));
    EXPECT_EQ(m.run({"flash", "-o", "hba", "-q", "firmware"}).out,
              "Slot count: 7\nActive Slot: 2, Next Active Slot: 0\n");
}

TEST(FlashController, RawImageIsActivatedWithItsCrc)
{
    Machine m("raid");
    const Bytes bytes = rawImage(2, "4.0.0.1");
    const std::string path = image(m, "whole.bin", bytes);

    m.expect({"flash", "-o", "hba", "-t", "RAW", "-f", path}, 0, kStarted + kDone,
             logLine(0x11, 0, {0x3FF, 0}, "to", 4096) + logLine(0x11, 0, {0x3FF, 0x400}, "to", 4096) +
                 logLine(0xE2, 0, {0, 0, 0x00010BE0, 0x2054524B, 0, __builtin_bswap32(crc(bytes))}, "from", 0) +
                 logLine(0x10, 0, {0x09}, "from", 0));
    m.krtsim({"reboot"});
    EXPECT_TRUE(has(m.cli({"info", "-o", "hba"}).out, "4.0.0.0001\n"));

    // One bit off and the words no longer add up: nothing is sent.
    Bytes bad = rawImage(1, "4.0.0.2");
    bad[10] ^= 0x40;
    m.expect({"flash", "-o", "hba", "-t", "raw", "-f", image(m, "bad.bin", bad)}, 1,
             kStarted +
                 "Flash NVMe Controller firmware failed (error code: 1, Invalid firmware image, please check "
                 "image and try again.)\n",
             "");
}

TEST(FlashController, FailingSegmentStopsTheUpdate)
{
    Machine m("raid");
    const std::string path = image(m, "fw.bin", pattern(3 * 4096));
    m.krtsim({"fault", "add", "--opcode", "0x11", "--count", "1", "--status", "0x114"});

    m.expect({"flash", "-o", "hba", "-f", path, "-s", "2", "-c", "1"}, 0x114 & 0xFF,
             kStarted +
                 "Flash NVMe Controller firmware failed (error code: 276, Invalid firmware image, please check "
                 "image and try again.)\n",
             logLine(0x11, 0, {0x3FF, 0}, "to", 4096, 0x114));  // no commit
}

TEST(FlashController, CommitOnlyResults)
{
    // A controller that cannot activate without a reset (FRMW bit 4 clear).
    Machine m;
    krt_test::writeFile(m.dir().file("f.json"), R"({"adapters": [{"frmw": "0x0E"}]})");
    m.krtsim({"reset", m.dir().file("f.json")});

    // Commit action 3 without an image activates what slot 1 holds; the
    // controller wants a reset first, which is success.
    m.expect({"flash", "-o", "hba", "-c", "3", "-s", "1"}, 0, kStarted + kDoneAfterReset,
             logLine(0x10, 0, {0x19}, "from", 0, 0x10B));

    m.krtsim({"fault", "add", "--opcode", "0x10", "--status", "0x113"});
    m.expect({"flash", "-o", "hba", "-c", "2", "-s", "1"}, 0x13,
             kStarted + "Flash NVMe Controller firmware failed(Firmware commit rohibited)\n",
             logLine(0x10, 0, {0x11}, "from", 0, 0x113));
}

TEST(FlashController, ProgressShowsWhileTheControllerWritesItsFlash)
{
    Machine m("raid");
    // 64 KiB at 40 s per MiB: a download of about two and a half seconds.
    ASSERT_EQ(m.krtsim({"pace", "40000"}).status, 0);
    const auto r = m.run({"flash", "-o", "hba", "-f", image(m, "fw.bin", pattern(64 << 10)), "-s", "2", "-c", "1"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(withoutPolls(r.out), kStarted + kDone);
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

// What arrives for an empty file, or a file of zero bytes, is no image: the
// commit is refused and the slot keeps what it held.
TEST(FlashImages, BlankImagesAreNotCommitted)
{
    Machine m("raid");
    const std::string empty = image(m, "empty.bin", {}), zeros = image(m, "zeros.bin", Bytes(4096, 0));
    m.expect({"flash", "-o", "hba", "-f", empty, "-s", "3", "-c", "0"}, 7,
             kStarted +
                 "Flash NVMe Controller firmware failed (error code: 263, Invalid firmware image, please check "
                 "image and try again.)\n",
             logLine(0x11, 0, {0x3FF, 0}, "to", 4096) + logLine(0x10, 0, {0x03}, "from", 0, 0x107));
    EXPECT_TRUE(has(m.krtsim({"show"}).out, "  firmware slots: 1=2.1.35 (active); 4096 bytes downloaded\n"));

    auto r = m.run({"flash", "-o", "pd", "-i", "1", "-f", zeros, "-s", "2", "-c", "1"});
    EXPECT_EQ(r.status, 7);
    EXPECT_EQ(r.out,
              "Download firmware percentage:0\nInvalid Firmware Image (Status Code: 0x107)\n"
              "Flash NVMe Controller disk 1 firmware failed.\n");
    EXPECT_EQ(m.run({"flash", "-o", "pd", "-q", "firmware", "-i", "1"}).out,
              "Slot count: 3\nActive Slot: 1, Next Active Slot: 0\n");
}

TEST(FlashSsd, ImageWithAPartialLastSegment)
{
    Machine m("raid");
    const Bytes bytes = pattern(5000);
    const std::string path = image(m, "ssd.bin", bytes);

    const auto r = m.run({"flash", "-o", "pd", "-i", "1", "-f", path, "-s", "2", "-c", "3", "-b", "1"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out,
              "Download firmware percentage:0\nDownload firmware percentage:81\n"
              "Flash NVMe Controller disk 1 firmware success, please shutdown and boot again to make firmware "
              "active.\n");
    // Disk 1 in CDW1; the last segment carries only its 904 bytes.
    EXPECT_EQ(m.sent, logLine(0xC3, 1, {0x3FF, 0, 0, 0, 0x11}, "to", 4096) +
                          logLine(0xC3, 1, {225, 1024, 0, 0, 0x11}, "to", 904) +
                          logLine(0xC3, 1, {0x8000001A, 0, 0, 0, 0x10}, "from", 0));
    // The SSD runs the image now: named after the CRC of the bytes it got.
    char name[16];
    std::snprintf(name, sizeof name, "F%07X", crc(bytes) & 0xFFFFFFF);
    EXPECT_TRUE(has(m.cli({"info", "-o", "pd", "-i", "1"}).out, std::string(name) + "\n"));

    const std::string debug = m.shell("--debug\nflash -o pd -i 2 -f " + path + " -s 1 -c 1\n");
    EXPECT_TRUE(has(debug, "total_size: 5000\ncount: 0, offset: 0\nDownload firmware percentage:0\n")) << debug;
    EXPECT_TRUE(has(debug,
                    "offset: 4096, data length: 904, total_size: 5000\n"
                    "admin_cmd.CDW[10]: 0xe1\nadmin_cmd.CDW[11]: 0x400\nadmin_cmd.CDW[14]: 0x11\n"));
    EXPECT_TRUE(has(debug,
                    "admin_cmd.CDW[0]: 0xc3\nadmin_cmd.CDW[1]: 0x2\nadmin_cmd.CDW[10]: 0x9\n"
                    "admin_cmd.CDW[14]: 0x10\nerrStatus: 0x0\n"));
}

TEST(FlashSsd, CommitStatuses)
{
    Machine m("raid");
    m.krtsim({"fault", "add", "--opcode", "0xc3", "--count", "1", "--status", "0x10B"});
    auto r = m.run({"flash", "-o", "hd", "-i", "3", "-c", "2", "-s", "1"});
    EXPECT_EQ(r.status, 0) << "activation at the next reset is success";
    EXPECT_EQ(r.out,
              "Firmware Activation Requires Conventional Reset (Status Code: 0x10b)\n"
              "Flash NVMe Controller disk 3 firmware success, please shutdown and boot again to make firmware "
              "active.\n");

    r = m.run({"flash", "-o", "pd", "-i", "3", "-c", "2", "-s", "3"});
    EXPECT_EQ(r.status, 6);
    EXPECT_EQ(r.out, "Invalid Firmware Slot (Status Code: 0x106)\nFlash NVMe Controller disk 3 firmware failed.\n");
}

TEST(FlashSlots, ControllerAndSsd)
{
    Machine m("raid");
    m.expect({"flash", "-o", "hba", "-q", "Firmware"}, 0, "Slot count: 7\nActive Slot: 1, Next Active Slot: 0\n",
             logLine(0x06, 0, {1}, "from", 4096) + logLine(0x02, 0xFFFFFFFF, {0x007F0003}, "from", 512));
    auto r = m.run({"flash", "-o", "pd", "-q", "firmware", "-i", "2"});
    EXPECT_EQ(r.out, "Slot count: 3\nActive Slot: 1, Next Active Slot: 0\n");
    EXPECT_EQ(m.sent, logLine(0xC2, 2, {1, 0, 0, 0, 6}, "from", 4096) +
                          logLine(0xC2, 2, {0x007F0003, 0, 0, 0, 2, 0xFFFFFFFF}, "from", 512));

    // Without -i the disk asked is the one numbered like the controller.
    m.run({"flash", "-o", "pd", "-q", "firmware"});
    EXPECT_TRUE(has(m.sent, "opc=0xc2 nsid=0 cdw10=0x00000001"));

    r = m.run({"flash", "-o", "pd", "-q", "firmware", "-i", "20"});
    EXPECT_EQ(r.status, 0) << "the display succeeds whatever the disk answered";
    EXPECT_EQ(r.out, "Invalid HD ID (Status Code: 0x706)\nGet Firmware Slot Count Fail");
}

TEST(FlashOptions, UsageErrorsAndImagesThatAreNotSent)
{
    Machine m;
    krt_test::writeFile(m.dir().file("f.json"), R"({"adapters": [{"max_flash_size": 4096, "pd_count": 2}]})");
    m.krtsim({"reset", m.dir().file("f.json")});
    const std::string big = image(m, "big.bin", pattern(4097));
    const std::string empty = image(m, "empty.bin", {});
    const std::string missing = m.dir().file("missing.bin");
    const std::string dir = m.dir().path();
    const std::string help = "Description:Update flash image.\n";
    const std::string req = "flash: option -";
    struct Case {
        std::vector<std::string> words;
        int status;
        std::string out;
    };
    const Case cases[] = {
        {{"flash"}, 1, help},
        {{"flash", "-h"}, 0, help},
        {{"flash", "-o", "hba", "-q", "firmware", "-i", "0"}, 1, "illegal option 'i'\n"},
        {{"flash", "-q", "firmware"}, 0, req + "o is required\nUnknown slot information request."},
        {{"flash", "-o", "ssd"}, 1, "-o : invalid object 'ssd'\n"},
        {{"flash", "-o", "hba", "-t", "full"}, 1, "-t : invalid type 'full'\n"},
        {{"flash", "-o", "hba", "-q", "slots"}, 1, "-q : invalid query 'slots'\n"},
        {{"flash", "-o", "pd", "-i", "65536", "-f", big, "-s", "1", "-c", "1"}, 1, "-i : invalid id '65536'.\n"},
        // Every bad value is reported, and a duplicate after them.
        {{"flash", "-o", "hba", "-c", "8", "-s", "8", "-b", "2"},
         1,
         "-c : invalid commit action '8'.\n-s : invalid firmware slot '8'.\n-b : invalid boot partition id '2'.\n"},
        {{"flash", "-o", "hba", "-s", "9", "-s", "1"},
         1,
         "-s : invalid firmware slot '9'.\nDuplicated option specified.\n"},
        {{"flash", "-o", "hba", "--fs", "1"}, 1, "-s : invalid firmware slot ''.\n"},
        {{"flash", "-o", "hba", "-f", big}, 1, req + "c is required\n" + req + "s is required\n"},
        {{"flash", "-o", "pd", "-s", "1", "-c", "1"}, 1, req + "f is required\n" + req + "i is required\n"},
        {{"flash", "-o", "pd", "-s", "1", "-c", "2"}, 1, req + "i is required\n"},
        {{"flash", "-o", "hba", "-i", "0", "-f", big, "-s", "1", "-c", "1"},
         1,
         "'-o hba' does not support '-i' action\n"},
        {{"flash", "-o", "hba", "-t", "raw", "-f", big, "-c", "1"}, 1, "'-t raw' does not support '-c' action\n"},
        {{"flash", "-o", "hba", "-t", "raw"}, 1, req + "f is required\n"},
        // Images that never reach the controller.
        {{"flash", "-o", "hba", "-f", missing, "-s", "1", "-c", "1"},
         1,
         "failed to open file " + missing + "\n" + kNotStarted},
        {{"flash", "-o", "hba", "-f", dir, "-s", "1", "-c", "1"}, 1, "failed to open file " + dir + "\n" + kNotStarted},
        {{"flash", "-o", "hba", "-f", big, "-s", "1", "-c", "1"}, 1, kNotStarted},
        {{"flash", "-o", "pd", "-i", "1", "-f", missing, "-s", "1", "-c", "1"},
         1,
         "failed to open file " + missing + "\n"},
    };
    for (const Case &c : cases) {
        const auto r = m.run(c.words);
        EXPECT_EQ(r.status, c.status) << testing::PrintToString(c.words);
        EXPECT_EQ(m.sent, "") << testing::PrintToString(c.words);
        EXPECT_EQ(c.out == help ? r.out.substr(0, help.size()) : r.out, c.out) << testing::PrintToString(c.words);
    }
    // An empty SSD image: reported as invalid, the result its message's length.
    const std::string emptyFailed =
        "\nStart to flash NVMe Controller disk 1 firmware failed (Invalid firmware image, please check image and try "
        "again.)\n";
    m.expect({"flash", "-o", "pd", "-i", "1", "-f", empty, "-s", "1", "-c", "1"}, static_cast<int>(emptyFailed.size()),
             emptyFailed, "");
}

}  // namespace
