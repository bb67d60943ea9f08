// The vendor get-information request shared by every object of info.
#include <cstring>

#include "api/krt_api.h"
#include "commands/info.h"
#include "commands/request_words.h"
#include "util/state.h"

std::unique_ptr<_NVMEReceiveData> newReply()
{
    return std::make_unique<_NVMEReceiveData>();
}

bool sendInfoQuery(KRT_U16 adapter, const InfoQuery &query, _NVMEReceiveData &reply)
{
    krt_admin_command_format cmd{};
    cmd.CDW[0] = KRT_VENDOR_OPCODE;
    cmd.CDW[12] = krt_cdw12(query.opcode, query.subOpcode, query.unit);
    cmd.cdw_flag = (1u << 0) | (1u << 12);
    if (query.hasId) {
        cmd.CDW[14] = query.id;
        cmd.cdw_flag |= 1u << 14;
    }

    if (query.hasId)
        printRequestWords(cmd, {0, 12, 14});
    else
        printRequestWords(cmd, {0, 12});

    // The transport status is decoded and shown by the API; what counts here
    // is the reply head, which stays zeroed when nothing came back.
    KRT_Adapter_PassthruAdmin(adapter, &cmd, nullptr, 0, &reply, sizeof(reply));

    bool signOk = std::memcmp(reply.sign, KRT_SIGN, sizeof(KRT_SIGN)) == 0;
    if (dbg_enable) {
        if (signOk) {
            std::fprintf(stream, "cmd_status: 0x%x\n", reply.cmd_status);
        } else {
            std::fprintf(stream, "receive sign get 0x%x 0x%x 0x%x expect 0x%x 0x%x 0x%x\n", reply.sign[0],
                         reply.sign[1], reply.sign[2], KRT_SIGN[0], KRT_SIGN[1], KRT_SIGN[2]);
        }
    }
    return signOk;
}

bool replyGood(const _NVMEReceiveData &reply)
{
    return std::memcmp(reply.sign, KRT_SIGN, sizeof(KRT_SIGN)) == 0 && reply.cmd_status == 0;
}

const _NVME_Adapter_Info &currentAdapterInfo()
{
    static const _NVME_Adapter_Info none{};
    if (g_pAdInfos == nullptr || gCurrentAdapter >= gNumAdaptersFound) {
        return none;
    }
    return g_pAdInfos[gCurrentAdapter];
}

bool adapterIsRaid(const _NVME_Adapter_Info &info)
{
    return (info.Features & KRT_FEATURE_RAID) != 0;
}
