// The pieces of the info command: the get-information query and the record
// printers. Other commands that show the same records reuse them.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "krt/admin.h"
#include "krt/records.h"
#include "krt/types.h"

// ---- The get-information query ---------------------------------------------

// Label widths of the record blocks.
constexpr int KRT_HBA_LABEL_WIDTH = 36;
constexpr int KRT_PD_LABEL_WIDTH = 32;
constexpr int KRT_VD_LABEL_WIDTH = 20;
constexpr int KRT_NS_LABEL_WIDTH = 20;
constexpr int KRT_PD_TOTAL_WIDTH = 23;
constexpr int KRT_TOTAL_WIDTH = 20;

// "All instances" in the id arguments of the listings.
constexpr int KRT_ALL_IDS = 255;

// Namespace records that fit in a reply after its 8-byte head.
constexpr std::size_t KRT_NS_RECORDS_PER_REPLY = sizeof(_NVMEReceiveData::data) / sizeof(_NVME_NS_Info);
static_assert(KRT_NS_RECORDS_PER_REPLY == 42);

// One 4096-byte reply buffer, zeroed.
std::unique_ptr<_NVMEReceiveData> newReply();

struct InfoQuery {
    KRT_U8 opcode;     // object class
    KRT_U8 subOpcode;  // sub-command
    KRT_U16 unit;      // 16-bit argument
    bool hasId;        // CDW14 carries an object id
    KRT_U32 id;        // CDW14
};

// Sends one get-information request to `adapter` into `reply` (which the
// caller zeroes), with the debug lines around it. True when the reply has our
// signature; its cmd_status is the caller's to judge.
bool sendInfoQuery(KRT_U16 adapter, const InfoQuery &query, _NVMEReceiveData &reply);
// True when the reply carries our signature and a zero firmware status.
bool replyGood(const _NVMEReceiveData &reply);

// The cached record of the addressed controller; a zeroed one when the cache
// has none for it.
const _NVME_Adapter_Info &currentAdapterInfo();
bool adapterIsRaid(const _NVME_Adapter_Info &info);

// ---- Controller --------------------------------------------------------------

// Values of a controller's block that come from the registry or from further
// requests rather than from its record. Tests swap them for fakes.
struct AdapterLookups {
    const char *(*busDevFun)(KRT_U16 index);
    const char *(*devicePath)(KRT_U16 index);
    const char *(*subnqn)(KRT_U16 index);
    int (*pdCount)(KRT_U16 index, const _NVME_Adapter_Info &info);
    KRT_U16 (*hostId)(KRT_U16 index);
};
extern const AdapterLookups kAdapterLookups;

void Adapter_PrintInfo(const _NVME_Adapter_Info &info, int index, const AdapterLookups &lookups = kAdapterLookups);
// The registry's SUBNQN of a controller, or "" when it has none worth showing
// (missing, or not starting with a printable character).
std::string controllerSubnqn(const char *registryText);
const char *orEmpty(const char *text);
void getAdapterInfoSA(int id);
KRT_U16 get_hostID(KRT_U16 index);
int getTotoalPDCnt(KRT_U16 index, const _NVME_Adapter_Info &info);

// ---- Physical disks ----------------------------------------------------------

void HD_PrintInfo(const _NVME_PD_Info &pd, bool isJBOF);
void getHDInfoSA(int id);
// 0 when shown; 1 for a reply without our signature; else the firmware status.
int getOneHDInfoSA(KRT_U16 id, bool isJBOF);

// ---- Virtual disks -----------------------------------------------------------

void LD_PrintInfo(const _NVME_VD_Info &vd);
// The activity the controller reports for the virtual disk `vdId`.
void VD_PrintBGAStatus(const _NVME_BGA_STATUS &bga, KRT_U16 vdId);
void getLDInfoSA(int id);
int getOneLDInfoSA(KRT_U16 id);
const char *VDStatusStr(KRT_U8 status);

// ---- Namespaces --------------------------------------------------------------

void NS_PrintInfo(const _NVME_NS_Info &ns, bool isRaid);
// Walks the namespace records of a reply: at most `maxNS` of them, and never
// more than fit in the reply.
std::size_t nsRecordCount(KRT_U8 maxNS);
_NVME_NS_Info nsRecordAt(const _NVMEReceiveData &reply, std::size_t index);
void getNSInfoSA(int id);
void getNSInfoOfVDSA(int id, int vdid);
