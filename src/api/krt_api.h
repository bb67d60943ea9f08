// The management API: every command reaches a controller through these
// functions. "index" is the zero-based adapter index; the API narrows it to
// 8 bits. Results are statuses: 0 success, (SCT << 8) + SC for a controller's
// answer, 1 for a request refused or failed locally, -22 (as unsigned) when
// the driver handle cannot be opened.
#pragma once

#include "krt/admin.h"
#include "krt/records.h"
#include "krt/types.h"

// ---- Registry and start-up -------------------------------------------------
void KRT_Init();
void KRT_Final();
KRT_U16 KRT_Adapter_GetCount();
KRT_U8 KRT_Adapter_GetOneBaseMode();
const char *KRT_Adapter_GetDeviceFun(KRT_U16 index);
const char *KRT_Adapter_GetDevicePath(KRT_U16 index);
int KRT_Adapter_GetSlotID(KRT_U16 index);
const char *KRT_Adapter_GetDeviceSUBNQN(KRT_U16 index);
KRT_U16 *KRT_Adapter_GetDeviceVID();
KRT_U8 KRT_IsSysDenied();
// Index of the last registered controller whose PCI address text (or
// SUBNQN text) equals the given text exactly.
bool findAdapterId(const char *text, int *index);
bool SetAdapterIdFromSUBNQN(const char *text, int *index);

// ---- Plain and raw access --------------------------------------------------
KRT_U32 KRT_Adapter_Admin(KRT_U16 index, KRT_U8 opcode, KRT_U32 nsid, const KRT_U32 *cdws, KRT_U8 count,
                          const void *in, KRT_U16 inLen, void *out, KRT_U16 outLen);
KRT_U32 KRT_Adapter_NVM(KRT_U16 index, KRT_U8 opcode, KRT_U32 nsid, const KRT_U32 *cdws, KRT_U8 count,
                        const void *in, KRT_U16 inLen, void *out, KRT_U16 outLen);
KRT_U32 KRT_Adapter_PassthruAdmin(KRT_U16 index, const krt_admin_command_format *cmd, const void *in,
                                  KRT_U16 inLen, void *out, KRT_U16 outLen);
KRT_U32 KRT_Adapter_PassthruAdmin_no_status_code(KRT_U16 index, const krt_admin_command_format *cmd,
                                                 const void *in, KRT_U16 inLen, void *out, KRT_U16 outLen);

// ---- Direct requests -------------------------------------------------------
KRT_U32 KRT_Adapter_GetSimpleInfo(KRT_U16 index, _NVME_Adapter_Info *info);
KRT_U32 KRT_Adapter_GetSimpleVDInfo(KRT_U16 index, KRT_U16 vdId, _NVME_VD_Info *info);
// Fills count records of 96 bytes; the caller's buffer holds count records.
KRT_U32 KRT_NS_GetInfo(KRT_U16 index, _NVME_NS_Info *records, KRT_U16 count);
KRT_U32 KRT_Adapter_SetTime(KRT_U16 index, const _NVME_Adapter_Time *time);

// ---- Class-form (paired) requests ------------------------------------------
// The remaining functions of the management API (KRT_Adapter_GetInfo,
// KRT_PD_GetInfo, KRT_VD_Create, ...) are declared below this line by the
// controller-access work, one per request of the class-form table.

// ---- Status reporting ------------------------------------------------------
// Prints "<message> (Status Code: 0x<status>)" on standard output for a
// non-zero status.
void _showStatusCode(KRT_U32 status);
