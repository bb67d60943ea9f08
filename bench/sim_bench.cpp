// Cost of the simulator as the tool sees it: one admin command through the
// platform library (handle opened and closed around it, as the tool does),
// whole krt_cli runs against the `raid` and the 64-controller `large`
// machines, and what the simulator adds to the tool's start.
#include <benchmark/benchmark.h>
#include <dlfcn.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "krt/admin.h"
#include "krt/driver.h"
#include "krt/platform.h"
#include "machine.h"

namespace {

struct Library {
    void *handle = nullptr;
    vmk_MgmtUserInit_fn init = nullptr;
    vmk_MgmtUserCallbackInvokeInt_fn invoke = nullptr;
    vmk_MgmtUserDestroy_fn destroy = nullptr;

    Library()
    {
        handle = dlopen(KRTSIM_LIB_PATH, RTLD_NOW | RTLD_LOCAL);
        if (handle == nullptr)
            throw std::runtime_error(dlerror());
        init = reinterpret_cast<vmk_MgmtUserInit_fn>(dlsym(handle, "vmk_MgmtUserInit"));
        invoke = reinterpret_cast<vmk_MgmtUserCallbackInvokeInt_fn>(dlsym(handle, "vmk_MgmtUserCallbackInvokeInt"));
        destroy = reinterpret_cast<vmk_MgmtUserDestroy_fn>(dlsym(handle, "vmk_MgmtUserDestroy"));
    }
    ~Library() { dlclose(handle); }

    // Init, one pass-through, destroy: what the tool pays per command.
    int command(const char *adapterSignature, usr_io &io) const
    {
        vmk_MgmtApiSignature sig{};
        sig.version = NVME_MGMT_VERSION;
        std::strncpy(sig.name.string, adapterSignature, sizeof sig.name.string - 1);
        std::strncpy(sig.vendor.string, NVME_MGMT_VENDOR, sizeof sig.vendor.string - 1);
        vmk_MgmtUserHandle h = nullptr;
        int rc = init(&sig, 0, &h);
        if (rc != 0)
            return rc;
        KRT_U32 command = NVME_IOCTL_ADMIN_CMD;
        rc = invoke(h, 0, NVME_MGMT_CB_IOCTL, 2, &command, &io);
        destroy(h);
        return rc;
    }
};

// One machine per fixture for the whole run; the library follows KRTSIM_STATE.
const krt_test::SimMachine &machine(const std::string &fixture)
{
    static std::map<std::string, std::unique_ptr<krt_test::SimMachine>> machines;
    auto &m = machines[fixture];
    if (!m)
        m = std::make_unique<krt_test::SimMachine>(fixture);
    return *m;
}

void BM_AdminCommand(benchmark::State &state)
{
    const auto &m = machine("raid");
    setenv("KRTSIM_STATE", m.statePath().c_str(), 1);
    Library lib;
    std::array<KRT_U8, 4096> reply{};
    usr_io io{};
    for (auto _ : state) {
        std::memset(&io, 0, sizeof io);
        io.cmd[0] = KRT_VENDOR_OPCODE;
        io.cmd[12] = krt_cdw12(KRT_CLASS_PD, 0, 0);
        io.cmd[14] = 3;
        io.direction = XFER_FROM_DEV;
        io.length = reply.size();
        io.addr = reinterpret_cast<KRT_U64>(reply.data());
        if (lib.command("nvmeMgmt-vmhba1", io) != 0 || io.status != 0)
            state.SkipWithError("command failed");
        benchmark::DoNotOptimize(reply);
    }
    // The log grows by a line per command; start the next repetition small.
    m.krtsim({"log", "clear"});
}
BENCHMARK(BM_AdminCommand)->Unit(benchmark::kMicrosecond)->Repetitions(5)->ReportAggregatesOnly(true);

void BM_PairedRequest(benchmark::State &state)
{
    const auto &m = machine("raid");
    setenv("KRTSIM_STATE", m.statePath().c_str(), 1);
    Library lib;
    std::array<KRT_U8, 4096> request{}, reply{};
    _NVMESendData head{};
    head.sign[0] = 'K';
    head.sign[1] = 'R';
    head.sign[2] = 'T';
    head.cmd_length = 2;
    head.data_offset = KRT_PAIR_DATA_OFFSET;
    head.vendor_cmd[0] = KRT_CLASS_ADAPTER;
    std::memcpy(request.data(), &head, KRT_PAIR_DATA_OFFSET);
    for (auto _ : state) {
        usr_io send{};
        send.cmd[0] = KRT_PAIR_SEND_WIRE;
        send.cmd[10] = KRT_PAIR_CDW10;
        send.cmd[11] = KRT_PAIR_CDW11;
        send.cmd[12] = KRT_CLASS_ADAPTER;
        send.cmd[15] = KRT_PAIR_CDW15;
        send.length = request.size();
        send.addr = reinterpret_cast<KRT_U64>(request.data());
        usr_io recv{};
        recv.cmd[0] = KRT_PAIR_RECEIVE_WIRE;
        recv.cmd[15] = KRT_PAIR_CDW15;
        recv.direction = XFER_FROM_DEV;
        recv.length = reply.size();
        recv.addr = reinterpret_cast<KRT_U64>(reply.data());
        if (lib.command("nvmeMgmt-vmhba1", send) != 0 || lib.command("nvmeMgmt-vmhba1", recv) != 0 || reply[4] != 0)
            state.SkipWithError("paired request failed");
    }
    m.krtsim({"log", "clear"});
}
BENCHMARK(BM_PairedRequest)->Unit(benchmark::kMicrosecond)->Repetitions(5)->ReportAggregatesOnly(true);

// A whole non-shell run of the tool: start-up (discovery of every
// controller), the listing, exit. Reports whatever the binary does; a
// failing run is flagged, not hidden.
void BM_CliInfoHba(benchmark::State &state, const char *fixture)
{
    const auto &m = machine(fixture);
    for (auto _ : state) {
        krt_test::RunResult r = m.cli({"info", "-o", "hba"});
        if (r.status != 0)
            state.SkipWithError(("krt_cli exit status " + std::to_string(r.status)).c_str());
        state.counters["output_bytes"] = static_cast<double>(r.out.size());
    }
    m.krtsim({"log", "clear"});
}
BENCHMARK_CAPTURE(BM_CliInfoHba, raid, "raid")->Unit(benchmark::kMillisecond)->Iterations(10)->Repetitions(3);
BENCHMARK_CAPTURE(BM_CliInfoHba, large, "large")->Unit(benchmark::kMillisecond)->Iterations(5)->Repetitions(3);

// Wall milliseconds of one whole run; negative when it did not end well.
double runMillis(const std::vector<std::string> &argv, const krt_test::RunOptions &options)
{
    const auto start = std::chrono::steady_clock::now();
    const krt_test::RunResult r = krt_test::runProcess(argv, options);
    const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - start;
    return r.status == 0 ? took.count() : -1.0;
}

// The simulator's share of a start: `krt_cli version` against the `raid`
// machine (discovery of its controller through the simulated library) and
// with no platform library at all, in turn, pair by pair, so that a drift
// of the machine's speed weighs on both. Counters: each one's mean
// milliseconds and the median of the pairs' ratios (simulator / alone).
void BM_StartWithSimulator(benchmark::State &state)
{
    const auto &m = machine("raid");
    const krt_test::TempDir empty;
    krt_test::RunOptions alone;
    alone.env["LD_LIBRARY_PATH"] = empty.path();
    alone.env["KRTSIM_STATE"] = empty.file("none.state");
    const krt_test::RunOptions simulated = m.env();
    const std::vector<std::string> argv{krt_test::cliPath(), "version"};
    std::vector<double> ratios;
    double aloneTotal = 0, simulatedTotal = 0;
    for (auto _ : state) {
        const double a = runMillis(argv, alone), s = runMillis(argv, simulated);
        if (a <= 0 || s <= 0) {
            state.SkipWithError("krt_cli version did not end with status 0");
            break;
        }
        aloneTotal += a;
        simulatedTotal += s;
        ratios.push_back(s / a);
    }
    if (!ratios.empty()) {
        std::sort(ratios.begin(), ratios.end());
        const std::size_t n = ratios.size();
        state.counters["alone_ms"] = aloneTotal / static_cast<double>(n);
        state.counters["sim_ms"] = simulatedTotal / static_cast<double>(n);
        state.counters["ratio"] = n % 2 == 1 ? ratios[n / 2] : (ratios[n / 2 - 1] + ratios[n / 2]) / 2;
    }
    m.krtsim({"log", "clear"});
}
BENCHMARK(BM_StartWithSimulator)->Unit(benchmark::kMillisecond)->Iterations(30)->Repetitions(3);

}  // namespace

BENCHMARK_MAIN();
