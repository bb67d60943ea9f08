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
KRT_U32 KRT_Adapter_Admin(KRT_U16 index, KRT_U8 opcode, KRT_U32 nsid, const KRT_U32 *cdws, KRT_U8 count, const void *in,
                          KRT_U16 inLen, void *out, KRT_U16 outLen);
KRT_U32 KRT_Adapter_NVM(KRT_U16 index, KRT_U8 opcode, KRT_U32 nsid, const KRT_U32 *cdws, KRT_U8 count, const void *in,
                        KRT_U16 inLen, void *out, KRT_U16 outLen);
KRT_U32 KRT_Adapter_PassthruAdmin(KRT_U16 index, const krt_admin_command_format *cmd, const void *in, KRT_U16 inLen,
                                  void *out, KRT_U16 outLen);
KRT_U32 KRT_Adapter_PassthruAdmin_no_status_code(KRT_U16 index, const krt_admin_command_format *cmd, const void *in,
                                                 KRT_U16 inLen, void *out, KRT_U16 outLen);

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
//
// Each sends one paired vendor request to the registered controller and
// returns its status (1 when the pair itself failed); nothing is printed.
// List requests take one buffer that starts with a _RequestHeader: the
// caller sets numRequested (n) and the buffer must hold the header plus n
// records; the reply (header and records) is written over it.
KRT_U32 KRT_Adapter_GetInfo(KRT_U16 index, _NVME_Adapter_Info *info);
KRT_U32 KRT_Adapter_GetConfig(KRT_U16 index, _NVME_Adapter_Config *config);
KRT_U32 KRT_Adapter_SetConfig(KRT_U16 index, const _NVME_Adapter_Config *config);
KRT_U32 KRT_Adapter_LED(KRT_U16 index, const _NVME_LED *led);
// Prints "not support now" and returns 0.
KRT_U32 KRT_Adapter_OEM(KRT_U16 index);
KRT_U32 KRT_PD_GetInfo(KRT_U16 index, void *headerAndRecords);  // 16 + 104 n bytes
// The record (recordSize bytes) goes out with 17 bytes of room after it and
// comes back in place: the buffer must hold recordSize + 17 bytes.
KRT_U32 KRT_PD_OEM(KRT_U16 index, void *record, KRT_U16 recordSize);
KRT_U32 KRT_PD_Import(KRT_U16 index, const _RequestHeader *header);
KRT_U32 KRT_VD_GetInfo(KRT_U16 index, void *headerAndRecords);          // 16 + 176 n bytes
KRT_U32 KRT_VD_GetConfig(KRT_U16 index, void *headerAndRecords);        // 16 + 24 n bytes
KRT_U32 KRT_VD_SetConfig(KRT_U16 index, const void *headerAndRecords);  // 16 + 24 n bytes
// The 624-byte creation record. KRT_VD_Create expects its QueryLDSize flag
// clear, KRT_VD_QuerySize set; the caller fills the record.
constexpr KRT_U16 KRT_CREATE_VD_SIZE = 624;
constexpr KRT_U16 KRT_PRECREATE_VD_SIZE = 16;
KRT_U32 KRT_VD_Create(KRT_U16 index, const void *createVd);
KRT_U32 KRT_VD_QuerySize(KRT_U16 index, const void *createVd, void *preCreateVd);
KRT_U32 KRT_VD_Delete(KRT_U16 index, KRT_U16 vdId);
KRT_U32 KRT_VD_Import(KRT_U16 index, const _RequestHeader *header);
KRT_U32 KRT_PD_GetBGAStatus(KRT_U16 index, void *headerAndRecords);  // 16 + 8 n bytes
KRT_U32 KRT_VD_GetBGAStatus(KRT_U16 index, void *headerAndRecords);  // 16 + 8 n bytes
KRT_U32 KRT_PD_BGAControl(KRT_U16 index, KRT_U16 pdId, KRT_U8 action);
KRT_U32 KRT_VD_BGAControl(KRT_U16 index, KRT_U16 vdId, KRT_U8 action);
KRT_U32 KRT_PD_MP(KRT_U16 index, KRT_U32 value);
KRT_U32 KRT_VD_Init(KRT_U16 index, KRT_U16 value0, KRT_U16 value1);
KRT_U32 KRT_VD_Rebuild(KRT_U16 index, const _NVME_Rebuild *rebuild);
KRT_U32 KRT_VD_Sync(KRT_U16 index, KRT_U32 value);
KRT_U32 KRT_VD_Migrate(KRT_U16 index, const _NVME_Migrate *migrate);
KRT_U32 KRT_VD_MP(KRT_U16 index, KRT_U32 value);
KRT_U32 KRT_Event_Status(KRT_U16 index, void *out8);
// count records of 96 bytes of the namespaces of one VD.
KRT_U32 KRT_NS_GetInfo_VD(KRT_U16 index, KRT_U16 vdId, _NVME_NS_Info *records, KRT_U16 count);
KRT_U32 KRT_Dump_Console(KRT_U16 index, void *out4096);
KRT_U32 KRT_Dump_Status(KRT_U16 index, void *out8);
KRT_U32 KRT_Get_Dump_Cfg(KRT_U16 index, void *out8);
KRT_U32 KRT_Set_Dump_Cfg(KRT_U16 index, const void *in8);
// The 4096-byte page goes out and the reply comes back in place; always 0.
KRT_U32 KRT_Page_Event(KRT_U16 index, void *page4096);

// ---- Firmware download -----------------------------------------------------
struct _NVME_Flash_Result {
    KRT_U32 status;  // 1 while the download runs, 0 when it has finished
    KRT_U32 result;  // 0, the failing request's status, or 1
    KRT_U8 percentage;
};
// Starts the controller's firmware download on its progress bar; returns 0.
KRT_U32 KRT_Adapter_Flash(KRT_U16 index, const char *path, KRT_U8 slot, KRT_U8 ca, KRT_U8 type);
// 1 when the controller has no progress bar or result is null, else 0.
KRT_U32 KRT_Adapter_Flash_Result(KRT_U16 index, _NVME_Flash_Result *result);

// ---- OS-volume guard -------------------------------------------------------
// 256 when a namespace of that VD holds the volume the host booted from.
int KRT_VD_Has_OS(KRT_U16 adapter, KRT_U16 vd, KRT_U8 MaxNS);

// ---- Status reporting ------------------------------------------------------
// Prints "<message> (Status Code: 0x<status>)" on standard output for a
// non-zero status.
void _showStatusCode(KRT_U32 status);
