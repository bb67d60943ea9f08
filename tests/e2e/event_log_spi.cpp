// event, log and spi against simulated machines: options and results, the
// request words in the command log, files written, wrapped event rings and
// controllers that fail or send nonsense.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "machine.h"
#include "text.h"

namespace {

using krt_test::has;
using krt_test::occurrences;
using krt_test::readFile;
using krt_test::RunOptions;
using krt_test::SimMachine;
using krt_test::TempDir;
using krt_test::writeFile;
using Words = std::vector<std::string>;

// A machine with one controller described by an adapter's JSON fields.
SimMachine machineWith(const std::string &adapter)
{
    TempDir dir;
    writeFile(dir.file("f.json"), R"({"adapters": [{)" + adapter + "}]}");
    return SimMachine(dir.file("f.json"));
}

void fault(const SimMachine &m, Words words)
{
    words.insert(words.begin(), {"fault", "add"});
    ASSERT_EQ(m.krtsim(words).status, 0) << testing::PrintToString(words);
}

RunOptions utc()
{
    RunOptions o;
    o.env["TZ"] = "UTC0";
    return o;
}

void expectRun(const SimMachine &m, const Words &words, int status, const std::string &out,
               const RunOptions &options = {})
{
    const auto r = m.cli(words, options);
    EXPECT_EQ(r.status, status) << testing::PrintToString(words);
    EXPECT_EQ(r.out, out) << testing::PrintToString(words);
}

struct Case {
    Words words;
    int status;
    std::string out;  // for a help: how it begins
};

void expectCases(const SimMachine &m, const std::vector<Case> &cases, const std::string &help)
{
    for (const Case &c : cases) {
        const auto r = m.cli(c.words);
        EXPECT_EQ(r.status, c.status) << testing::PrintToString(c.words);
        EXPECT_EQ(c.out == help ? r.out.substr(0, help.size()) : r.out, c.out) << testing::PrintToString(c.words);
    }
}

const std::string kNoSPILog = "\nUnable to get SPI log from NVMe Controller\n";
const std::string kInternalError = "Internal Error (Status Code: 0x6)\n";
const std::string kBootLog = "boot: controller started\nboot: firmware 2.1.35\n";

// ---------------------------------------------------------------- event

const std::string kTimedEvents =
    R"("events": [{"message": "Controller started", "time": 42}, {"message": "early", "time": 1262304000},
                  {"message": "dated", "time": 1262304001}])";

TEST(EventCommand, OptionsAndUsageErrors)
{
    SimMachine m("raid");
    const std::string help = "Description:For getting event from NVMe Controller.\n";
    expectCases(m,
                {{{"event"}, 1, help},
                 {{"event", "-h"}, 0, help},
                 {{"event", "-c", "x"}, 1, "-c : invalid count 'x'.\n"},
                 {{"event", "-c", "-1"}, 1, "-c : invalid count '-1'.\n"},
                 {{"event", "-c"}, 1, ""},
                 {{"event", "-q"}, 1, ""},
                 {{"event", "-c", "1", "--count=2"}, 1, "Duplicated option specified.\n"}},
                help);
    EXPECT_FALSE(has(m.krtsim({"log"}).out, "cdw12=0x000004fe"));
}

TEST(EventCommand, NewestFirstFromSixteenPages)
{
    SimMachine m = machineWith(kTimedEvents);
    const std::string all =
        "Seq:3\nTime:2010-01-01 00:00:01\nMessage:dated\n"
        "Seq:2\nTime:1262304000 seconds from the boot time.\nMessage:early\n"
        "Seq:1\nTime:42 seconds from the boot time.\nMessage:Controller started\n";
    expectRun(m, {"event", "-c", "0"}, 0, all + "Total events: 3\n", utc());
    EXPECT_EQ(m.cli({"event", "-c", "1"}, utc()).out, all.substr(0, all.find("Seq:2")) + "Total events: 1\n");
    EXPECT_EQ(m.cli({"event", "--count=2"}, utc()).out, all.substr(0, all.find("Seq:1")) + "Total events: 2\n");
    // The long form takes its count only when attached.
    EXPECT_EQ(m.cli({"event", "--count", "2"}, utc()).out, all + "Total events: 3\n");

    const std::string log = m.krtsim({"log"}).out;
    for (int page = 0; page < 16; ++page) {
        char words[256];
        std::snprintf(words, sizeof words,
                      "opc=0xe2 nsid=0 cdw10=0x000003ff cdw11=0x00000000 cdw12=0x000004fe cdw13=0x%08x "
                      "cdw14=0x00001000 cdw15=0x00000000 dir=from len=4096",
                      page * 4096);
        EXPECT_EQ(occurrences(log, words), 4) << page;
    }

    EXPECT_TRUE(has(m.shell("--debug\nevent -c 1\n"),
                    "CDW[0] : 0x000000e2\nCDW[10]: 0x000003ff\nCDW[12]: 0x000004fe\nCDW[13]: 0x0000f000\n"
                    "CDW[14]: 0x00001000\nSeq:3\n"));

    // Into a file, with only the total on the terminal.
    expectRun(m, {"event", "-c", "2", "-output", "ev.txt"}, 0, "Total events: 2\n", utc());
    EXPECT_EQ(readFile(m.dir().file("ev.txt")), all.substr(0, all.find("Seq:1")));
}

TEST(EventCommand, FullRingThatHasWrapped)
{
    // 3 start-up events and 300 more in a ring of 256: 48 to 303 are kept.
    SimMachine m = machineWith(R"("event_fill": 300)");
    auto r = m.cli({"event", "-c", "0"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(occurrences(r.out, "Seq:"), 256);
    EXPECT_EQ(r.out.rfind("Seq:303\n", 0), 0u);
    EXPECT_TRUE(has(r.out, "Message:Event 300\nSeq:302\n"));
    EXPECT_TRUE(has(r.out, "Seq:48\nTime:"));
    EXPECT_TRUE(r.out.ends_with("Message:Event 45\nTotal events: 256\n"));
    EXPECT_TRUE(m.cli({"event", "-c", "1000"}).out.ends_with("Total events: 256\n"));
}

TEST(EventCommand, OutputFileAndTheTerminalLines)
{
    // A line without its markers is reported on the terminal and skipped.
    SimMachine broken = machineWith(R"("events": ["fine", "broken\nline"])");
    expectRun(broken, {"event", "-c", "0", "-output", "ev.txt"}, 0,
              "Command format has error: line\nTotal events: 2\n");
    EXPECT_TRUE(has(readFile(broken.dir().file("ev.txt")), "Message:broken\nSeq:1\n"));

    SimMachine none = machineWith(R"("events": [])");
    expectRun(none, {"event", "-c", "0", "-output", "ev.txt"}, 0, "No events\n");
}

TEST(EventCommand, FailingAndOverlongPages)
{
    SimMachine m("raid");
    // The first page holds every event; when it fails the others hold none.
    fault(m, {"--opcode", "0xe2", "--cdw12", "0x4fe", "--count", "1", "--status", "0x6"});
    expectRun(m, {"event", "-c", "0", "-output", "ev.txt"}, 0, kInternalError + "No events\n");
    EXPECT_EQ(readFile(m.dir().file("ev.txt")), "\n event request fail\n");

    fault(m, {"--opcode", "0xe2", "--cdw12", "0x4fe", "--status", "0x6"});
    auto r = m.cli({"event", "-c", "0"});
    EXPECT_EQ(r.status, 6) << "the status of the last page";
    EXPECT_EQ(occurrences(r.out, "\n event request fail\n"), 16);

    // Pages of one unterminated line overrunning every field.
    ASSERT_EQ(m.krtsim({"fault", "clear"}).status, 0);
    fault(m, {"--opcode", "0xe2", "--cdw12", "0x4fe", "--overlong"});
    r = m.cli({"event", "-c", "0"}, utc());
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(occurrences(r.out, "Seq:" + std::string(20, '9') +
                                     "\nTime:2106-02-07 06:28:15\nMessage:" + std::string(80, 'X') + "\n"),
              16);
    EXPECT_TRUE(r.out.ends_with("Total events: 16\n"));
}

// ---------------------------------------------------------------- log

TEST(LogCommand, OptionsSwitchedOffAndOnAndShown)
{
    SimMachine m("raid");
    const std::string help = "Description:For show/on/off SPI log\n";
    expectCases(m,
                {{{"log"}, 1, help},
                 {{"log", "-h"}, 0, help},
                 {{"log", "-a", "dump"}, 0, "-a : invalid action 'dump'.\n"},
                 {{"log", "-q"}, 0, ""},
                 {{"log", "-a", "on", "-a", "off"}, 1, "Duplicated option specified.\n"},
                 {{"log", "--outputfile", "f.txt"}, 1, "Error action!\n"}},
                help);
    EXPECT_FALSE(has(m.krtsim({"log"}).out, "cdw12=0x000003fe"));

    expectRun(m, {"log", "-a", "OFF"}, 0, "cmd success\n");
    EXPECT_TRUE(has(m.krtsim({"log"}).out,
                    "cdw10=0x00000000 cdw11=0x00000000 cdw12=0x000003fe cdw13=0x00000000 "
                    "cdw14=0x00000000"));
    expectRun(m, {"log", "-a", "show"}, 1, kNoSPILog);
    EXPECT_EQ(m.cli({"log", "-a", "on"}).out, "cmd success\n");
    EXPECT_TRUE(has(m.krtsim({"log"}).out, "cdw12=0x000003fe cdw13=0x00000000 cdw14=0x00000001"));
    expectRun(m, {"log", "-a", "show"}, 0, kBootLog + "cmd success\n");

    fault(m, {"--opcode", "0xe2", "--cdw12", "0x3fe", "--status", "0x6"});
    expectRun(m, {"log", "-a", "off"}, 6, kInternalError + "cmd failed.\n");
}

TEST(LogCommand, ChunksIntoAFile)
{
    // A full log: lines padded with a NUL after the line feed.
    std::string text = "line one\n";
    text += '\0';
    text += "line two\n";
    text.resize(4096, 'L');
    SimMachine m = machineWith(R"("spi_log": "line one\n\u0000line two\n)" + std::string(4096 - 19, 'L') + "\"");
    std::string shown = text;
    shown[9] = ' ';
    expectRun(m, {"log", "-a", "show", "--outputfile", "\"my log.txt\""}, 0, shown + "cmd success\n");
    EXPECT_EQ(readFile(m.dir().file("my log.txt")), text);

    const std::string log = m.krtsim({"log"}).out;
    EXPECT_EQ(occurrences(log, "cdw10=0x000003ff cdw11=0x00000000 cdw12=0x000002fe"), 1);
    EXPECT_EQ(occurrences(log, "cdw10=0x000003ff cdw11=0x00000000 cdw12=0x000000fe"), 3) << "4080, 16, then 0";

    // A file that cannot be opened is said once; the log is still shown.
    const auto r = m.cli({"log", "-a", "show", "--outputfile", "no/such/dir.txt"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "cannot open no/such/dir.txt: No such file or directory\n");
    EXPECT_EQ(r.out, shown + "cmd success\n");
}

TEST(LogCommand, EmptyLogsAndFaults)
{
    SimMachine m = machineWith(R"("spi_log": "")");
    EXPECT_EQ(m.cli({"log", "-a", "show"}).out, "No SPI log\ncmd success\n");

    SimMachine f("raid");
    fault(f, {"--opcode", "0xe2", "--cdw12", "0xfe", "--count", "1", "--overlong"});
    expectRun(f, {"log", "-a", "show"}, 1, "Error SPI data length: 65535\n");
    fault(f, {"--opcode", "0xe2", "--cdw12", "0x2fe", "--count", "1", "--bad-sign"});
    expectRun(f, {"log", "-a", "show"}, 1, kNoSPILog);

    // A state query that fails still lets the read-out go ahead.
    fault(f, {"--opcode", "0xe2", "--cdw12", "0x2fe", "--count", "1", "--status", "0x6"});
    expectRun(f, {"log", "-a", "show"}, 0, kInternalError + kNoSPILog + kBootLog + "cmd success\n");

    fault(f, {"--opcode", "0xe2", "--cdw12", "0xfe", "--count", "1", "--status", "0x6"});
    expectRun(f, {"log", "-a", "show"}, 6, kInternalError + kNoSPILog);
}

// ---------------------------------------------------------------- spi

std::string rawLines(const std::string &bytes)
{
    std::string out;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        char b[8];
        std::snprintf(b, sizeof b, "0x%02x ", static_cast<unsigned char>(bytes[i]));
        out += (i % 16 == 0 ? "\n" : "") + std::string(b);
    }
    return out + "\n";
}

TEST(SpiCommand, OptionsAndUsageErrors)
{
    SimMachine m("raid");
    writeFile(m.dir().file("in.bin"), "abc");
    const std::string help = "Description:Read and write SPI data. Maximal size of SPI data is 4096 bytes.\n";
    expectCases(m,
                {{{"spi"}, 1, help},
                 {{"spi", "-h"}, 0, help},
                 {{"spi", "-t", "erase"}, 0, "-t : invalid type 'erase'\n"},
                 {{"spi", "-z"}, 0, ""},
                 {{"spi", "--outputfile", "o.bin"}, 0, "spi: option -t is required\n"},
                 {{"spi", "-t", "read", "--type", "write"}, 1, "Duplicated option specified.\n"},
                 {{"spi", "-t", "write", "--inputfile", "in.bin", "-2", "in.bin"}, 1, "Duplicated option specified.\n"},
                 {{"spi", "-t", "write"}, 0, "Please provide input file.\n"},
                 {{"spi", "-t", "write", "--inputfile", "missing.bin"}, 19, "File is not exist.\n"}},
                help);
    EXPECT_FALSE(has(m.krtsim({"log"}).out, "opc=0xc7"));

    // A folder is no input file; neither is one replaced by a later output file.
    auto r = m.cli({"spi", "-t", "write", "--inputfile", "."});
    EXPECT_EQ(r.status, 19);
    EXPECT_EQ(r.err, "cannot open .: Is a directory\n");
    EXPECT_EQ(m.cli({"spi", "-t", "write", "--inputfile", "in.bin", "--outputfile", "o.bin"}).status, 19);
    EXPECT_FALSE(has(m.krtsim({"log"}).out, "opc=0xc7"));
}

TEST(SpiCommand, WrittenFromFilesAndReadBack)
{
    SimMachine m("raid");
    const std::string ten = "0123456789";
    writeFile(m.dir().file("ten.bin"), ten);
    expectRun(m, {"spi", "-t", "WRITE", "--inputfile", "ten.bin"}, 0,
              "spi write data.....\n" + rawLines(ten) + "Write SPI successful.\n");
    EXPECT_TRUE(has(m.krtsim({"log"}).out,
                    "opc=0xc7 nsid=0 cdw10=0x00000400 cdw11=0x00000000 cdw12=0x000008e0 "
                    "cdw13=0x00000000 cdw14=0x00000000 cdw15=0x00000000 dir=to len=4096"));

    expectRun(m, {"spi", "-t", "read", "--outputfile", "out.bin"}, 0, "Read SPI successful.\n");
    EXPECT_EQ(readFile(m.dir().file("out.bin")), ten + std::string(4086, '\0')) << "the whole area is written";
    EXPECT_TRUE(has(m.krtsim({"log"}).out,
                    "opc=0x02 nsid=0 cdw10=0x03ff00c0 cdw11=0x00000000 cdw12=0x00000000 "
                    "cdw13=0x00000000 cdw14=0x00000000 cdw15=0x00000000 dir=from len=4096"));
    EXPECT_EQ(m.cli({"spi", "-t", "read"}).out, rawLines(ten + std::string(4086, '\0')) + "Read SPI successful.\n");

    // Only the first 4096 bytes of a longer file go.
    std::string big;
    for (int i = 0; i < 5000; ++i)
        big += static_cast<char>('a' + i % 26);
    writeFile(m.dir().file("big.bin"), big);
    EXPECT_EQ(m.cli({"spi", "-t", "write", "-2", "big.bin"}).status, 0);
    EXPECT_EQ(m.cli({"spi", "-t", "read", "-1", "out.bin"}).status, 0);
    EXPECT_EQ(readFile(m.dir().file("out.bin")), big.substr(0, 4096));

    // An empty file clears the area.
    writeFile(m.dir().file("empty.bin"), "");
    expectRun(m, {"spi", "-t", "write", "--inputfile", "empty.bin", "-output", "o.txt"}, 0, "spi write data.....\n");
    EXPECT_EQ(readFile(m.dir().file("o.txt")), "\nWrite SPI successful.\n");
    EXPECT_EQ(m.cli({"spi", "-t", "read", "-1", "out.bin"}).status, 0);
    EXPECT_EQ(readFile(m.dir().file("out.bin")), std::string(4096, '\0'));
}

TEST(SpiCommand, FailuresAndUnopenableFiles)
{
    SimMachine m("raid");
    writeFile(m.dir().file("ten.bin"), "0123456789");
    fault(m, {"--opcode", "0x02", "--count", "1", "--status", "0x6"});
    expectRun(m, {"spi", "-t", "read"}, 6, kInternalError + "Read SPI failed.\n");
    fault(m, {"--opcode", "0xc7", "--count", "1", "--status", "0x6"});
    auto r = m.cli({"spi", "-t", "write", "--inputfile", "ten.bin"});
    EXPECT_EQ(r.status, 6);
    EXPECT_TRUE(r.out.ends_with(kInternalError + "Write SPI failed.\n"));

    // The data read is shown when the output file cannot be made.
    r = m.cli({"spi", "-t", "read", "--outputfile", "no/dir/out.bin"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "cannot open no/dir/out.bin: No such file or directory\n");
    EXPECT_EQ(r.out, rawLines(std::string(4096, '\0')) + "Read SPI successful.\n");
}

TEST(SpiCommand, OneFileAtATimeInTheShell)
{
    SimMachine m("raid");
    writeFile(m.dir().file("in.bin"), "xyz");
    m.shell(
        "log -a show --outputfile a.txt\n"
        "spi -t write --inputfile in.bin\n"
        "spi -t read --outputfile b.bin\n"
        "log -a show\n");
    EXPECT_EQ(readFile(m.dir().file("a.txt")), kBootLog);
    EXPECT_EQ(readFile(m.dir().file("b.bin")), "xyz" + std::string(4093, '\0'));
}

}  // namespace
