#include "driver.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>

#include "controller.h"
#include "krt/admin.h"
#include "krt/driver.h"
#include "store.h"

namespace krtsim {

namespace {

constexpr KRT_U32 kHandleMagic = 0x4B48444C;  // "KHDL"

struct Handle {
    KRT_U32 magic;
    bool global;
    char signature[32];  // the adapter's signature text (adapter handles)
};

// Process-wide: the live handles (so a stale or foreign pointer is refused
// instead of followed) and the mapped state file.
std::mutex gMutex;
std::set<Handle *> gHandles;
std::unique_ptr<StateFile> gState;
pid_t gStatePid = 0;

// The state named by KRTSIM_STATE now; reopened when the variable or the
// file behind it changed. Caller holds gMutex.
StateFile *stateFile()
{
    const std::string path = defaultStatePath();
    // A forked child shares the parent's open file and with it the flock:
    // it needs its own.
    if (gState && gStatePid == getpid() && gState->sameFile(path))
        return gState.get();
    gState.reset();
    gStatePid = getpid();
    std::string error;
    gState = StateFile::open(path, &error);
    if (!gState)
        std::fprintf(stderr, "krtsim: %s\n", error.c_str());
    return gState.get();
}

int findAdapter(const SimState &st, const char *signature)
{
    KRT_U32 count = std::min<KRT_U32>(st.adapterCount, kMaxAdapters);
    for (KRT_U32 i = 0; i < count; ++i)
        if (std::strncmp(st.adapters[i].signature, signature, sizeof st.adapters[i].signature) == 0)
            return static_cast<int>(i);
    return -1;
}

// The first fault rule matching the command fires; a counted rule
// disappears once spent.
FaultAction takeFault(SimState &st, int adapter, const KRT_U32 (&cmd)[16])
{
    for (SimFault &f : st.faults) {
        if (f.effect == FAULT_NONE)
            continue;
        if (f.adapter >= 0 && f.adapter != adapter)
            continue;
        if (f.matchOpcode && f.opcode != (cmd[0] & 0xFF))
            continue;
        if (f.matchCdw12 && f.cdw12 != cmd[12])
            continue;
        FaultAction action{f.effect, f.value};
        if (f.remaining > 0 && --f.remaining == 0)
            f = SimFault{};
        return action;
    }
    return {};
}

void logCommand(StateFile &file, const SimAdapter &ad, const usr_io &io, std::span<const KRT_U8> data, KRT_U32 status)
{
    char line[512];
    int n = std::snprintf(line, sizeof line,
                          "%.32s opc=0x%02x nsid=%u cdw10=0x%08x cdw11=0x%08x cdw12=0x%08x cdw13=0x%08x "
                          "cdw14=0x%08x cdw15=0x%08x dir=%s len=%u",
                          ad.name, io.cmd[0] & 0xFF, io.cmd[1], io.cmd[10], io.cmd[11], io.cmd[12], io.cmd[13],
                          io.cmd[14], io.cmd[15], io.direction == XFER_FROM_DEV ? "from" : "to", io.length);
    if ((io.cmd[0] & 0xFF) == KRT_PAIR_SEND_WIRE && io.direction == XFER_TO_DEV &&
        data.size() >= KRT_PAIR_DATA_OFFSET) {
        _NVMESendData head;
        std::memcpy(&head, data.data(), KRT_PAIR_DATA_OFFSET);
        n += std::snprintf(line + n, sizeof line - static_cast<size_t>(n), " pair=0x%x,0x%x,0x%x,0x%x words=%u data=%u",
                           head.vendor_cmd[0], head.vendor_cmd[1], head.vendor_cmd[2], head.vendor_cmd[3],
                           head.cmd_length, head.data_length);
    }
    n += std::snprintf(line + n, sizeof line - static_cast<size_t>(n), " status=0x%x\n", status);
    int fd = file.logFd();
    if (fd < 0)
        return;
    ssize_t written = ::write(fd, line, static_cast<size_t>(n));
    (void)written;  // a lost log line must not fail the command
}

// A controller writes each image segment to its flash before the download
// command completes: as long as the machine's pace says for the bytes taken.
KRT_U64 downloadMicros(const SimState &st, const usr_io &io, KRT_U32 status)
{
    const KRT_U8 opcode = static_cast<KRT_U8>(io.cmd[0] & 0xFF);
    const bool download = opcode == NVME_ADMIN_FW_DOWNLOAD ||
                          (opcode == KRT_PD_CMD_TO_DISK && (io.cmd[14] & 0xFF) == NVME_ADMIN_FW_DOWNLOAD);
    if (!download || status != 0)
        return 0;
    return static_cast<KRT_U64>(io.length) * std::min(st.fwPace, kMaxFwPace) * 1000 / (1u << 20);
}

int adminCommand(const Handle &h, usr_io &io)
{
    if (io.length > 0 && io.addr == 0)
        return EFAULT;
    StateFile *file = stateFile();
    if (file == nullptr)
        return EIO;
    KRT_U64 delayMicros = 0;
    {
        StateFile::Lock lock(*file);
        SimState &st = file->state();
        if (!validImage(st))
            return EIO;  // rewritten by another build of the simulator meanwhile
        int index = findAdapter(st, h.signature);
        if (index < 0 || st.adapters[index].vanished)
            return ENODEV;
        std::span<KRT_U8> data(reinterpret_cast<KRT_U8 *>(static_cast<uintptr_t>(io.addr)), io.length);
        FaultAction fault = takeFault(st, index, io.cmd);
        if (fault.effect == FAULT_DELAY)
            delayMicros = static_cast<KRT_U64>(fault.value) * 1000;
        KRT_U32 status = executeAdmin(st, index, io.cmd, io.direction, data, fault);
        delayMicros += downloadMicros(st, io, status);
        std::memset(io.comp, 0, sizeof io.comp);
        io.comp[3] = nvme_comp_dw3(status >> 8, status & 0xFF);
        io.status = status;
        logCommand(*file, st.adapters[index], io, data, status);
    }
    // A slow controller keeps its caller waiting, not the other processes.
    if (delayMicros > 0)
        std::this_thread::sleep_for(std::chrono::microseconds(delayMicros));
    return 0;
}

int listAdapters(KRT_U32 *count, nvmeAdapterInfo *list)
{
    StateFile *file = stateFile();
    if (file == nullptr)
        return EIO;
    StateFile::Lock lock(*file);
    const SimState &st = file->state();
    if (!validImage(st))
        return EIO;
    if (st.listFails)
        return EIO;
    KRT_U32 n = std::min<KRT_U32>(st.adapterCount, NVME_MAX_ADAPTERS);
    std::memset(list, 0, sizeof(nvmeAdapterInfo) * NVME_MAX_ADAPTERS);
    for (KRT_U32 i = 0; i < n; ++i) {
        std::memcpy(list[i].name, st.adapters[i].name, sizeof list[i].name);
        list[i].name[sizeof list[i].name - 1] = '\0';
        std::memcpy(list[i].signature, st.adapters[i].signature, sizeof list[i].signature);
        list[i].signature[sizeof list[i].signature - 1] = '\0';
        list[i].status = 0;
        list[i].cookie = i + 1;
    }
    *count = n;
    return 0;
}

}  // namespace

int driverInit(vmk_MgmtApiSignature *sig, KRT_U64 /*userCookie*/, vmk_MgmtUserHandle *handle)
{
    if (sig == nullptr || handle == nullptr)
        return EINVAL;
    *handle = nullptr;
    // Compatible means the same major version.
    if ((sig->version >> 24) != (NVME_MGMT_VERSION >> 24))
        return EPROTONOSUPPORT;
    char name[sizeof sig->name.string + 1] = {};
    std::memcpy(name, sig->name.string, sizeof sig->name.string);
    auto h = std::make_unique<Handle>();
    h->magic = kHandleMagic;
    std::lock_guard<std::mutex> guard(gMutex);
    if (std::strcmp(name, NVME_MGMT_NAME) == 0) {
        h->global = true;
    } else {
        StateFile *file = stateFile();
        if (file == nullptr)
            return EIO;
        StateFile::Lock lock(*file);
        int index = findAdapter(file->state(), name);
        if (index < 0)
            return ENOENT;
        if (file->state().adapters[index].vanished)
            return ENODEV;
        h->global = false;
        std::memcpy(h->signature, name, sizeof h->signature);
    }
    gHandles.insert(h.get());
    *handle = h.release();
    return 0;
}

int driverInvoke(vmk_MgmtUserHandle handle, KRT_U64 instanceId, KRT_U64 callbackId, KRT_U32 argCount, va_list args)
{
    std::lock_guard<std::mutex> guard(gMutex);
    auto *h = static_cast<Handle *>(handle);
    if (gHandles.count(h) == 0 || h->magic != kHandleMagic)
        return EBADF;
    if (instanceId != NVME_MGMT_INSTANCE || argCount != 2)
        return EINVAL;
    void *first = va_arg(args, void *);
    void *second = va_arg(args, void *);
    if (first == nullptr || second == nullptr)
        return EFAULT;
    if (h->global) {
        if (callbackId == NVME_MGMT_CB_LIST_ADAPTERS)
            return listAdapters(static_cast<KRT_U32 *>(first), static_cast<nvmeAdapterInfo *>(second));
        if (callbackId == NVME_MGMT_CB_SET_LOG_LEVEL)
            return 0;
        return EINVAL;
    }
    if (callbackId == NVME_MGMT_CB_ADAPTER_INFO) {
        // Driver-side adapter details: only the name is meaningful here.
        std::memset(second, 0, NVME_MGMT_ADAPTER_INFO_SIZE);
        std::memcpy(second, h->signature, sizeof h->signature);
        return 0;
    }
    if (callbackId != NVME_MGMT_CB_IOCTL)
        return EINVAL;
    KRT_U32 command = *static_cast<const KRT_U32 *>(first);
    auto *io = static_cast<usr_io *>(second);
    if (command == NVME_IOCTL_ADMIN_CMD)
        return adminCommand(*h, *io);
    if (command == NVME_IOCTL_IO_CMD) {
        // The controller takes no I/O through the management path.
        std::memset(io->comp, 0, sizeof io->comp);
        io->comp[3] = nvme_comp_dw3(0, SC_INVALID_OPCODE);
        io->status = SC_INVALID_OPCODE;
        return 0;
    }
    return EINVAL;
}

int driverDestroy(vmk_MgmtUserHandle handle)
{
    std::lock_guard<std::mutex> guard(gMutex);
    auto *h = static_cast<Handle *>(handle);
    if (gHandles.erase(h) == 0)
        return EBADF;
    h->magic = 0;
    delete h;
    return 0;
}

void driverForgetState()
{
    std::lock_guard<std::mutex> guard(gMutex);
    gState.reset();
}

}  // namespace krtsim
