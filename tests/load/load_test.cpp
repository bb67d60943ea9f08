// Several processes against one simulated machine at once.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "machine.h"

namespace krt_test {
namespace {

constexpr int kProcesses = 8;

template <typename Work>
void inParallel(Work work)
{
    std::vector<std::thread> threads;
    for (int p = 0; p < kProcesses; ++p)
        threads.emplace_back(work, p);
    for (auto &t : threads)
        t.join();
}

// Without the controller lock, one process's receive picks up another's reply.
TEST(Load, PairedRequestsStayWithTheirSenders)
{
    SimMachine machine("raid");
    RunOptions options;
    options.timeoutSeconds = 240;
    inParallel([&](int p) {
        const RunResult r = runProcess({KRT_LOAD_CLIENT_PATH, std::to_string(p), "1000"}, machine.env(options));
        EXPECT_EQ(r.status, 0) << "process " << p << ": " << r.err;
        std::printf("process %d: %s", p, r.out.c_str());
    });
}

// Each process makes a VD of its own SSD, finds it in the listing, reads
// the settings and the events, and deletes its VD again, in rounds.
TEST(Load, MixedCommandsKeepTheMachineWhole)
{
    // Two VDs as on the usual machine and a free SSD for each process. The
    // VD listing probes as many ids as the controller has ports.
    const TempDir dir;
    writeFile(dir.file("load.json"), R"({"adapters":[{"pd_count":16,"max_vd":16,"port_count":16,"vds":[)"
                                     R"({"members":[0,1,2,3],"raid":"raid5","name":"data"},)"
                                     R"({"members":[4,5],"raid":"raid1","name":"mirror"}]}]})");
    SimMachine machine(dir.file("load.json"));
    const std::string settings = machine.cli({"get", "-o", "hba"}).out, vds = machine.cli({"info", "-o", "vd"}).out,
                      pds = machine.cli({"info", "-o", "pd"}).out;

    inParallel([&](int p) {
        const std::string pd = std::to_string(8 + p);
        const auto expect = [&](const std::vector<std::string> &words, const std::string &part) {
            const RunResult r = machine.cli(words);
            EXPECT_TRUE(r.status == 0 && r.out.find(part) != std::string::npos)
                << "process " << p << ", " << testing::PrintToString(words) << ": " << r.out << r.err;
            return r.out;
        };
        for (int round = 0; round < 3; ++round) {
            expect({"vd", "-a", "create", "-r", "0", "-d", pd}, "cmd success\n");
            expect({"get", "-o", "hba"}, settings);
            expect({"event", "-c", "5"}, "Total events:");
            // The VD whose only member is this process's SSD.
            const std::string members = "\nPDs:" + std::string(17, ' ') + pd + " \n";
            const std::string listing = expect({"info", "-o", "vd"}, members);
            const std::size_t mine = listing.rfind("VD ID:", listing.find(members));
            if (listing.find(members) != std::string::npos && mine != std::string::npos)
                expect({"vd", "-a", "delete", "-i", std::to_string(std::atoi(listing.c_str() + mine + 6))},
                       "cmd success\n");
        }
    });
    // Every create was undone by its own delete.
    EXPECT_EQ(machine.cli({"info", "-o", "vd"}).out, vds);
    EXPECT_EQ(machine.cli({"info", "-o", "pd"}).out, pds);
}

}  // namespace
}  // namespace krt_test
