#include "platform/nvme_lib.h"

#include <cassert>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "platform/vmkmgmt.h"

namespace {

nvme_adapter_list gAdapterList;

// A platform name holds at most 31 characters and its terminator.
void copyName(vmk_Name &dst, const char *src)
{
    const std::size_t n = strnlen(src, sizeof dst.string - 1);
    std::memcpy(dst.string, src, n);
    dst.string[n] = '\0';
}

// Both signatures carry the same two kernel-side callbacks; only the
// parameters of the first differ.
void fillSignature(vmk_MgmtApiSignature &sig, vmk_MgmtCallbackInfo (&callbacks)[2], const char *name, bool global)
{
    std::memset(&sig, 0, sizeof sig);
    std::memset(callbacks, 0, sizeof callbacks);
    sig.version = NVME_MGMT_VERSION;
    copyName(sig.name, name);
    copyName(sig.vendor, NVME_MGMT_VENDOR);
    sig.numCallbacks = 2;
    sig.callbacks = callbacks;
    for (auto &cb : callbacks) {
        cb.location = VMK_MGMT_CALLBACK_KERNEL;
        cb.synchronous = VMK_TRUE;
        cb.numParms = 2;
    }
    callbacks[0].callbackId = NVME_MGMT_CB_LIST_ADAPTERS;
    callbacks[1].callbackId = NVME_MGMT_CB_IOCTL;
    if (global) {
        callbacks[0].parmSizes[0] = sizeof(KRT_U32);
        callbacks[0].parmTypes[0] = VMK_MGMT_PARMTYPE_OUT;
        callbacks[0].parmSizes[1] = sizeof(nvmeAdapterInfo) * NVME_MAX_ADAPTERS;
        callbacks[0].parmTypes[1] = VMK_MGMT_PARMTYPE_OUT;
        callbacks[1].parmSizes[0] = sizeof(KRT_U32);
        callbacks[1].parmTypes[0] = VMK_MGMT_PARMTYPE_IN;
        callbacks[1].parmSizes[1] = sizeof(KRT_U32);
        callbacks[1].parmTypes[1] = VMK_MGMT_PARMTYPE_IN;
    } else {
        callbacks[0].parmSizes[0] = sizeof(KRT_U32);
        callbacks[0].parmTypes[0] = VMK_MGMT_PARMTYPE_IN;
        callbacks[0].parmSizes[1] = NVME_MGMT_ADAPTER_INFO_SIZE;
        callbacks[0].parmTypes[1] = VMK_MGMT_PARMTYPE_OUT;
        callbacks[1].parmSizes[0] = sizeof(KRT_U32);
        callbacks[1].parmTypes[0] = VMK_MGMT_PARMTYPE_IN;
        callbacks[1].parmSizes[1] = sizeof(usr_io);
        callbacks[1].parmTypes[1] = VMK_MGMT_PARMTYPE_INOUT;
    }
}

}  // namespace

nvme_adapter_list *adapterList()
{
    return &gAdapterList;
}

KRT_U32 nvme_adapter_count(const nvme_adapter_list *list)
{
    // The driver's count is only a claim: the array holds 64 entries.
    return list->count > NVME_MAX_ADAPTERS ? NVME_MAX_ADAPTERS : list->count;
}

int Nvme_GetAdapterList(nvme_adapter_list *list)
{
    const VmkMgmtEntryPoints *vmk = vmkmgmt_entry_points();
    if (vmk == nullptr)
        return ENOENT;

    vmk_MgmtApiSignature sig;
    vmk_MgmtCallbackInfo callbacks[2];
    fillSignature(sig, callbacks, NVME_MGMT_NAME, true);
    vmk_MgmtUserHandle handle = nullptr;
    int rc = vmk->init(&sig, 0, &handle);
    if (rc != 0)
        return rc;
    rc = vmk->invoke(handle, NVME_MGMT_INSTANCE, NVME_MGMT_CB_LIST_ADAPTERS, 2, &list->count, list->adapters);
    int rcDestroy = vmk->destroy(handle);
    if (rc == 0)
        rc = rcDestroy;
    if (rc == 0) {
        // Names and signatures are used as C strings from here on.
        for (auto &entry : list->adapters) {
            entry.name[sizeof entry.name - 1] = '\0';
            entry.signature[sizeof entry.signature - 1] = '\0';
        }
    }
    return rc;
}

nvme_handle *Nvme_Open(nvme_adapter_list *list, const char *name)
{
    assert(list != nullptr && name != nullptr);
    const VmkMgmtEntryPoints *vmk = vmkmgmt_entry_points();
    if (vmk == nullptr)
        return nullptr;

    const nvmeAdapterInfo *found = nullptr;
    KRT_U32 count = nvme_adapter_count(list);
    for (KRT_U32 i = 0; i < count; ++i) {
        if (std::strncmp(list->adapters[i].name, name, sizeof list->adapters[i].name) == 0) {
            found = &list->adapters[i];
            break;
        }
    }
    if (found == nullptr)
        return nullptr;

    auto *h = static_cast<nvme_handle *>(std::calloc(1, sizeof(nvme_handle)));
    if (h == nullptr)
        return nullptr;
    std::strncpy(h->name, name, sizeof h->name - 1);

    vmk_MgmtApiSignature sig;
    vmk_MgmtCallbackInfo callbacks[2];
    char signature[sizeof found->signature + 1] = {};
    std::memcpy(signature, found->signature, sizeof found->signature);
    fillSignature(sig, callbacks, signature, false);
    if (vmk->init(&sig, 0, &h->handle) != 0 || h->handle == nullptr) {
        std::free(h);
        return nullptr;
    }
    return h;
}

void Nvme_Close(nvme_handle *handle)
{
    if (handle == nullptr || handle->handle == nullptr)
        return;
    const VmkMgmtEntryPoints *vmk = vmkmgmt_entry_points();
    if (vmk != nullptr)
        vmk->destroy(handle->handle);
    std::free(handle);
}

int Nvme_Ioctl(nvme_handle *handle, KRT_U32 command, usr_io *io)
{
    const VmkMgmtEntryPoints *vmk = vmkmgmt_entry_points();
    if (vmk == nullptr || handle == nullptr)
        return ENODEV;
    return vmk->invoke(handle->handle, NVME_MGMT_INSTANCE, NVME_MGMT_CB_IOCTL, 2, &command, io);
}

int Nvme_AdminPassthru(nvme_handle *handle, usr_io *io)
{
    int rc = Nvme_Ioctl(handle, NVME_IOCTL_ADMIN_CMD, io);
    if (rc != 0)
        return rc;
    return static_cast<int>(io->status);
}
