// Records the replies of the simulated machine to one command of the reply
// target, as a seed for it: the tool runs in-process against the real
// platform library (the simulator's, through krtsim exec), and every reply
// and status it gets is written in the target's script form.
#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "harness.h"
#include "krt/admin.h"
#include "krt/driver.h"
#include "platform/vmkmgmt.h"

namespace {

VmkMgmtEntryPoints gReal;
std::vector<std::uint8_t> gScript(2);  // the seed: command index, controllers listed, records
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
    const KRT_U32 completion = nvme_comp_status(io.comp[3]);
    auto kind = krt_fuzz::Kind::Success;
    KRT_U32 code = 0;
    if (rc != 0 || io.status != 0) {
        kind = rc != 0           ? krt_fuzz::Kind::CallFails
               : completion != 0 ? krt_fuzz::Kind::Completion
                                 : krt_fuzz::Kind::DriverStatus;
        code = rc != 0 ? static_cast<KRT_U32>(rc) : completion != 0 ? completion : io.status;
    }
    const auto *data = reinterpret_cast<const std::uint8_t *>(io.addr);
    std::size_t n =
        io.direction == XFER_FROM_DEV && data != nullptr ? std::min<std::size_t>(io.length, KRT_BUFFER_SIZE) : 0;
    while (n > 0 && data[n - 1] == 0)  // the rest of a page reads as zeros
        --n;
    gScript.insert(gScript.end(), {static_cast<std::uint8_t>(kind), static_cast<std::uint8_t>(code & 0xFF),
                                   static_cast<std::uint8_t>(code >> 8 & 0xFF), static_cast<std::uint8_t>(n & 0xFF),
                                   static_cast<std::uint8_t>(n >> 8)});
    gScript.insert(gScript.end(), data, data + n);
    return rc;
}

}  // namespace

int main(int argc, char **argv)
{
    const VmkMgmtEntryPoints *real = vmkmgmt_entry_points();
    const auto &lines = krt_fuzz::linesWithFiles();
    const std::size_t index = argc == 3 ? std::strtoul(argv[1], nullptr, 10) : lines.size();
    if (real == nullptr || index >= lines.size()) {
        std::fprintf(stderr, "usage: krtsim exec -- krt_fuzz_capture <command index below %zu> <output file>\n",
                     lines.size());
        return 2;
    }
    gReal = *real;

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
    gScript[0] = static_cast<std::uint8_t>(index);
    gScript[1] = static_cast<std::uint8_t>(gListed);
    FILE *out = std::fopen(argv[2], "wb");
    if (out == nullptr || std::fwrite(gScript.data(), 1, gScript.size(), out) != gScript.size() ||
        std::fclose(out) != 0) {
        std::perror(argv[2]);
        return 1;
    }
    return 0;
}
