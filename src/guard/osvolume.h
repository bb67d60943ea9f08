// The OS-volume guard: finds which controller namespaces hold the volume the
// running system booted from, so that the virtual disk behind it is never
// deleted or re-created from under the host, and keeps the host's view of
// namespaces current around VD changes.
#pragma once

#include <string>
#include <vector>

#include "krt/types.h"

// What the host tells about the device behind its boot volume. Any field
// may be empty: PCI address "bb:dd.ff", namespace ID, EUI64 and NGUID.
struct OsVolume {
    std::string bdf;
    KRT_U32 nsid = 0;
    KRT_U8 eui64[8] = {};
    KRT_U8 nguid[16] = {};
    bool hasEui64 = false;
    bool hasNguid = false;
};

// Looks for the boot volume under root ("/" on a live host): on Linux the
// block device of the root file system from proc/self/mountinfo and sys; on
// the hypervisor host the device identifier its boot bank lives on. Returns the volumes
// found (none when the system disk is not an NVMe namespace).
std::vector<OsVolume> os_vol_find(const std::string &root);

// Runs os_vol_find and records which registered controller namespaces hold
// the volume.
void os_vol_scan(const char *root = "/");
// What start-up runs: the scan of root is only noted, and runs when a
// command first asks the guard (os_vol_on_namespace, KRT_VD_Has_OS), over
// the registry as start-up left it. Commands that never ask pay nothing.
void os_vol_scan_on_demand(const char *root = "/");
// Forgets what os_vol_scan found, and a scan still pending.
void sysdisk_final();
// True when the scan placed the OS volume on namespace nsid of that adapter.
bool os_vol_on_namespace(KRT_U16 adapter, KRT_U32 nsid);

constexpr int KRT_VD_HAS_OS = 256;
// KRT_VD_HAS_OS when a namespace of that VD holds the OS volume, else 0.
int KRT_VD_Has_OS(KRT_U16 adapter, KRT_U16 vd, KRT_U8 MaxNS);

// Hooks around VD changes; each returns 0 or the failing request's status.
int before_create_vd(KRT_U16 index);
int after_create_vd(KRT_U16 index);
int before_delete_vd(KRT_U16 index, KRT_U16 vd);
int after_delete_vd(KRT_U16 index);
int after_import_vd(KRT_U16 index);
