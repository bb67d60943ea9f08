// The class-form vendor requests: each a send/receive pair through the
// registered controller's paired device.
#include <cstdio>
#include <cstring>

#include "api/api_internal.h"
#include "api/krt_api.h"
#include "guard/osvolume.h"

namespace {

// Sub-commands of the classes.
enum : KRT_U32 {
    kAdapterInfo = 0,
    kAdapterGetConfig = 1,
    kAdapterSetConfig = 2,
    kAdapterLED = 7,
    kPDInfo = 0,
    kPDOEM = 3,
    kPDImport = 9,
    kVDInfo = 0,
    kVDGetConfig = 1,
    kVDSetConfig = 2,
    kVDCreate = 3,
    kVDDelete = 4,
    kVDImport = 6,
    kBGAPDStatus = 1,
    kBGAVDStatus = 2,
    kBGAPDControl = 3,
    kBGAVDControl = 4,
    kBGAPDMP = 5,
    kBGAVDInit = 6,
    kBGAVDRebuild = 7,
    kBGAVDSync = 8,
    kBGAVDMigrate = 9,
    kBGAVDMP = 10,
    kEventStatus = 1,
    kNSInfoVD = 1,
    kDumpConsole = 0,
    kDumpStatus = 1,
    kDumpGetCfg = 2,
    kDumpSetCfg = 3,
    kDumpPageEvent = 4,
};

constexpr KRT_U16 kHeader = sizeof(_RequestHeader);
// What one reply can carry after its envelope.
constexpr std::size_t kReplyData = KRT_BUFFER_SIZE - KRT_REPLY_DATA_OFFSET;

// Bytes of a list reply: the header and numRequested records, bounded by
// what one reply can carry.
KRT_U16 listLength(const void *headerAndRecords, std::size_t recordSize)
{
    const auto *head = static_cast<const _RequestHeader *>(headerAndRecords);
    std::size_t n = kHeader + recordSize * head->numRequested;
    return static_cast<KRT_U16>(n > kReplyData ? kReplyData : n);
}

KRT_U32 listRequest(KRT_U16 index, KRT_U32 cls, KRT_U32 sub, void *headerAndRecords, std::size_t recordSize)
{
    if (headerAndRecords == nullptr)
        return 1;
    return krt_api::classRequest(index, cls, sub, headerAndRecords, kHeader, headerAndRecords,
                                 listLength(headerAndRecords, recordSize));
}

KRT_U32 valueRequest(KRT_U16 index, KRT_U32 cls, KRT_U32 sub, KRT_U32 value)
{
    KRT_U8 in[8] = {};
    std::memcpy(in, &value, sizeof value);
    return krt_api::classRequest(index, cls, sub, in, sizeof in, nullptr, 0);
}

KRT_U32 bgaControl(KRT_U16 index, KRT_U32 sub, KRT_U16 id, KRT_U8 action)
{
    _RequestHeader head{};
    head.requestType = 2;
    head.start = id;
    head.numRequested = 1;
    return krt_api::classRequest(index, KRT_CLASS_BGA, sub, action, &head, sizeof head, nullptr, 0);
}

}  // namespace

KRT_U32 krt_api::classRequest(KRT_U16 index, KRT_U32 cls, KRT_U32 sub, const void *in, KRT_U16 inLen, void *out,
                              KRT_U16 outLen)
{
    const KRT_U32 words[2] = {cls, sub};
    return device(index)->sendCommand(KRT_PAIR_REQUEST_OPCODE, 0, words, 2, in, inLen, out, outLen);
}

KRT_U32 krt_api::classRequest(KRT_U16 index, KRT_U32 cls, KRT_U32 sub, KRT_U32 param, const void *in, KRT_U16 inLen,
                              void *out, KRT_U16 outLen)
{
    const KRT_U32 words[3] = {cls, sub, param};
    return device(index)->sendCommand(KRT_PAIR_REQUEST_OPCODE, 0, words, 3, in, inLen, out, outLen);
}

KRT_U32 KRT_Adapter_GetInfo(KRT_U16 index, _NVME_Adapter_Info *info)
{
    if (info == nullptr)
        return 1;
    KRT_U32 rc = krt_api::classRequest(index, KRT_CLASS_ADAPTER, kAdapterInfo, nullptr, 0, info, sizeof *info);
    if (rc == 0)
        krt_api::fillAdapterDefaults(*info);
    return rc;
}

KRT_U32 KRT_Adapter_GetConfig(KRT_U16 index, _NVME_Adapter_Config *config)
{
    if (config == nullptr)
        return 1;
    return krt_api::classRequest(index, KRT_CLASS_ADAPTER, kAdapterGetConfig, nullptr, 0, config, sizeof *config);
}

KRT_U32 KRT_Adapter_SetConfig(KRT_U16 index, const _NVME_Adapter_Config *config)
{
    if (config == nullptr)
        return 1;
    return krt_api::classRequest(index, KRT_CLASS_ADAPTER, kAdapterSetConfig, config, sizeof *config, nullptr, 0);
}

KRT_U32 KRT_Adapter_LED(KRT_U16 index, const _NVME_LED *led)
{
    if (led == nullptr)
        return 1;
    return krt_api::classRequest(index, KRT_CLASS_ADAPTER, kAdapterLED, led, sizeof *led, nullptr, 0);
}

KRT_U32 KRT_Adapter_OEM(KRT_U16)
{
    std::printf("not support now");
    return 0;
}

KRT_U32 KRT_PD_GetInfo(KRT_U16 index, void *headerAndRecords)
{
    return listRequest(index, KRT_CLASS_PD, kPDInfo, headerAndRecords, sizeof(_NVME_PD_Info));
}

KRT_U32 KRT_PD_OEM(KRT_U16 index, void *record, KRT_U16 recordSize)
{
    if (record == nullptr)
        return 1;
    std::size_t n = static_cast<std::size_t>(recordSize) + 17;
    const KRT_U16 len = static_cast<KRT_U16>(n > kReplyData ? kReplyData : n);
    return krt_api::classRequest(index, KRT_CLASS_PD, kPDOEM, record, len, record, len);
}

KRT_U32 KRT_PD_Import(KRT_U16 index, const _RequestHeader *header)
{
    if (header == nullptr)
        return 1;
    return krt_api::classRequest(index, KRT_CLASS_PD, kPDImport, header, kHeader, nullptr, 0);
}

KRT_U32 KRT_VD_GetInfo(KRT_U16 index, void *headerAndRecords)
{
    return listRequest(index, KRT_CLASS_VD, kVDInfo, headerAndRecords, sizeof(_NVME_VD_Info));
}

KRT_U32 KRT_VD_GetConfig(KRT_U16 index, void *headerAndRecords)
{
    return listRequest(index, KRT_CLASS_VD, kVDGetConfig, headerAndRecords, 24);
}

KRT_U32 KRT_VD_SetConfig(KRT_U16 index, const void *headerAndRecords)
{
    if (headerAndRecords == nullptr)
        return 1;
    return krt_api::classRequest(index, KRT_CLASS_VD, kVDSetConfig, headerAndRecords, listLength(headerAndRecords, 24),
                                 nullptr, 0);
}

KRT_U32 KRT_VD_Create(KRT_U16 index, const void *createVd)
{
    if (createVd == nullptr)
        return 1;
    before_create_vd(index);
    KRT_U32 rc = krt_api::classRequest(index, KRT_CLASS_VD, kVDCreate, createVd, KRT_CREATE_VD_SIZE, nullptr, 0);
    if (rc != 0)
        return rc;
    return static_cast<KRT_U32>(after_create_vd(index));
}

KRT_U32 KRT_VD_QuerySize(KRT_U16 index, const void *createVd, void *preCreateVd)
{
    if (createVd == nullptr || preCreateVd == nullptr)
        return 1;
    return krt_api::classRequest(index, KRT_CLASS_VD, kVDCreate, createVd, KRT_CREATE_VD_SIZE, preCreateVd,
                                 KRT_PRECREATE_VD_SIZE);
}

KRT_U32 KRT_VD_Delete(KRT_U16 index, KRT_U16 vdId)
{
    before_delete_vd(index, vdId);
    KRT_U8 in[8] = {};
    std::memcpy(in, &vdId, sizeof vdId);
    KRT_U32 rc = krt_api::classRequest(index, KRT_CLASS_VD, kVDDelete, in, sizeof in, nullptr, 0);
    if (rc != 0)
        return rc;
    return static_cast<KRT_U32>(after_delete_vd(index));
}

KRT_U32 KRT_VD_Import(KRT_U16 index, const _RequestHeader *header)
{
    if (header == nullptr)
        return 1;
    KRT_U32 rc = krt_api::classRequest(index, KRT_CLASS_VD, kVDImport, header, kHeader, nullptr, 0);
    if (rc != 0)
        return rc;
    return static_cast<KRT_U32>(after_import_vd(index));
}

KRT_U32 KRT_PD_GetBGAStatus(KRT_U16 index, void *headerAndRecords)
{
    return listRequest(index, KRT_CLASS_BGA, kBGAPDStatus, headerAndRecords, sizeof(_NVME_BGA_STATUS));
}

KRT_U32 KRT_VD_GetBGAStatus(KRT_U16 index, void *headerAndRecords)
{
    return listRequest(index, KRT_CLASS_BGA, kBGAVDStatus, headerAndRecords, sizeof(_NVME_BGA_STATUS));
}

KRT_U32 KRT_PD_BGAControl(KRT_U16 index, KRT_U16 pdId, KRT_U8 action)
{
    return bgaControl(index, kBGAPDControl, pdId, action);
}

KRT_U32 KRT_VD_BGAControl(KRT_U16 index, KRT_U16 vdId, KRT_U8 action)
{
    return bgaControl(index, kBGAVDControl, vdId, action);
}

KRT_U32 KRT_PD_MP(KRT_U16 index, KRT_U32 value)
{
    return valueRequest(index, KRT_CLASS_BGA, kBGAPDMP, value);
}

KRT_U32 KRT_VD_Init(KRT_U16 index, KRT_U16 value0, KRT_U16 value1)
{
    return valueRequest(index, KRT_CLASS_BGA, kBGAVDInit, static_cast<KRT_U32>(value0) | (KRT_U32{value1} << 16));
}

KRT_U32 KRT_VD_Rebuild(KRT_U16 index, const _NVME_Rebuild *rebuild)
{
    if (rebuild == nullptr)
        return 1;
    return krt_api::classRequest(index, KRT_CLASS_BGA, kBGAVDRebuild, rebuild, sizeof *rebuild, nullptr, 0);
}

KRT_U32 KRT_VD_Sync(KRT_U16 index, KRT_U32 value)
{
    return valueRequest(index, KRT_CLASS_BGA, kBGAVDSync, value);
}

KRT_U32 KRT_VD_Migrate(KRT_U16 index, const _NVME_Migrate *migrate)
{
    if (migrate == nullptr)
        return 1;
    return krt_api::classRequest(index, KRT_CLASS_BGA, kBGAVDMigrate, migrate, sizeof *migrate, nullptr, 0);
}

KRT_U32 KRT_VD_MP(KRT_U16 index, KRT_U32 value)
{
    return valueRequest(index, KRT_CLASS_BGA, kBGAVDMP, value);
}

KRT_U32 KRT_Event_Status(KRT_U16 index, void *out8)
{
    if (out8 == nullptr)
        return 1;
    return krt_api::classRequest(index, KRT_CLASS_EVENT, kEventStatus, nullptr, 0, out8, 8);
}

KRT_U32 KRT_NS_GetInfo_VD(KRT_U16 index, KRT_U16 vdId, _NVME_NS_Info *records, KRT_U16 count)
{
    if (records == nullptr)
        return 1;
    std::size_t n = static_cast<std::size_t>(count) * sizeof(_NVME_NS_Info);
    const KRT_U16 len = static_cast<KRT_U16>(n > kReplyData ? kReplyData : n);
    return krt_api::classRequest(index, KRT_CLASS_NS, kNSInfoVD, vdId, nullptr, 0, records, len);
}

KRT_U32 KRT_Dump_Console(KRT_U16 index, void *out4096)
{
    if (out4096 == nullptr)
        return 1;
    return krt_api::classRequest(index, KRT_CLASS_DUMP, kDumpConsole, nullptr, 0, out4096, KRT_BUFFER_SIZE);
}

KRT_U32 KRT_Dump_Status(KRT_U16 index, void *out8)
{
    if (out8 == nullptr)
        return 1;
    return krt_api::classRequest(index, KRT_CLASS_DUMP, kDumpStatus, nullptr, 0, out8, 8);
}

KRT_U32 KRT_Get_Dump_Cfg(KRT_U16 index, void *out8)
{
    if (out8 == nullptr)
        return 1;
    return krt_api::classRequest(index, KRT_CLASS_DUMP, kDumpGetCfg, nullptr, 0, out8, 8);
}

KRT_U32 KRT_Set_Dump_Cfg(KRT_U16 index, const void *in8)
{
    if (in8 == nullptr)
        return 1;
    return krt_api::classRequest(index, KRT_CLASS_DUMP, kDumpSetCfg, in8, 8, nullptr, 0);
}

KRT_U32 KRT_Page_Event(KRT_U16 index, void *page4096)
{
    if (page4096 == nullptr)
        return 0;
    // The whole page is offered; the transport keeps what a request holds.
    krt_api::classRequest(index, KRT_CLASS_DUMP, kDumpPageEvent, page4096, KRT_BUFFER_SIZE, page4096, KRT_BUFFER_SIZE);
    return 0;
}
