// event, log and spi against simulated machines: the table of runs
// (tests/cases/event.cases), then what they write into files, the one open
// file the shell's commands share, and the request words shown with
// debugging on.
#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <string>

#include "cases.h"
#include "machine.h"
#include "text.h"

namespace {

using krt_test::readFile;
using krt_test::SimMachine;

// Event times are local times of the host: here of a zone nine hours east of
// UTC, so that a time shown in UTC is caught.
struct Event : testing::Test {
    const char *const host = std::getenv("TZ");
    const std::optional<std::string> saved = host ? std::optional<std::string>(host) : std::nullopt;
    Event() { setenv("TZ", "JST-9", 1); }
    ~Event() override { saved ? setenv("TZ", saved->c_str(), 1) : unsetenv("TZ"); }
};

TEST_F(Event, Cases)
{
    krt_test::runCaseFile("event.cases");
}

TEST_F(Event, FilesHoldWhatIsShown)
{
    const SimMachine m(KRT_SOURCE_DIR "/tests/json/fixtures/logs.json");
    // Only the total, the parser's complaints and "No events" stay on the
    // terminal.
    EXPECT_EQ(m.cli({"event", "-c", "2", "-output", "ev.txt"}).out,
              "Command format has error: line\nTotal events: 2\n");
    EXPECT_EQ(readFile(m.dir().file("ev.txt")),
              "Seq:4\nTime:2010-01-01 09:00:01\nMessage:dated\nSeq:3\nTime:1262304000 seconds from the boot time.\n"
              "Message:early\n");
    EXPECT_EQ(m.cli({"1", "event", "-c", "0", "-output", "ev.txt"}).out, "No events\n");
    krt_test::writeFile(m.dir().file("empty.bin"), "");
    EXPECT_EQ(m.cli({"spi", "-t", "write", "--inputfile", "empty.bin", "-output", "o.txt"}).out,
              "spi write data.....\n");
    EXPECT_EQ(readFile(m.dir().file("o.txt")), "\nWrite SPI successful.\n");
    EXPECT_TRUE(krt_test::has(m.shell("--debug\nevent -c 1\n"),
                              "CDW[0] : 0x000000e2\nCDW[10]: 0x000003ff\nCDW[12]: 0x000004fe\nCDW[13]: 0x0000f000\n"
                              "CDW[14]: 0x00001000\nSeq:4\n"));

    // Each command of a shell closes its own file: the log read-out holds
    // only the log, the SPI area what was written into it.
    krt_test::writeFile(m.dir().file("in.bin"), "xyz");
    m.shell(
        "log -a show --outputfile a.txt\nspi -t write --inputfile in.bin\nspi -t read --outputfile b.bin\n"
        "log -a show\n");
    EXPECT_EQ(readFile(m.dir().file("a.txt")), "boot: controller started\nboot: firmware 2.1.35\n");
    EXPECT_EQ(readFile(m.dir().file("b.bin")), "xyz" + std::string(4093, '\0')) << "the whole area";
    EXPECT_EQ(m.cli({"spi", "-t", "write", "--inputfile", "."}).err, "cannot open .: Is a directory\n");

    // A log read-out gets the bytes as they came, into a name in quotes.
    m.cli({"3", "log", "-a", "show", "--outputfile", "\"my log.txt\""});
    EXPECT_EQ(readFile(m.dir().file("my log.txt")),
              "line one\n" + std::string(1, '\0') + "line two\n" + std::string(4077, 'L'));
    EXPECT_EQ(m.cli({"3", "log", "-a", "show", "--outputfile", "no/such/dir.txt"}).err,
              "cannot open no/such/dir.txt: No such file or directory\n");
}

}  // namespace
