// The ESXi kernel-management user library (libvmkmgmt.so), declared by us.
// All layouts are x86_64 with natural C alignment.
#pragma once

#include "krt/types.h"

extern "C" {

struct vmk_Name {
    char string[32];
};

using vmk_revnum = KRT_U32;

enum vmk_Bool : int { VMK_FALSE = 0, VMK_TRUE = 1 };

using vmk_MgmtUserHandle = void *;

enum vmk_MgmtCallbackLocation : int {
    VMK_MGMT_CALLBACK_KERNEL = 1,
    VMK_MGMT_CALLBACK_USER = 2,
};

enum vmk_MgmtParmType : int {
    VMK_MGMT_PARMTYPE_IN = 0,
    VMK_MGMT_PARMTYPE_OUT = 1,
    VMK_MGMT_PARMTYPE_INOUT = 2,
    VMK_MGMT_PARMTYPE_VECTOR_IN = 3,
    VMK_MGMT_PARMTYPE_VECTOR_OUT = 4,
    VMK_MGMT_PARMTYPE_VECTOR_INOUT = 5,
};

constexpr int VMK_MGMT_MAX_CALLBACK_PARMS = 4;
// Callback ids 0 to 15 belong to the platform.
constexpr KRT_U64 VMK_MGMT_RESERVED_CALLBACKS = 16;

struct vmk_MgmtCallbackInfo {
    vmk_MgmtCallbackLocation location;
    void *callback;
    vmk_Bool synchronous;
    KRT_U8 numParms;
    KRT_U32 parmSizes[VMK_MGMT_MAX_CALLBACK_PARMS];
    vmk_MgmtParmType parmTypes[VMK_MGMT_MAX_CALLBACK_PARMS];
    KRT_U64 callbackId;
};
KRT_CHECK_SIZE(vmk_MgmtCallbackInfo, 64);
KRT_CHECK_OFFSET(vmk_MgmtCallbackInfo, numParms, 20);
KRT_CHECK_OFFSET(vmk_MgmtCallbackInfo, parmSizes, 24);
KRT_CHECK_OFFSET(vmk_MgmtCallbackInfo, parmTypes, 40);
KRT_CHECK_OFFSET(vmk_MgmtCallbackInfo, callbackId, 56);

struct vmk_MgmtApiSignature {
    vmk_revnum version;
    vmk_Name name;
    vmk_Name vendor;
    int numCallbacks;
    vmk_MgmtCallbackInfo *callbacks;
};
KRT_CHECK_SIZE(vmk_MgmtApiSignature, 80);
KRT_CHECK_OFFSET(vmk_MgmtApiSignature, name, 4);
KRT_CHECK_OFFSET(vmk_MgmtApiSignature, vendor, 36);
KRT_CHECK_OFFSET(vmk_MgmtApiSignature, numCallbacks, 68);
KRT_CHECK_OFFSET(vmk_MgmtApiSignature, callbacks, 72);

// The library's three entry points. Each returns 0 or a UNIX error number.
// The invoke call takes argCount pointers, one per payload parameter.
int vmk_MgmtUserInit(vmk_MgmtApiSignature *sig, KRT_U64 userCookie, vmk_MgmtUserHandle *handle);
int vmk_MgmtUserCallbackInvokeInt(vmk_MgmtUserHandle handle, KRT_U64 instanceId, KRT_U64 callbackId, KRT_U32 argCount,
                                  ...);
int vmk_MgmtUserDestroy(vmk_MgmtUserHandle handle);

}  // extern "C"

// Pointer types for the entry points resolved with dlsym.
using vmk_MgmtUserInit_fn = decltype(&vmk_MgmtUserInit);
using vmk_MgmtUserCallbackInvokeInt_fn = decltype(&vmk_MgmtUserCallbackInvokeInt);
using vmk_MgmtUserDestroy_fn = decltype(&vmk_MgmtUserDestroy);

// The file name the library is loaded by, through the dynamic loader's search.
constexpr const char *VMK_MGMT_LIBRARY = "libvmkmgmt.so";
