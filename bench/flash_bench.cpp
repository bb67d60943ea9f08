// Whole firmware updates through krt_cli on the simulator: the largest
// controller image (8 MiB, 2048 segments) and a 2 MiB SSD image.
//
// A controller update polls its worker once a second and sleeps a second
// after the last poll; those seconds are the command's own pace. The
// counters give the polls and the time beyond them: start-up, the download
// the last poll waited for, the commit and exit. The simulator takes each
// segment at once (download pace 0).
#include <benchmark/benchmark.h>

#include <chrono>
#include <string>
#include <vector>

#include "machine.h"
#include "text.h"

namespace {

std::string imageFile(const krt_test::SimMachine &m, const std::string &name, std::size_t length)
{
    std::string bytes(length, '\0');
    for (std::size_t i = 0; i < length; ++i)
        bytes[i] = static_cast<char>(i * 131 % 251);
    const std::string path = m.dir().file(name);
    krt_test::writeFile(path, bytes);
    return path;
}

// One update per iteration, timed as a person at the prompt would see it.
void runUpdates(benchmark::State &state, const std::vector<std::string> &words, bool polled)
{
    const krt_test::SimMachine m("raid");
    // The tool's own cost, not the pace of a controller writing its flash.
    m.krtsim({"pace", "0"});
    std::vector<std::string> line = words;
    for (std::string &w : line) {
        if (w == "IMAGE8M")
            w = imageFile(m, "fw8m.bin", 8u << 20);
        else if (w == "IMAGE2M")
            w = imageFile(m, "ssd2m.bin", 2u << 20);
    }
    double polls = 0, beyond = 0;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        const krt_test::RunResult r = m.cli(line);
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        state.SetIterationTime(seconds);
        if (r.status != 0)
            state.SkipWithError(("krt_cli exit status " + std::to_string(r.status)).c_str());
        // Each percentage line is followed by a one-second sleep, and so is
        // the final message.
        const int sleeps = polled ? krt_test::occurrences(r.out, "flash NVMe Controller, percentage") + 1 : 0;
        polls += sleeps;
        beyond += seconds - sleeps;
        state.PauseTiming();
        m.krtsim({"log", "clear"});
        state.ResumeTiming();
    }
    const double n = static_cast<double>(state.iterations());
    state.counters["one_second_sleeps"] = polls / n;
    state.counters["seconds_beyond_sleeps"] = beyond / n;
}

void BM_FlashController8MiB(benchmark::State &state)
{
    runUpdates(state, {"flash", "-o", "hba", "-f", "IMAGE8M", "-s", "2", "-c", "1"}, true);
}
BENCHMARK(BM_FlashController8MiB)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(3);

void BM_FlashSsd2MiB(benchmark::State &state)
{
    runUpdates(state, {"flash", "-o", "pd", "-i", "1", "-f", "IMAGE2M", "-s", "2", "-c", "1"}, false);
}
BENCHMARK(BM_FlashSsd2MiB)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(5);

}  // namespace
