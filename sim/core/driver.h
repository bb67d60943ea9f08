// The platform library's three entry points as the simulated NVMe driver
// answers them: the global "nvmeMgmt" signature (adapter list), one
// signature per adapter (admin pass-through), handles and their checks.
#pragma once

#include <cstdarg>

#include "krt/platform.h"

namespace krtsim {

int driverInit(vmk_MgmtApiSignature *sig, KRT_U64 userCookie, vmk_MgmtUserHandle *handle);
int driverInvoke(vmk_MgmtUserHandle handle, KRT_U64 instanceId, KRT_U64 callbackId, KRT_U32 argCount, va_list args);
int driverDestroy(vmk_MgmtUserHandle handle);

// Drops the process's mapping of the state (tests that switch state files).
void driverForgetState();

}  // namespace krtsim
