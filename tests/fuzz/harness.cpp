#include "harness.h"

#include <getopt.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "api/krt_api.h"
#include "commands/ns.h"
#include "device/device_management.h"
#include "firmware/image.h"
#include "shell/shell.h"
#include "transport_fake_driver.h"
#include "util/file_io.h"
#include "util/state.h"

namespace krt_fuzz {

namespace {

// The script of the current run.
struct Script {
    const std::uint8_t *data = nullptr;
    std::size_t size = 0, at = 0;
    WhenExhausted after = WhenExhausted::Healthy;
} gScript;
FILE *gDevNull = nullptr;

// Answers a request from the next record of the script, or once it is used
// up (a record cut short by the end of the input counts as used up) as the
// run says.
int answer(fake::Adapter &a, usr_io &io)
{
    auto *data = reinterpret_cast<KRT_U8 *>(io.addr);
    const bool reads = data != nullptr && io.direction == XFER_FROM_DEV;
    Script &s = gScript;
    if (s.size - s.at < 5) {
        if (s.after == WhenExhausted::Fail) {
            io.status = 1;
            io.comp[3] = nvme_comp_dw3(0, 0x06);  // internal error
        } else if (reads) {
            // A controller with nothing configured: it passes the acceptance
            // test and signs every other reply.
            const KRT_U32 opcode = io.cmd[0] & 0xFF;
            const fake::Page &page = opcode == NVME_ADMIN_IDENTIFY ? a.identify
                                     : opcode == KRT_VENDOR_OPCODE ? a.adapterInfo
                                                                   : a.pairReply;
            std::memcpy(data, page.data(), std::min<std::size_t>(io.length, page.size()));
        }
        return 0;
    }
    const std::uint8_t *p = s.data + s.at;
    const auto code = static_cast<std::uint16_t>(p[1] | (p[2] << 8));
    const std::size_t length =
        std::min<std::size_t>({static_cast<std::size_t>(p[3] | (p[4] << 8)), s.size - s.at - 5, KRT_BUFFER_SIZE});
    s.at += 5 + length;
    if (reads) {
        const std::size_t n = std::min<std::size_t>(length, io.length);
        std::memcpy(data, p + 5, n);
        std::memset(data + n, 0, io.length - n);
    }
    switch (static_cast<Kind>(p[0] % 4)) {
        case Kind::Success:
            break;
        case Kind::DriverStatus:
            io.status = code;
            break;
        case Kind::Completion:
            io.status = 1;
            io.comp[3] = nvme_comp_dw3(code >> 8, code & 0xFF);
            break;
        case Kind::CallFails:
            return code != 0 ? code : EIO;
    }
    return 0;
}

}  // namespace

void setUpProcess()
{
    if (gDevNull != nullptr)
        return;
    gDevNull = std::fopen("/dev/null", "w");
    if (gDevNull == nullptr || std::freopen("/dev/null", "w", stdout) == nullptr) {
        std::perror("/dev/null");
        std::abort();
    }
    opterr = 0;
    static fake::Installed installed;
    // No SMBIOS table of the host is read: slot numbers have a target of their own.
    GetDeviceManagementInstance()->m_smbios_path = "/nonexistent/smbios";
}

void beginRun(unsigned adapters, std::uint32_t listCount, const std::uint8_t *script, std::size_t size,
              WhenExhausted after, bool debug)
{
    setUpProcess();
    fake::Driver &d = fake::driver() = fake::Driver{};
    for (unsigned i = 0; i < adapters; ++i)
        d.adapters.push_back(fake::managedAdapter("vmhba" + std::to_string(64 + i)));
    d.listCount = listCount;
    d.answer = answer;
    gScript = {script, size, 0, after};

    // As start-up leaves it, without a controller number or vendor filter.
    stream = gDevNull;
    dbg_enable = debug ? 1 : 0;
    gCurrentAdapter = 0;
    gSpecificAdapterFlag = 0;
    gSysDenied = 0;
    gTotalNSs = 0;
    gHostID = 0;
    *KRT_Adapter_GetDeviceVID() = 0;
    g_oneBaseMode = KRT_Adapter_GetOneBaseMode();
    pCmdTable = generalCmdTableV1;
    cmdTableSize = generalCmdTableV1Size();
    optind = 0;

    KRT_Init();
    gNumAdaptersFound = static_cast<KRT_U8>(KRT_Adapter_GetCount());
    if (gNumAdaptersFound > 0) {
        g_pAdInfos = static_cast<_NVME_Adapter_Info *>(std::calloc(gNumAdaptersFound, sizeof(_NVME_Adapter_Info)));
        for (int i = 0; g_pAdInfos != nullptr && i < gNumAdaptersFound; ++i) {
            if (KRT_Adapter_GetSimpleInfo(static_cast<KRT_U16>(i), &g_pAdInfos[i]) != 0)
                std::memset(&g_pAdInfos[i], 0, sizeof(_NVME_Adapter_Info));
        }
    } else {
        gSysDenied = KRT_IsSysDenied();
    }
}

void endRun()
{
    close_file();
    close_file_for_flash();
    KRT_Final();
    std::free(g_pAdInfos);
    g_pAdInfos = nullptr;
    gNumAdaptersFound = 0;
    std::fflush(nullptr);
    stream = gDevNull;
    fake::driver() = fake::Driver{};
    gScript = {};
}

int runLine(const std::string &line)
{
    char buffer[2048] = {};
    line.copy(buffer, sizeof buffer - 1);
    char *words[kMaxWords];
    int count = 0;
    return parse(&count, words, kMaxWords, buffer) == 0 || count == 0 ? 0 : cmdDispatcher(count, words);
}

std::string fileWith(int slot, const std::uint8_t *data, std::size_t size)
{
    static int fds[4] = {-1, -1, -1, -1};
    int &fd = fds[slot & 3];
    if (fd < 0)
        fd = memfd_create("krt-fuzz", 0);
    if (fd < 0 || ftruncate(fd, 0) != 0 || pwrite(fd, data, size, 0) != static_cast<ssize_t>(size)) {
        std::perror("memfd");
        std::abort();
    }
    return "/proc/self/fd/" + std::to_string(fd);
}

const std::vector<std::string> &linesWithFiles()
{
    static const std::vector<std::uint8_t> image(4096, 0), spi(4096, 'S');
    static const std::vector<std::string> all = commandLines(
        fileWith(0, image.data(), image.size()), fileWith(1, spi.data(), spi.size()), fileWith(2, spi.data(), 0));
    return all;
}

}  // namespace krt_fuzz
