#include "harness.h"

#include <getopt.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "api/krt_api.h"
#include "commands/ns.h"
#include "device/device_management.h"
#include "firmware/image.h"
#include "krt/admin.h"
#include "krt/driver.h"
#include "krt/ids.h"
#include "krt/records.h"
#include "platform/vmkmgmt.h"
#include "shell/shell.h"
#include "util/file_io.h"
#include "util/state.h"

namespace krt_fuzz {

namespace {

using Page = std::array<KRT_U8, KRT_BUFFER_SIZE>;

constexpr int kLineSize = 2048;
constexpr unsigned kMaxAdapters = 4;
constexpr int kGlobalHandle = -1;

// The driver's side of one run. The flash worker sends from its own thread
// while the command polls, so the script is taken under a lock.
struct Driver {
    std::mutex mutex;
    unsigned adapters = 0;
    std::uint32_t listCount = 0;
    const std::uint8_t *script = nullptr;
    std::size_t size = 0;
    std::size_t at = 0;
    WhenExhausted after = WhenExhausted::Healthy;
    Page identify{}, adapterInfo{}, signedPage{};
};

Driver gDriver;
FILE *gDevNull = nullptr;

std::string adapterName(unsigned i)
{
    return "vmhba" + std::to_string(64 + i);
}

std::string signatureOf(unsigned i)
{
    return "nvme_" + adapterName(i);
}

// The next record of the script, or false when it is used up (a record cut
// short by the end of the input counts as used up).
bool nextRecord(Driver &d, Record &r)
{
    if (d.size - d.at < 5)
        return false;
    const std::uint8_t *p = d.script + d.at;
    r.kind = static_cast<Kind>(p[0] % 4);
    r.code = static_cast<std::uint16_t>(p[1] | (p[2] << 8));
    std::size_t length = static_cast<std::size_t>(p[3] | (p[4] << 8));
    d.at += 5;
    if (length > d.size - d.at)
        length = d.size - d.at;
    if (length > KRT_BUFFER_SIZE)
        length = KRT_BUFFER_SIZE;
    r.data.assign(d.script + d.at, d.script + d.at + length);
    d.at += length;
    return true;
}

// A controller with nothing configured: it passes the acceptance test and
// signs every vendor reply.
void answerHealthy(Driver &d, usr_io &io, KRT_U8 *data)
{
    if (io.direction != XFER_FROM_DEV || data == nullptr)
        return;
    const KRT_U32 opcode = io.cmd[0] & 0xFF;
    const Page &page = opcode == NVME_ADMIN_IDENTIFY ? d.identify
                       : opcode == KRT_VENDOR_OPCODE ? d.adapterInfo
                                                     : d.signedPage;
    std::memcpy(data, page.data(), io.length < page.size() ? io.length : page.size());
}

int passthru(usr_io &io)
{
    Driver &d = gDriver;
    std::lock_guard<std::mutex> hold(d.mutex);
    auto *data = reinterpret_cast<KRT_U8 *>(io.addr);
    Record r;
    if (!nextRecord(d, r)) {
        if (d.after == WhenExhausted::Healthy) {
            answerHealthy(d, io, data);
            return 0;
        }
        io.status = 1;
        io.comp[3] = nvme_comp_dw3(0, 0x06);  // internal error
        return 0;
    }
    if (data != nullptr && io.direction == XFER_FROM_DEV) {
        const std::size_t n = r.data.size() < io.length ? r.data.size() : io.length;
        if (n > 0)
            std::memcpy(data, r.data.data(), n);
        std::memset(data + n, 0, io.length - n);
    }
    switch (r.kind) {
        case Kind::Success:
            break;
        case Kind::DriverStatus:
            io.status = r.code;
            break;
        case Kind::Completion:
            io.status = 1;
            io.comp[3] = nvme_comp_dw3(r.code >> 8, r.code & 0xFF);
            break;
        case Kind::CallFails:
            return r.code != 0 ? r.code : EIO;
    }
    return 0;
}

int fakeInit(vmk_MgmtApiSignature *sig, KRT_U64, vmk_MgmtUserHandle *handle)
{
    const std::string name(sig->name.string, strnlen(sig->name.string, sizeof sig->name.string));
    if (name == NVME_MGMT_NAME) {
        *handle = new int(kGlobalHandle);
        return 0;
    }
    for (unsigned i = 0; i < gDriver.adapters; ++i) {
        if (name == signatureOf(i)) {
            *handle = new int(static_cast<int>(i));
            return 0;
        }
    }
    return ENOENT;
}

int fakeDestroy(vmk_MgmtUserHandle handle)
{
    delete static_cast<int *>(handle);
    return 0;
}

int fakeInvoke(vmk_MgmtUserHandle handle, KRT_U64, KRT_U64 callbackId, KRT_U32 argCount, ...)
{
    va_list args;
    va_start(args, argCount);
    void *first = va_arg(args, void *);
    void *second = va_arg(args, void *);
    va_end(args);
    if (*static_cast<int *>(handle) == kGlobalHandle) {
        if (callbackId != NVME_MGMT_CB_LIST_ADAPTERS)
            return EINVAL;
        auto *entries = static_cast<nvmeAdapterInfo *>(second);
        std::memset(entries, 0, sizeof(nvmeAdapterInfo) * NVME_MAX_ADAPTERS);
        for (unsigned i = 0; i < gDriver.adapters; ++i) {
            std::snprintf(entries[i].name, sizeof entries[i].name, "%s", adapterName(i).c_str());
            std::snprintf(entries[i].signature, sizeof entries[i].signature, "%s", signatureOf(i).c_str());
        }
        *static_cast<KRT_U32 *>(first) = gDriver.listCount;
        return 0;
    }
    if (callbackId != NVME_MGMT_CB_IOCTL || *static_cast<KRT_U32 *>(first) != NVME_IOCTL_ADMIN_CMD)
        return EINVAL;
    return passthru(*static_cast<usr_io *>(second));
}

const VmkMgmtEntryPoints kFake{fakeInit, fakeInvoke, fakeDestroy};

}  // namespace

void appendRecord(std::vector<std::uint8_t> &out, const Record &record)
{
    const std::size_t length = record.data.size() < KRT_BUFFER_SIZE ? record.data.size() : KRT_BUFFER_SIZE;
    out.push_back(static_cast<std::uint8_t>(record.kind));
    out.push_back(static_cast<std::uint8_t>(record.code & 0xFF));
    out.push_back(static_cast<std::uint8_t>(record.code >> 8));
    out.push_back(static_cast<std::uint8_t>(length & 0xFF));
    out.push_back(static_cast<std::uint8_t>(length >> 8));
    out.insert(out.end(), record.data.begin(), record.data.begin() + static_cast<std::ptrdiff_t>(length));
}

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

    Driver &d = gDriver;
    const KRT_U16 vid = KRT_PCI_VENDOR_ID, did = KRT_PCI_DEVICE_ID;
    std::memcpy(&d.identify[NVME_ID_VID], &vid, sizeof vid);
    std::memcpy(d.adapterInfo.data(), KRT_SIGN, sizeof KRT_SIGN);
    std::memcpy(&d.adapterInfo[KRT_REPLY_DATA_OFFSET + offsetof(_NVME_Adapter_Info, DID)], &did, sizeof did);
    std::memcpy(d.signedPage.data(), KRT_SIGN, sizeof KRT_SIGN);
    vmkmgmt_set_entry_points(&kFake);
    // No SMBIOS table of the host is read: slot numbers have a target of their own.
    GetDeviceManagementInstance()->m_smbios_path = "/nonexistent/smbios";
}

void beginRun(unsigned adapters, std::uint32_t listCount, const std::uint8_t *script, std::size_t size,
              WhenExhausted after, bool debug)
{
    setUpProcess();
    {
        std::lock_guard<std::mutex> hold(gDriver.mutex);
        gDriver.adapters = adapters < kMaxAdapters ? adapters : kMaxAdapters;
        gDriver.listCount = listCount;
        gDriver.script = script;
        gDriver.size = size;
        gDriver.at = 0;
        gDriver.after = after;
    }

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
    std::fflush(stream);
    std::fflush(stdout);
    stream = gDevNull;
    std::lock_guard<std::mutex> hold(gDriver.mutex);
    gDriver.script = nullptr;
    gDriver.size = gDriver.at = 0;
}

int runLine(const std::string &line)
{
    char buffer[kLineSize];
    const std::size_t n = line.size() < sizeof buffer - 1 ? line.size() : sizeof buffer - 1;
    std::memcpy(buffer, line.data(), n);
    buffer[n] = '\0';
    char *words[kMaxWords];
    int count = 0;
    if (parse(&count, words, kMaxWords, buffer) == 0 || count == 0)
        return 0;
    return cmdDispatcher(count, words);
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

}  // namespace krt_fuzz
