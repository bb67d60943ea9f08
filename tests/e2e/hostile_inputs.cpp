// Inputs that are hostile rather than random: files that are not files, a
// disk that is full and an image that changes under the reader. Each run
// must end by itself, cleanly.
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

using Words = std::vector<std::string>;

// A run that ended by itself, without a signal or a sanitizer's report.
RunResult cleanRun(const SimMachine &m, const Words &words)
{
    RunOptions quick;
    quick.timeoutSeconds = 20;
    const RunResult r = m.cli(words, quick);
    EXPECT_FALSE(r.timedOut) << words[0] << ": still waiting";
    EXPECT_EQ(r.signal, 0) << words[0] << "\n" << r.err;
    EXPECT_FALSE(has(r.err, "runtime error:") || has(r.err, "Sanitizer")) << words[0] << "\n" << r.err;
    return r;
}

const Words kFlashes[] = {{"flash", "-o", "hba", "-f", "F", "-s", "2", "-c", "1"},
                          {"flash", "-o", "hba", "-t", "raw", "-f", "F"},
                          {"flash", "-o", "pd", "-i", "1", "-f", "F", "-s", "1", "-c", "1"}};

Words with(Words words, const std::string &file)
{
    for (auto &w : words)
        w = w == "F" ? file : w;
    return words;
}

// A fifo nobody reads or writes, or a folder: a file to write is refused at
// once, an image cannot come from it, and the output stream falls back to
// standard output.
TEST(HostileInputs, FifosAndFoldersInPlaceOfFiles)
{
    SimMachine m("raid");
    const std::string fifo = m.dir().file("fifo"), folder = m.dir().file("folder");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    std::filesystem::create_directory(folder);
    for (const std::string &name : {fifo, folder}) {
        for (const Words &words :
             {Words{"log", "-a", "show", "--outputfile", "F"}, Words{"spi", "-t", "read", "--outputfile", "F"},
              Words{"passthru", "-i", "1", "-r", "read", "-o", "6", "--cdw10", "1", "-d", "4096", "--outputfile", "F"}})
            EXPECT_TRUE(has(cleanRun(m, with(words, name)).err, "cannot open " + name));
        for (const Words &words : kFlashes) {
            const RunResult r = cleanRun(m, with(words, name));
            EXPECT_NE(r.status, 0);
            EXPECT_TRUE(has(r.out, "failed to open file") || has(r.out, "Invalid firmware image")) << r.out;
        }
        cleanRun(m, {"spi", "-t", "write", "--inputfile", name});
        const RunResult r = cleanRun(m, {"info", "-o", "hba", "-output", name});
        EXPECT_TRUE(has(r.err, "cannot open output file")) << r.err;
        EXPECT_TRUE(has(r.out, "Controller")) << r.out;
    }
}

// Lost output of the output stream makes the run fail; a command's own file
// is reported the same way, once.
TEST(HostileInputs, OutputToAFullDiskIsReportedOnce)
{
    SimMachine m("raid");
    for (const Words &words :
         {Words{"info", "-o", "pd", "-output", "/dev/full"}, Words{"event", "-c", "0", "-output", "/dev/full"},
          Words{"log", "-a", "show", "--outputfile", "/dev/full"},
          Words{"spi", "-t", "read", "--outputfile", "/dev/full"}}) {
        const RunResult r = cleanRun(m, words);
        EXPECT_EQ(occurrences(r.err, "No space left on device"), 1) << r.err;
        EXPECT_TRUE(words[3] != "-output" || r.status == 1) << words[0];
    }
}

TEST(HostileInputs, FirmwareImageChangingSizeWhileRead)
{
    SimMachine m("raid");
    const std::string image = m.dir().file("fw.bin");
    writeFile(image, "KRTFW:2.1.0.77" + std::string(4096 - 14, 'z'));
    std::atomic<bool> stop{false};
    std::thread resizer([&] {
        for (int i = 0; !stop; ++i)
            truncate(image.c_str(), i % 2 == 0 ? 1 << 20 : 4096 + i % 4096);
    });
    for (int round = 0; round < 2; ++round)
        for (const Words &words : kFlashes)
            cleanRun(m, with(words, image));
    stop = true;
    resizer.join();
}

}  // namespace
}  // namespace krt_test
