#include "device/nvme_device.h"

#include <cstdio>
#include <cstring>
#include <new>

#include "device/lock.h"
#include "platform/nvme_lib.h"
#include "util/log.h"

namespace {

// Fills the data fields of a request: a command moves data one way only,
// and input wins over output.
void setData(usr_io &io, const void *in, KRT_U16 inLen, void *out, KRT_U16 outLen)
{
    if (inLen != 0) {
        io.addr = reinterpret_cast<KRT_U64>(in);
        io.length = inLen;
        io.direction = XFER_TO_DEV;
    } else {
        io.addr = reinterpret_cast<KRT_U64>(out);
        io.length = outLen;
        io.direction = XFER_FROM_DEV;
    }
}

}  // namespace

OpcodeRoute nvme_route_opcode(KRT_U8 opcode)
{
    switch (opcode) {
        case NVME_ADMIN_GET_LOG_PAGE:
        case NVME_ADMIN_IDENTIFY:
        case NVME_ADMIN_NS_MGMT:
        case NVME_ADMIN_NS_ATTACH:
        case NVME_ADMIN_FORMAT_NVM:
        case NVME_ADMIN_VENDOR_C7:
        case NVME_ADMIN_FW_DOWNLOAD:
        case NVME_ADMIN_MI_SEND:
        case NVME_ADMIN_MI_RECEIVE:
            return {true, opcode, KRT_ADMIN_TIMEOUT_US};
        case NVME_ADMIN_FW_COMMIT:
            // Activating an image can take the controller well past the usual wait.
            return {true, opcode, KRT_FW_COMMIT_TIMEOUT_US};
        case KRT_PAIR_SEND_OPCODE:
            return {true, KRT_PAIR_SEND_WIRE, KRT_ADMIN_TIMEOUT_US};
        case KRT_PAIR_RECEIVE_OPCODE:
            return {true, KRT_PAIR_RECEIVE_WIRE, KRT_ADMIN_TIMEOUT_US};
        default:
            return {false, 0, 0};
    }
}

KRT_U32 NVMEDevice::submit(usr_io &io, bool reportMissing)
{
    nvme_handle *handle = Nvme_Open(adapterList(), name);
    if (handle == nullptr) {
        if (reportMissing) {
            std::printf("Invalid argument: vmhba not found or vmhba not an NVM Express controller.");
            std::fflush(stdout);
        }
        return KRT_STATUS_NO_ADAPTER;
    }
    int rc = Nvme_AdminPassthru(handle, &io);
    Nvme_Close(handle);
    if (rc == 0)
        return 0;
    // A failed driver call with a clean completion counts as success: the
    // completion is what the controller said.
    return nvme_comp_status(io.comp[3]);
}

KRT_U32 NVMEDevice::sendCommand(KRT_U8 opcode, KRT_U32 nsid, const KRT_U32 *cdws, KRT_U8 count, const void *in,
                                KRT_U16 inLen, void *out, KRT_U16 outLen)
{
    OpcodeRoute route = nvme_route_opcode(opcode);
    if (!route.allowed)
        return KRT_STATUS_LOCAL_FAILURE;

    usr_io io{};
    io.cmd[0] = route.wire;
    io.cmd[1] = nsid;
    // CDW10-CDW15 are all the submission entry has room for.
    const int words = count > 6 ? 6 : count;
    for (int i = 0; i < words && cdws != nullptr; ++i)
        io.cmd[10 + i] = cdws[i];
    setData(io, in, inLen, out, outLen);
    io.timeoutUs = route.timeoutUs;
    return submit(io, false);
}

KRT_U32 NVMEDevice::sendNVM(KRT_U8 opcode, KRT_U32 nsid, const KRT_U32 *cdws, KRT_U8 count, const void *in,
                            KRT_U16 inLen, void *out, KRT_U16 outLen)
{
    switch (opcode) {
        case 1:
        case 2:
        case 4:
        case 5:
        case 8:
            break;
        default:
            return KRT_STATUS_LOCAL_FAILURE;
    }
    // No command of the tool moves NVM data: the request is built and
    // traced, never sent.
    usr_io io{};
    io.cmd[0] = opcode;
    io.cmd[1] = nsid;
    const int words = count > 6 ? 6 : count;
    for (int i = 0; i < words && cdws != nullptr; ++i)
        io.cmd[10 + i] = cdws[i];
    setData(io, in, inLen, out, outLen);
    add_log(
        "NVME_IOCTL_ADMIN_CMD opcode 0x%x, data len is 0x%x, \ncdw10 0x%x, \ncdw11 0x%x,  \ncdw12 0x%x,  \ncdw13 "
        "0x%x,  \ncdw14 0x%x,  \ncdw15: 0x%x\n",
        io.cmd[0], io.length, io.cmd[10], io.cmd[11], io.cmd[12], io.cmd[13], io.cmd[14], io.cmd[15]);
    return 0;
}

KRT_U32 NVMEDevice::sendPassthruAdmin(const krt_admin_command_format *cmd, const void *in, KRT_U16 inLen, void *out,
                                      KRT_U16 outLen)
{
    if (cmd == nullptr)
        return KRT_STATUS_LOCAL_FAILURE;
    usr_io io{};
    io.cmd[0] = cmd->CDW[0];
    io.cmd[1] = cmd->CDW[1];
    io.cmd[2] = cmd->CDW[2];
    for (int i = 10; i <= 15; ++i)
        io.cmd[i] = cmd->CDW[i];
    setData(io, in, inLen, out, outLen);
    io.timeoutUs = KRT_ADMIN_TIMEOUT_US;
    return submit(io, true);
}

void NVMEDevice::closeHandle()
{
    if (m_lock != nullptr)
        m_lock->close();
    m_lock = nullptr;
    delete this;
}

Device *CreateNVMEDeviceInstance(const char *adapterName, KRT_U16 index)
{
    auto *dev = new (std::nothrow) NVMEDevice;
    if (dev == nullptr)
        return nullptr;
    if (adapterName != nullptr)
        std::snprintf(dev->name, sizeof dev->name, "%s", adapterName);
    dev->m_lock = CreateKRTLockInstance(index);
    return dev;
}
