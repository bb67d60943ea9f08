#include "transport_fake_driver.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <mutex>

#include "device/device_management.h"

namespace fake {

namespace {

// The flash worker sends from a thread of its own.
std::mutex gCalls;

struct Handle {
    int adapter;  // -1: the global signature
};

int fakeInit(vmk_MgmtApiSignature *sig, KRT_U64, vmk_MgmtUserHandle *handle)
{
    const std::lock_guard<std::mutex> hold(gCalls);
    Driver &d = driver();
    const std::string name(sig->name.string, strnlen(sig->name.string, sizeof sig->name.string));
    int found = name == NVME_MGMT_NAME ? -1 : -2;
    for (std::size_t i = 0; i < d.adapters.size(); ++i)
        found = d.adapters[i].signature == name ? static_cast<int>(i) : found;
    if (found == -2)
        return ENOENT;
    *handle = new Handle{found};
    ++d.openHandles;
    return 0;
}

int fakeDestroy(vmk_MgmtUserHandle handle)
{
    const std::lock_guard<std::mutex> hold(gCalls);
    delete static_cast<Handle *>(handle);
    --driver().openHandles;
    return 0;
}

int passthru(Adapter &a, usr_io *io)
{
    auto *data = reinterpret_cast<KRT_U8 *>(io->addr);
    Request r{a.name, *io, {}};
    if (io->direction == XFER_TO_DEV && data != nullptr)
        r.sent.assign(data, data + io->length);
    driver().requests.push_back(r);
    if (driver().answer)
        return driver().answer(a, *io);
    io->comp[3] = a.completionDw3;
    io->status = a.driverStatus;
    if (a.completionDw3 != 0 || a.driverStatus != 0 || io->direction != XFER_FROM_DEV || data == nullptr)
        return 0;
    const KRT_U32 opcode = io->cmd[0] & 0xFF;
    const Page *reply = opcode == NVME_ADMIN_IDENTIFY     ? &a.identify
                        : opcode == KRT_VENDOR_OPCODE     ? &a.adapterInfo
                        : opcode == KRT_PAIR_RECEIVE_WIRE ? &a.pairReply
                                                          : nullptr;
    if (reply != nullptr)
        std::memcpy(data, reply->data(), io->length < reply->size() ? io->length : reply->size());
    return 0;
}

int fakeInvoke(vmk_MgmtUserHandle handle, KRT_U64, KRT_U64 callbackId, KRT_U32 argCount, ...)
{
    const std::lock_guard<std::mutex> hold(gCalls);
    Driver &d = driver();
    va_list args;
    va_start(args, argCount);
    void *first = va_arg(args, void *);
    void *second = va_arg(args, void *);
    va_end(args);
    const int adapter = static_cast<Handle *>(handle)->adapter;
    if (adapter < 0) {
        if (callbackId != NVME_MGMT_CB_LIST_ADAPTERS)
            return EINVAL;
        auto *entries = static_cast<nvmeAdapterInfo *>(second);
        std::memset(entries, 0, sizeof(nvmeAdapterInfo) * NVME_MAX_ADAPTERS);
        std::size_t n = 0;
        for (; n < d.adapters.size() && n < NVME_MAX_ADAPTERS; ++n) {
            std::strncpy(entries[n].name, d.adapters[n].name.c_str(), sizeof entries[n].name - 1);
            std::strncpy(entries[n].signature, d.adapters[n].signature.c_str(), sizeof entries[n].signature - 1);
        }
        *static_cast<KRT_U32 *>(first) = d.listCount != ~0u ? d.listCount : static_cast<KRT_U32>(n);
        return 0;
    }
    if (callbackId != NVME_MGMT_CB_IOCTL || *static_cast<KRT_U32 *>(first) != NVME_IOCTL_ADMIN_CMD)
        return EINVAL;
    return passthru(d.adapters[static_cast<std::size_t>(adapter)], static_cast<usr_io *>(second));
}

const VmkMgmtEntryPoints kFake{fakeInit, fakeInvoke, fakeDestroy};

}  // namespace

Driver &driver()
{
    static Driver d;
    return d;
}

Installed::Installed()
{
    driver() = Driver{};
    vmkmgmt_set_entry_points(&kFake);
}

Installed::~Installed()
{
    vmkmgmt_set_entry_points(nullptr);
    driver() = Driver{};
}

void scan(const std::vector<Adapter> &adapters)
{
    GetDeviceManagementInstance()->Final();
    driver().adapters = adapters;
    GetDeviceManagementInstance()->m_smbios_path = "/nonexistent/smbios";
    GetDeviceManagementInstance()->ScanV2();
    driver().requests.clear();
}

std::vector<Request> sent(KRT_U8 opcode)
{
    std::vector<Request> out;
    std::copy_if(driver().requests.begin(), driver().requests.end(), std::back_inserter(out),
                 [&](const Request &r) { return (r.io.cmd[0] & 0xFF) == opcode; });
    return out;
}

Adapter managedAdapter(const std::string &name, KRT_U16 vid, KRT_U16 did)
{
    Adapter a;
    a.name = name;
    a.signature = "nvme_" + name;
    std::memcpy(&a.identify[NVME_ID_VID], &vid, 2);
    std::memcpy(a.adapterInfo.data(), KRT_SIGN, sizeof KRT_SIGN);
    std::memcpy(&a.adapterInfo[KRT_REPLY_DATA_OFFSET + offsetof(_NVME_Adapter_Info, DID)], &did, 2);
    std::memcpy(a.pairReply.data(), KRT_SIGN, sizeof KRT_SIGN);
    return a;
}

}  // namespace fake
