// The NVMe driver's management interface, reached through the platform
// library: the adapter list and the admin pass-through.
#pragma once

#include "krt/driver.h"
#include "krt/platform.h"

struct nvme_handle {
    char name[32];  // adapter name
    vmk_MgmtUserHandle handle;
};

// The one process-wide adapter list: filled by Nvme_GetAdapterList and
// searched by Nvme_Open.
nvme_adapter_list *adapterList();

// The number of valid entries of a list, whatever count the driver wrote.
KRT_U32 nvme_adapter_count(const nvme_adapter_list *list);

// Fills the list from the driver. 0 on success; non-zero (an error number)
// when the library cannot be loaded or the driver refuses.
int Nvme_GetAdapterList(nvme_adapter_list *list);
// A handle on the adapter of that name from the list, or null.
nvme_handle *Nvme_Open(nvme_adapter_list *list, const char *name);
void Nvme_Close(nvme_handle *handle);
int Nvme_Ioctl(nvme_handle *handle, KRT_U32 command, usr_io *io);
// The admin pass-through: the driver's result, or the request's status.
int Nvme_AdminPassthru(nvme_handle *handle, usr_io *io);
