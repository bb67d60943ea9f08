#include "transport_fake_driver.h"

#include <cerrno>
#include <cstdarg>

namespace fake {

namespace {

struct Handle {
    int adapter;  // -1: the global signature
};

int fakeInit(vmk_MgmtApiSignature *sig, KRT_U64, vmk_MgmtUserHandle *handle)
{
    Driver &d = driver();
    std::string name(sig->name.string, strnlen(sig->name.string, sizeof sig->name.string));
    d.initNames.push_back(name);
    if (name == NVME_MGMT_NAME) {
        if (d.listFails)
            return EIO;
        *handle = new Handle{-1};
        ++d.openHandles;
        return 0;
    }
    for (std::size_t i = 0; i < d.adapters.size(); ++i) {
        if (d.adapters[i].signature == name) {
            if (!d.adapters[i].openable)
                return ENOENT;
            *handle = new Handle{static_cast<int>(i)};
            ++d.openHandles;
            return 0;
        }
    }
    return ENOENT;
}

int fakeDestroy(vmk_MgmtUserHandle handle)
{
    delete static_cast<Handle *>(handle);
    --driver().openHandles;
    return 0;
}

int passthru(Adapter &a, usr_io *io)
{
    Driver &d = driver();
    Request r{a.name, *io, {}};
    const auto *data = reinterpret_cast<KRT_U8 *>(io->addr);
    if (io->direction == XFER_TO_DEV && data != nullptr)
        r.sent.assign(data, data + io->length);
    d.requests.push_back(r);

    io->comp[3] = a.completionDw3;
    io->status = a.driverStatus;
    if (a.completionDw3 != 0 || a.driverStatus != 0)
        return 0;
    auto *out = reinterpret_cast<KRT_U8 *>(io->addr);
    if (io->direction != XFER_FROM_DEV || out == nullptr)
        return 0;
    const Page *reply = nullptr;
    switch (io->cmd[0] & 0xFF) {
        case NVME_ADMIN_IDENTIFY:
            reply = &a.identify;
            break;
        case KRT_VENDOR_OPCODE:
            reply = &a.adapterInfo;
            break;
        case KRT_PAIR_RECEIVE_WIRE:
            reply = &a.pairReply;
            break;
        default:
            return 0;
    }
    std::memcpy(out, reply->data(), io->length < reply->size() ? io->length : reply->size());
    return 0;
}

int fakeInvoke(vmk_MgmtUserHandle handle, KRT_U64, KRT_U64 callbackId, KRT_U32 argCount, ...)
{
    Driver &d = driver();
    va_list args;
    va_start(args, argCount);
    void *first = va_arg(args, void *);
    void *second = va_arg(args, void *);
    va_end(args);
    auto *h = static_cast<Handle *>(handle);
    if (h->adapter < 0) {
        if (callbackId != NVME_MGMT_CB_LIST_ADAPTERS)
            return EINVAL;
        auto *count = static_cast<KRT_U32 *>(first);
        auto *entries = static_cast<nvmeAdapterInfo *>(second);
        std::memset(entries, 0, sizeof(nvmeAdapterInfo) * NVME_MAX_ADAPTERS);
        std::size_t n = 0;
        for (const auto &a : d.adapters) {
            if (n == NVME_MAX_ADAPTERS)
                break;
            std::strncpy(entries[n].name, a.name.c_str(), sizeof entries[n].name - 1);
            std::strncpy(entries[n].signature, a.signature.c_str(), sizeof entries[n].signature - 1);
            ++n;
        }
        *count = d.listCount != ~0u ? d.listCount : static_cast<KRT_U32>(n);
        return 0;
    }
    if (callbackId != NVME_MGMT_CB_IOCTL)
        return EINVAL;
    if (*static_cast<KRT_U32 *>(first) != NVME_IOCTL_ADMIN_CMD)
        return EINVAL;
    return passthru(d.adapters[static_cast<std::size_t>(h->adapter)], static_cast<usr_io *>(second));
}

const VmkMgmtEntryPoints kFake{fakeInit, fakeInvoke, fakeDestroy};

}  // namespace

Driver &driver()
{
    static Driver d;
    return d;
}

void install()
{
    driver() = Driver{};
    vmkmgmt_set_entry_points(&kFake);
}

void uninstall()
{
    vmkmgmt_set_entry_points(nullptr);
    driver() = Driver{};
}

Adapter managedAdapter(const std::string &name, KRT_U16 vid, KRT_U16 did)
{
    Adapter a;
    a.name = name;
    a.signature = "nvme_" + name;
    a.identify[NVME_ID_VID] = static_cast<KRT_U8>(vid & 0xFF);
    a.identify[NVME_ID_VID + 1] = static_cast<KRT_U8>(vid >> 8);
    std::memcpy(a.adapterInfo.data(), KRT_SIGN, sizeof KRT_SIGN);
    const int at = KRT_REPLY_DATA_OFFSET + static_cast<int>(offsetof(_NVME_Adapter_Info, DID));
    a.adapterInfo[at] = static_cast<KRT_U8>(did & 0xFF);
    a.adapterInfo[at + 1] = static_cast<KRT_U8>(did >> 8);
    std::memcpy(a.pairReply.data(), KRT_SIGN, sizeof KRT_SIGN);
    return a;
}

}  // namespace fake
