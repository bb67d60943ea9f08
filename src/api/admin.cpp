// Plain admin commands, raw pass-through, the direct vendor requests and the
// firmware download hand-off.
#include <cstdio>
#include <cstring>

#include "api/api_internal.h"
#include "api/krt_api.h"
#include "firmware/flash.h"
#include "util/state.h"

namespace {

constexpr KRT_U16 kFlagCdw0Cdw12 = 0x1001;
constexpr KRT_U16 kFlagCdw14 = 0x5001;
constexpr KRT_U16 kFlagCdw13Cdw14 = 0x7001;

krt_admin_command_format directRequest(KRT_U32 cdw12, KRT_U16 flag)
{
    krt_admin_command_format cmd{};
    cmd.CDW[0] = KRT_VENDOR_OPCODE;
    cmd.CDW[12] = cdw12;
    cmd.cdw_flag = flag;
    return cmd;
}

bool goodHead(const _NVMEReceiveData &reply)
{
    return std::memcmp(reply.sign, KRT_SIGN, sizeof KRT_SIGN) == 0;
}

}  // namespace

void krt_api::fillAdapterDefaults(_NVME_Adapter_Info &info)
{
    if (info.MaxPD == 0)
        info.MaxPD = info.PortCount;
    if (info.MaxFlashSize == 0)
        info.MaxFlashSize = 0x800000;
}

KRT_U32 KRT_Adapter_Admin(KRT_U16 index, KRT_U8 opcode, KRT_U32 nsid, const KRT_U32 *cdws, KRT_U8 count, const void *in,
                          KRT_U16 inLen, void *out, KRT_U16 outLen)
{
    KRT_U32 rc =
        krt_api::device(index)->getNVMEDevice()->sendCommand(opcode, nsid, cdws, count, in, inLen, out, outLen);
    _showStatusCode(rc);
    return rc;
}

KRT_U32 KRT_Adapter_NVM(KRT_U16 index, KRT_U8 opcode, KRT_U32 nsid, const KRT_U32 *cdws, KRT_U8 count, const void *in,
                        KRT_U16 inLen, void *out, KRT_U16 outLen)
{
    return krt_api::device(index)->getNVMEDevice()->sendNVM(opcode, nsid, cdws, count, in, inLen, out, outLen);
}

KRT_U32 KRT_Adapter_PassthruAdmin(KRT_U16 index, const krt_admin_command_format *cmd, const void *in, KRT_U16 inLen,
                                  void *out, KRT_U16 outLen)
{
    KRT_U32 rc = KRT_Adapter_PassthruAdmin_no_status_code(index, cmd, in, inLen, out, outLen);
    _showStatusCode(rc);
    return rc;
}

KRT_U32 KRT_Adapter_PassthruAdmin_no_status_code(KRT_U16 index, const krt_admin_command_format *cmd, const void *in,
                                                 KRT_U16 inLen, void *out, KRT_U16 outLen)
{
    return krt_api::device(index)->getNVMEDevice()->sendPassthruAdmin(cmd, in, inLen, out, outLen);
}

KRT_U32 KRT_Adapter_GetSimpleInfo(KRT_U16 index, _NVME_Adapter_Info *info)
{
    const krt_admin_command_format cmd = directRequest(KRT_CLASS_ADAPTER, kFlagCdw0Cdw12);
    _NVMEReceiveData reply{};
    KRT_U32 rc = KRT_Adapter_PassthruAdmin_no_status_code(index, &cmd, nullptr, 0, &reply, sizeof reply);
    if (rc != 0) {
        if (dbg_enable)
            std::fprintf(stream, "\nUnable to get info of NVMe Controller %s", "\n");
        return rc;
    }
    if (info != nullptr) {
        std::memcpy(info, reply.data, sizeof *info);
        krt_api::fillAdapterDefaults(*info);
    }
    return 0;
}

KRT_U32 KRT_Adapter_GetSimpleVDInfo(KRT_U16 /*index*/, KRT_U16 vdId, _NVME_VD_Info *info)
{
    // Always the controller the user selected, whatever index is passed.
    const KRT_U16 index = gCurrentAdapter;
    krt_admin_command_format cmd = directRequest(KRT_CLASS_VD, kFlagCdw14);
    cmd.CDW[14] = vdId;
    if (dbg_enable) {
        std::fprintf(stream, "CDW[0] : 0x%08x\n", cmd.CDW[0]);
        std::fprintf(stream, "CDW[12]: 0x%08x\n", cmd.CDW[12]);
        std::fprintf(stream, "CDW[14]: 0x%08x\n", cmd.CDW[14]);
    }
    _NVMEReceiveData reply{};
    KRT_Adapter_PassthruAdmin(index, &cmd, nullptr, 0, &reply, sizeof reply);
    if (!goodHead(reply))
        return 1;
    if (reply.cmd_status != 0)
        return reply.cmd_status;
    if (info != nullptr)
        std::memcpy(info, reply.data, sizeof *info);
    return 0;
}

KRT_U32 KRT_NS_GetInfo(KRT_U16 index, _NVME_NS_Info *records, KRT_U16 count)
{
    const krt_admin_command_format cmd = directRequest(KRT_CLASS_NS, kFlagCdw0Cdw12);
    _NVMEReceiveData reply{};
    KRT_Adapter_PassthruAdmin(index, &cmd, nullptr, 0, &reply, sizeof reply);
    if (!goodHead(reply) || reply.cmd_status != 0)
        return 1;
    if (records != nullptr) {
        std::size_t n = static_cast<std::size_t>(count) * sizeof(_NVME_NS_Info);
        if (n > sizeof reply.data)
            n = sizeof reply.data;
        std::memcpy(records, reply.data, n);
    }
    return 0;
}

KRT_U32 KRT_Adapter_SetTime(KRT_U16 index, const _NVME_Adapter_Time *time)
{
    if (time == nullptr)
        return 1;
    krt_admin_command_format cmd = directRequest(KRT_SET_TIME_CDW12, kFlagCdw13Cdw14);
    cmd.CDW[13] = (static_cast<KRT_U32>(time->mid) << 16) + time->hi;
    cmd.CDW[14] = time->lw;
    return krt_api::device(index)->getNVMEDevice()->sendPassthruAdmin(&cmd, nullptr, 0, nullptr, 0);
}

KRT_U32 KRT_Adapter_Flash(KRT_U16 index, const char *path, KRT_U8 slot, KRT_U8 ca, KRT_U8 type)
{
    // One update at a time: the worker's argument is a single record.
    static _KRTFlashData data;
    data = _KRTFlashData{static_cast<KRT_U8>(index), 0, slot, ca, type, path};
    _KRTProgressBar *bar = progressbar_management_get_instance(index);
    // A worker that cannot start must not read as a finished update.
    if (bar != nullptr && bar->startThread(GetAdapterNvmeFlashAdapterFucntion(), &data, sizeof data) != 0)
        bar->setResult(KRT_STATUS_LOCAL_FAILURE);
    return 0;
}

KRT_U32 KRT_Adapter_Flash_Result(KRT_U16 index, _NVME_Flash_Result *result)
{
    _KRTProgressBar *bar = progressbar_management_find(index);
    if (bar == nullptr || result == nullptr)
        return 1;
    result->percentage = bar->getPercentage();
    result->status = bar->getStatus();
    result->result = bar->getResult();
    return 0;
}
