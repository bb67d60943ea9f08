// Records the replies of the simulated machine to one command of the reply
// target, as a seed for it: the tool runs in-process against the real
// platform library (the simulator's, through krtsim exec), and every reply
// and status it gets is written in the target's script form.
//
//   krtsim exec -- krt_fuzz_capture <command index> <output file>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "command_lines.h"
#include "harness.h"
#include "krt/driver.h"
#include "platform/vmkmgmt.h"

namespace {

VmkMgmtEntryPoints gReal;
std::vector<std::uint8_t> gScript;
std::uint32_t gListed = 0;

int recordInvoke(vmk_MgmtUserHandle handle, KRT_U64 instance, KRT_U64 callbackId, KRT_U32 argCount, ...)
{
    va_list args;
    va_start(args, argCount);
    void *first = va_arg(args, void *);
    void *second = va_arg(args, void *);
    va_end(args);
    const int rc = gReal.invoke(handle, instance, callbackId, argCount, first, second);
    if (callbackId == NVME_MGMT_CB_LIST_ADAPTERS && argCount == 2 && rc == 0) {
        gListed = *static_cast<KRT_U32 *>(first);
        return rc;
    }
    if (callbackId != NVME_MGMT_CB_IOCTL)
        return rc;
    const auto &io = *static_cast<usr_io *>(second);
    krt_fuzz::Record r;
    if (rc != 0) {
        r.kind = krt_fuzz::Kind::CallFails;
        r.code = static_cast<std::uint16_t>(rc);
    } else if (io.status != 0 && nvme_comp_status(io.comp[3]) != 0) {
        r.kind = krt_fuzz::Kind::Completion;
        r.code = static_cast<std::uint16_t>(nvme_comp_status(io.comp[3]));
    } else if (io.status != 0) {
        r.kind = krt_fuzz::Kind::DriverStatus;
        r.code = static_cast<std::uint16_t>(io.status);
    }
    if (io.direction == XFER_FROM_DEV && io.addr != 0) {
        const auto *data = reinterpret_cast<const std::uint8_t *>(io.addr);
        std::size_t n = io.length;
        while (n > 0 && data[n - 1] == 0)  // the rest of a page reads as zeros
            --n;
        r.data.assign(data, data + n);
    }
    krt_fuzz::appendRecord(gScript, r);
    return rc;
}

}  // namespace

int main(int argc, char **argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: krt_fuzz_capture <command index> <output file>\n");
        return 2;
    }
    const VmkMgmtEntryPoints *real = vmkmgmt_entry_points();
    if (real == nullptr) {
        std::fprintf(stderr, "krt_fuzz_capture: the platform library is not found (run under krtsim exec)\n");
        return 1;
    }
    gReal = *real;
    const std::vector<std::uint8_t> image(4096, 0), spi(4096, 'S');
    const auto lines =
        krt_fuzz::commandLines(krt_fuzz::fileWith(0, image.data(), image.size()),
                               krt_fuzz::fileWith(1, spi.data(), spi.size()), krt_fuzz::fileWith(2, spi.data(), 0));
    const auto index = static_cast<std::size_t>(std::strtoul(argv[1], nullptr, 10));
    if (index >= lines.size()) {
        std::fprintf(stderr, "krt_fuzz_capture: there are %zu command lines\n", lines.size());
        return 2;
    }

    krt_fuzz::setUpProcess();
    const VmkMgmtEntryPoints recording{gReal.init, recordInvoke, gReal.destroy};
    vmkmgmt_set_entry_points(&recording);
    krt_fuzz::beginRun(0, 0, nullptr, 0, krt_fuzz::WhenExhausted::Fail, false);
    krt_fuzz::runLine(lines[index]);
    krt_fuzz::endRun();

    if (gListed > 3) {
        std::fprintf(stderr, "krt_fuzz_capture: the machine lists %u controllers, the target at most 3\n", gListed);
        return 1;
    }
    std::vector<std::uint8_t> seed{static_cast<std::uint8_t>(index), static_cast<std::uint8_t>(gListed)};
    seed.insert(seed.end(), gScript.begin(), gScript.end());
    FILE *out = std::fopen(argv[2], "wb");
    if (out == nullptr || std::fwrite(seed.data(), 1, seed.size(), out) != seed.size() || std::fclose(out) != 0) {
        std::perror(argv[2]);
        return 1;
    }
    return 0;
}
