// Several processes against one simulated machine at once.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "machine.h"

namespace krt_test {
namespace {

constexpr int kProcesses = 8;
constexpr int kPairs = 1000;
// How long the controller lock lets a process wait before it goes on alone.
constexpr double kLockDeadlineMs = 5000;

template <typename Work>
void inParallel(Work work)
{
    std::vector<std::thread> threads;
    for (int p = 0; p < kProcesses; ++p)
        threads.emplace_back(work, p);
    for (auto &t : threads)
        t.join();
}

TEST(Load, PairedRequestsStayWithTheirSenders)
{
    SimMachine machine("raid");
    std::vector<RunResult> results(kProcesses);
    RunOptions options;
    options.timeoutSeconds = 240;
    inParallel([&](int p) {
        results[p] =
            runProcess({KRT_LOAD_CLIENT_PATH, std::to_string(p), std::to_string(kPairs)}, machine.env(options));
    });

    double slowest = 0;
    for (int p = 0; p < kProcesses; ++p) {
        const RunResult &r = results[p];
        SCOPED_TRACE("process " + std::to_string(p));
        EXPECT_EQ(r.status, 0) << r.out << r.err;
        int pairs = 0, ok = 0, mismatched = 0, failed = 0;
        double ms = 0, total = 0;
        ASSERT_EQ(std::sscanf(r.out.c_str(), "pairs=%d ok=%d mismatched=%d failed=%d slowest_ms=%lf total_ms=%lf",
                              &pairs, &ok, &mismatched, &failed, &ms, &total),
                  6)
            << r.out << r.err;
        EXPECT_EQ(ok, kPairs);
        EXPECT_EQ(mismatched, 0);
        EXPECT_EQ(failed, 0);
        EXPECT_LT(ms, kLockDeadlineMs);
        slowest = ms > slowest ? ms : slowest;
        std::printf("process %d: %s", p, r.out.c_str());
    }
    RecordProperty("slowest_pair_ms", std::to_string(slowest));

    // Every pair left the controller with nothing pending for anyone.
    RunResult log = machine.krtsim({"log"});
    EXPECT_EQ(log.status, 0);
}

// One block of "info -o vd" per VD: its id and member list.
struct VdBlock {
    int id;
    std::string members;
};

// The value after a label at the start of a line, up to the line's end.
std::vector<std::string> valuesOf(const std::string &text, const std::string &label)
{
    std::vector<std::string> values;
    for (std::size_t at = 0; (at = text.find(label, at)) != std::string::npos; at += label.size()) {
        if (at != 0 && text[at - 1] != '\n')
            continue;
        std::size_t from = text.find_first_not_of(' ', at + label.size());
        std::size_t to = text.find('\n', at);
        values.push_back(from < to ? text.substr(from, to - from) : "");
    }
    return values;
}

// The blocks of "info -o vd": their ids and member lists, in order.
std::vector<VdBlock> vdBlocks(const std::string &listing)
{
    const std::vector<std::string> ids = valuesOf(listing, "VD ID:");
    const std::vector<std::string> members = valuesOf(listing, "PDs:");
    std::vector<VdBlock> blocks;
    for (std::size_t i = 0; i < ids.size() && i < members.size(); ++i)
        blocks.push_back({std::atoi(ids[i].c_str()), members[i]});
    return blocks;
}

int vdTotal(const std::string &listing)
{
    const std::vector<std::string> total = valuesOf(listing, "Total # of VD:");
    return total.size() == 1 ? std::atoi(total[0].c_str()) : -1;
}

TEST(Load, MixedCommandsKeepTheMachineWhole)
{
    TempDir dir;
    const std::string fixture = dir.file("load.json");
    // Two VDs as on the usual machine and a free SSD for each process. The
    // VD listing probes as many ids as the controller has ports.
    writeFile(fixture, R"({"adapters":[{"pd_count":16,"max_vd":16,"port_count":16,"vds":[)"
                       R"({"members":[0,1,2,3],"raid":"raid5","name":"data"},)"
                       R"({"members":[4,5],"raid":"raid1","name":"mirror"}]}]})");
    SimMachine machine(fixture);
    auto pdOf = [](int p) { return std::to_string(8 + p); };

    // What each command shows when it runs alone.
    const std::string settingsAlone = machine.cli({"get", "-o", "hba"}).out;
    const std::string vdsAlone = machine.cli({"info", "-o", "vd"}).out;
    const std::string pdsAlone = machine.cli({"info", "-o", "pd"}).out;
    std::vector<std::string> freeAlone(kProcesses), assignedAlone(kProcesses);
    for (int p = 0; p < kProcesses; ++p) {
        freeAlone[p] = machine.cli({"info", "-o", "pd", "-i", pdOf(p)}).out;
        ASSERT_EQ(machine.cli({"vd", "-a", "create", "-r", "0", "-d", pdOf(p)}).status, 0);
        assignedAlone[p] = machine.cli({"info", "-o", "pd", "-i", pdOf(p)}).out;
        ASSERT_EQ(machine.cli({"vd", "-a", "delete", "-i", "2"}).status, 0);
    }
    ASSERT_EQ(machine.cli({"info", "-o", "vd"}).out, vdsAlone);

    constexpr int kRounds = 3;
    std::vector<std::vector<std::string>> faults(kProcesses);
    inParallel([&](int p) {
        auto fault = [&](const std::string &what) { faults[p].push_back(what); };
        const std::string pd = pdOf(p);
        for (int round = 0; round < kRounds; ++round) {
            RunResult r = machine.cli({"vd", "-a", "create", "-r", "0", "-d", pd});
            if (r.status != 0 || r.out != "cmd success\n")
                fault("create on PD " + pd + ": " + r.out + r.err);
            if (machine.cli({"info", "-o", "pd", "-i", pd}).out != assignedAlone[p])
                fault("PD " + pd + " not shown as assigned");
            if (machine.cli({"get", "-o", "hba"}).out != settingsAlone)
                fault("settings differ");
            r = machine.cli({"event", "-c", "5"});
            if (r.status != 0 || r.out.find("Total events:") == std::string::npos)
                fault("event: " + r.out + r.err);
            r = machine.cli({"info", "-o", "pd"});
            if (r.status != 0 || r.out.empty())
                fault("PD listing: " + r.err);

            r = machine.cli({"info", "-o", "vd"});
            const std::vector<VdBlock> blocks = vdBlocks(r.out);
            if (vdTotal(r.out) != static_cast<int>(blocks.size()))
                fault("VD listing counts " + std::to_string(vdTotal(r.out)) + " but shows " +
                      std::to_string(blocks.size()) + ":\n" + r.out);
            int mine = -1;
            for (const VdBlock &b : blocks)
                if (b.members == pd + " ")
                    mine = b.id;
            if (mine < 0) {
                fault("own VD on PD " + pd + " missing:\n" + r.out);
                continue;
            }
            r = machine.cli({"vd", "-a", "delete", "-i", std::to_string(mine)});
            if (r.status != 0 || r.out != "cmd success\n")
                fault("delete of VD " + std::to_string(mine) + ": " + r.out + r.err);
            if (machine.cli({"info", "-o", "pd", "-i", pd}).out != freeAlone[p])
                fault("PD " + pd + " still shown as assigned");
        }
    });
    for (int p = 0; p < kProcesses; ++p)
        for (const std::string &f : faults[p])
            ADD_FAILURE() << "process " << p << ": " << f;

    // Every create was undone by its own delete.
    EXPECT_EQ(machine.cli({"info", "-o", "vd"}).out, vdsAlone);
    EXPECT_EQ(machine.cli({"info", "-o", "pd"}).out, pdsAlone);
}

}  // namespace
}  // namespace krt_test
