// Helpers shared by the files of the management API.
#pragma once

#include "device/device.h"
#include "device/device_management.h"
#include "krt/records.h"
#include "krt/types.h"

namespace krt_api {

// The registered device of an adapter index; the API narrows the index to
// 8 bits.
inline Device *device(KRT_U16 index)
{
    return GetDeviceManagementInstance()->getDevice(static_cast<KRT_U8>(index));
}

// Sends a class-form request: class, sub-command and an optional parameter.
KRT_U32 classRequest(KRT_U16 index, KRT_U32 cls, KRT_U32 sub, const void *in, KRT_U16 inLen, void *out, KRT_U16 outLen);
KRT_U32 classRequest(KRT_U16 index, KRT_U32 cls, KRT_U32 sub, KRT_U32 param, const void *in, KRT_U16 inLen, void *out,
                     KRT_U16 outLen);

// Defaults for what older firmware leaves out of the controller record.
void fillAdapterDefaults(_NVME_Adapter_Info &info);

}  // namespace krt_api
