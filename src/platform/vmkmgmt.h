// The binding to the platform's kernel-management user library. The library
// is loaded by file name on first use, so the binary runs on hosts where it
// lives anywhere the dynamic loader looks.
#pragma once

#include "krt/platform.h"

struct VmkMgmtEntryPoints {
    vmk_MgmtUserInit_fn init = nullptr;
    vmk_MgmtUserCallbackInvokeInt_fn invoke = nullptr;
    vmk_MgmtUserDestroy_fn destroy = nullptr;
};

// The resolved entry points, or null when the library (or one of its three
// entry points) cannot be found. The first call loads the library; later
// calls return the same answer.
const VmkMgmtEntryPoints *vmkmgmt_entry_points();

// Replaces the entry points for the rest of the process (null: back to the
// library). Lets the transport run against an in-process driver, e.g. in
// unit tests.
void vmkmgmt_set_entry_points(const VmkMgmtEntryPoints *points);
