// Inputs that are hostile rather than random: files that are not files, a
// disk that is full, an image that changes under the reader and a machine
// state cut short by someone else. Each run must end by itself, cleanly.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <thread>

#include "machine.h"
#include "text.h"

namespace krt_test {
namespace {

void expectEndsCleanly(const RunResult &r, const std::string &what)
{
    EXPECT_FALSE(r.timedOut) << what << ": still waiting";
    EXPECT_EQ(r.signal, 0) << what << "\n" << r.err;
    EXPECT_FALSE(has(r.err, "runtime error:") || has(r.err, "Sanitizer")) << what << "\n" << r.err;
}

RunOptions quick()
{
    RunOptions o;
    o.timeoutSeconds = 20;
    return o;
}

TEST(HostileInputs, FifosAndFoldersInPlaceOfFiles)
{
    SimMachine machine("raid");
    const std::string fifo = machine.dir().file("fifo");
    const std::string folder = machine.dir().file("folder");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    std::filesystem::create_directory(folder);

    for (const std::string &name : {fifo, folder}) {
        // Nobody reads the fifo: a file to write is refused at once.
        for (const std::vector<std::string> &words : std::vector<std::vector<std::string>>{
                 {"log", "-a", "show", "--outputfile", name},
                 {"spi", "-t", "read", "--outputfile", name},
                 {"passthru", "-i", "1", "-r", "read", "-o", "6", "--cdw10", "1", "-d", "4096", "--outputfile", name},
             }) {
            RunResult r = machine.cli(words, quick());
            expectEndsCleanly(r, words[0] + " " + name);
            EXPECT_TRUE(has(r.err, "cannot open " + name)) << r.err;
        }
        // Nobody writes it: an image cannot come from it, and no data waits.
        for (const std::vector<std::string> &words : std::vector<std::vector<std::string>>{
                 {"flash", "-o", "hba", "-f", name, "-s", "2", "-c", "1"},
                 {"flash", "-o", "hba", "-t", "raw", "-f", name},
                 {"flash", "-o", "pd", "-i", "1", "-f", name, "-s", "1", "-c", "1"},
             }) {
            RunResult r = machine.cli(words, quick());
            expectEndsCleanly(r, "flash " + name);
            EXPECT_NE(r.status, 0);
            EXPECT_TRUE(has(r.out, "failed to open file") || has(r.out, "Invalid firmware image")) << r.out;
        }
        expectEndsCleanly(machine.cli({"spi", "-t", "write", "--inputfile", name}, quick()), "spi write " + name);
        // The output stream falls back to standard output.
        RunResult r = machine.cli({"info", "-o", "hba", "-output", name}, quick());
        expectEndsCleanly(r, "-output " + name);
        EXPECT_TRUE(has(r.err, "cannot open output file")) << r.err;
        EXPECT_TRUE(has(r.out, "Controller")) << r.out;
    }
}

TEST(HostileInputs, OutputToAFullDiskIsReportedOnce)
{
    SimMachine machine("raid");
    auto countOf = [](const std::string &text, const std::string &what) {
        int n = 0;
        for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += what.size())
            ++n;
        return n;
    };
    // The output stream: whatever the command did, its lost output makes the
    // run fail. A command's own file is reported the same way.
    const struct {
        std::vector<std::string> words;
        bool runFails;
    } cases[] = {
        {{"info", "-o", "pd", "-output", "/dev/full"}, true},
        {{"event", "-c", "0", "-output", "/dev/full"}, true},
        {{"log", "-a", "show", "--outputfile", "/dev/full"}, false},
        {{"spi", "-t", "read", "--outputfile", "/dev/full"}, false},
    };
    for (const auto &c : cases) {
        RunResult r = machine.cli(c.words, quick());
        expectEndsCleanly(r, c.words[0] + " to /dev/full");
        EXPECT_EQ(countOf(r.err, "No space left on device"), 1) << r.err;
        if (c.runFails) {
            EXPECT_EQ(r.status, 1);
        }
    }
}

TEST(HostileInputs, FirmwareImageChangingSizeWhileRead)
{
    SimMachine machine("raid");
    const std::string image = machine.dir().file("fw.bin");
    writeFile(image, "KRTFW:2.1.0.77" + std::string(4096 - 14, 'z'));
    std::atomic<bool> stop{false};
    std::thread resizer([&] {
        for (int i = 0; !stop; ++i)
            truncate(image.c_str(), i % 2 == 0 ? 1 << 20 : 4096 + i % 4096);
    });
    for (int round = 0; round < 2; ++round) {
        for (const std::vector<std::string> &words : std::vector<std::vector<std::string>>{
                 {"flash", "-o", "hba", "-f", image, "-s", "2", "-c", "1"},
                 {"flash", "-o", "hba", "-t", "raw", "-f", image},
                 {"flash", "-o", "pd", "-i", "1", "-f", image, "-s", "1", "-c", "1"},
             })
            expectEndsCleanly(machine.cli(words, quick()), words[2] + " image");
    }
    stop = true;
    resizer.join();
}

TEST(HostileInputs, StateFileCutShortBetweenRuns)
{
    SimMachine machine("raid");
    const std::string vds = machine.cli({"info", "-o", "vd"}).out;
    ASSERT_TRUE(has(vds, "Total # of VD:"));
    ASSERT_EQ(machine.krtsim({"reset", "multi"}).status, 0);
    for (off_t size : {off_t{4096}, off_t{0}, off_t{100000}}) {
        ASSERT_EQ(truncate(machine.statePath().c_str(), size), 0);
        RunResult r = machine.cli({"info", "-o", "vd"}, quick());
        expectEndsCleanly(r, "cut to " + std::to_string(size));
        EXPECT_EQ(r.out, vds) << "a cut state starts over as the usual machine";
        ASSERT_EQ(machine.krtsim({"reset", "multi"}).status, 0);
    }
}

}  // namespace
}  // namespace krt_test
