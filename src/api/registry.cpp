// Start-up, exit and the registry questions of the management API.
#include <cstring>

#include "api/api_internal.h"
#include "api/krt_api.h"
#include "firmware/progressbar.h"
#include "guard/osvolume.h"
#include "util/log.h"

void KRT_Init()
{
    DeviceManagement *registry = GetDeviceManagementInstance();
    init_log();
    progressbar_management_init();
    // The platform's management library is the way in on ESXi; without it
    // the controllers are the NVMe driver's nodes of a Linux host. A host
    // with neither gets the driver-list scan's own failure message.
    if (DeviceManagement_hasAdapterList() || registry->Scan() == 0)
        registry->ScanV2();
    os_vol_scan_on_demand("/");
}

void KRT_Final()
{
    sysdisk_final();
    progressbar_management_close();
    GetDeviceManagementInstance()->Final();
    close_log();
}

KRT_U16 KRT_Adapter_GetCount()
{
    return GetDeviceManagementInstance()->getDeviceCount();
}
KRT_U8 KRT_Adapter_GetOneBaseMode()
{
    return GetDeviceManagementInstance()->getOneBaseMode();
}
const char *KRT_Adapter_GetDeviceFun(KRT_U16 index)
{
    return GetDeviceManagementInstance()->getDeviceFun(index);
}
const char *KRT_Adapter_GetDevicePath(KRT_U16 index)
{
    return GetDeviceManagementInstance()->getDevicePath(index);
}
int KRT_Adapter_GetSlotID(KRT_U16 index)
{
    return GetDeviceManagementInstance()->getSlotID(index);
}
const char *KRT_Adapter_GetDeviceSUBNQN(KRT_U16 index)
{
    return GetDeviceManagementInstance()->getDeviceSUBNQN(index);
}
KRT_U16 *KRT_Adapter_GetDeviceVID()
{
    return GetDeviceManagementInstance()->getDeviceVID();
}
KRT_U8 KRT_IsSysDenied()
{
    return GetDeviceManagementInstance()->isSysDenied();
}

bool findAdapterId(const char *text, int *index)
{
    DeviceManagement *registry = GetDeviceManagementInstance();
    if (registry->getDeviceCount() == 0 || text == nullptr)
        return false;
    bool found = false;
    // No early exit: when two controllers carry the same text, the last wins.
    for (KRT_U16 i = 0; i < registry->getDeviceCount(); ++i) {
        if (std::strcmp(registry->getDeviceFun(i), text) == 0) {
            if (index != nullptr)
                *index = i;
            found = true;
        }
    }
    return found;
}

bool SetAdapterIdFromSUBNQN(const char *text, int *index)
{
    DeviceManagement *registry = GetDeviceManagementInstance();
    if (registry->getDeviceCount() == 0 || text == nullptr)
        return false;
    char wanted[256] = {};
    std::strncpy(wanted, text, sizeof wanted - 1);
    bool found = false;
    for (KRT_U16 i = 0; i < registry->getDeviceCount(); ++i) {
        if (std::strcmp(registry->getDeviceSUBNQN(i), wanted) == 0) {
            if (index != nullptr)
                *index = i;
            found = true;
        }
    }
    return found;
}
