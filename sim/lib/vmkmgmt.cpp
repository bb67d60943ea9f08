// The platform's kernel-management library as the tool loads it, backed by
// the simulated NVMe driver and controllers.
#include <cstdarg>

#include "core/driver.h"
#include "krt/platform.h"

extern "C" {

__attribute__((visibility("default"))) int vmk_MgmtUserInit(vmk_MgmtApiSignature *sig, KRT_U64 userCookie,
                                                            vmk_MgmtUserHandle *handle)
{
    return krtsim::driverInit(sig, userCookie, handle);
}

__attribute__((visibility("default"))) int vmk_MgmtUserCallbackInvokeInt(vmk_MgmtUserHandle handle, KRT_U64 instanceId,
                                                                         KRT_U64 callbackId, KRT_U32 argCount, ...)
{
    va_list args;
    va_start(args, argCount);
    int result = krtsim::driverInvoke(handle, instanceId, callbackId, argCount, args);
    va_end(args);
    return result;
}

__attribute__((visibility("default"))) int vmk_MgmtUserDestroy(vmk_MgmtUserHandle handle)
{
    return krtsim::driverDestroy(handle);
}

}  // extern "C"
