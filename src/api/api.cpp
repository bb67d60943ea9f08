// Placeholder until the controller-access layer lands: no controller.
#include "api/krt_api.h"

namespace {
KRT_U16 gVIDFormCLI = 0;
}

void KRT_Init() {}
void KRT_Final() {}
KRT_U16 KRT_Adapter_GetCount() { return 0; }
KRT_U8 KRT_Adapter_GetOneBaseMode() { return 0; }
const char *KRT_Adapter_GetDeviceFun(KRT_U16) { return ""; }
const char *KRT_Adapter_GetDevicePath(KRT_U16) { return ""; }
int KRT_Adapter_GetSlotID(KRT_U16) { return -1; }
const char *KRT_Adapter_GetDeviceSUBNQN(KRT_U16) { return ""; }
KRT_U16 *KRT_Adapter_GetDeviceVID() { return &gVIDFormCLI; }
KRT_U8 KRT_IsSysDenied() { return 0; }
bool findAdapterId(const char *, int *) { return false; }
bool SetAdapterIdFromSUBNQN(const char *, int *) { return false; }
KRT_U32 KRT_Adapter_Admin(KRT_U16, KRT_U8, KRT_U32, const KRT_U32 *, KRT_U8, const void *, KRT_U16, void *, KRT_U16)
{
    return 1;
}
KRT_U32 KRT_Adapter_PassthruAdmin(KRT_U16, const krt_admin_command_format *, const void *, KRT_U16, void *, KRT_U16)
{
    return 1;
}
KRT_U32 KRT_Adapter_GetSimpleInfo(KRT_U16, _NVME_Adapter_Info *) { return 1; }
void _showStatusCode(KRT_U32) {}
