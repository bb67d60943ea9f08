#include "device/linux_nvme_device.h"

#include <cstdio>
#include <cstring>
#include <new>

#include "device/lock.h"
#include "device/nvme_device.h"
#include "platform/linux_nvme.h"
#include "util/log.h"

namespace {

// A command moves data one way only, and input wins over output; the
// opcode tells the driver which way.
void setData(LinuxAdminCommand &cmd, const void *in, KRT_U16 inLen, void *out, KRT_U16 outLen)
{
    if (inLen != 0) {
        cmd.addr = reinterpret_cast<KRT_U64>(in);
        cmd.data_len = inLen;
    } else {
        cmd.addr = reinterpret_cast<KRT_U64>(out);
        cmd.data_len = outLen;
    }
}

// CDW10-CDW15 are all the submission entry has room for.
void setWords(LinuxAdminCommand &cmd, const KRT_U32 *cdws, KRT_U8 count)
{
    if (cdws == nullptr)
        return;
    KRT_U32 *words[6] = {&cmd.cdw10, &cmd.cdw11, &cmd.cdw12, &cmd.cdw13, &cmd.cdw14, &cmd.cdw15};
    for (int i = 0; i < count && i < 6; ++i)
        *words[i] = cdws[i];
}

// Sends the command; a failed ioctl is traced with its reason.
KRT_U32 submit(int fd, LinuxAdminCommand &cmd)
{
    int error = 0;
    const KRT_U32 status = LinuxNvme_AdminPassthru(fd, &cmd, &error);
    if (error != 0)
        add_log("NVME_IOCTL_ADMIN_CMD opcode 0x%x on fd %d failed: %s\n", cmd.opcode, fd, std::strerror(error));
    return status;
}

constexpr KRT_U32 timeoutMs(KRT_U64 timeoutUs)
{
    return static_cast<KRT_U32>(timeoutUs / 1000);
}

}  // namespace

KRT_U32 LinuxNVMEDevice::sendCommand(KRT_U8 opcode, KRT_U32 nsid, const KRT_U32 *cdws, KRT_U8 count, const void *in,
                                     KRT_U16 inLen, void *out, KRT_U16 outLen)
{
    const OpcodeRoute route = nvme_route_opcode(opcode);
    if (!route.allowed)
        return KRT_STATUS_LOCAL_FAILURE;
    if (m_fd < 0)
        return KRT_STATUS_NO_ADAPTER;

    LinuxAdminCommand cmd{};
    cmd.opcode = route.wire;
    cmd.nsid = nsid;
    setWords(cmd, cdws, count);
    setData(cmd, in, inLen, out, outLen);
    cmd.timeout_ms = timeoutMs(route.timeoutUs);
    return submit(m_fd, cmd);
}

KRT_U32 LinuxNVMEDevice::sendNVM(KRT_U8 opcode, KRT_U32 nsid, const KRT_U32 *cdws, KRT_U8 count, const void *in,
                                 KRT_U16 inLen, void *out, KRT_U16 outLen)
{
    // NVM I/O is built and traced, never sent, whichever platform the
    // controller sits on: the driver-list device does exactly that without
    // touching its adapter.
    static NVMEDevice *const tracer = new NVMEDevice;
    return tracer->sendNVM(opcode, nsid, cdws, count, in, inLen, out, outLen);
}

KRT_U32 LinuxNVMEDevice::sendPassthruAdmin(const krt_admin_command_format *command, const void *in, KRT_U16 inLen,
                                           void *out, KRT_U16 outLen)
{
    if (command == nullptr)
        return KRT_STATUS_LOCAL_FAILURE;
    if (m_fd < 0)
        return KRT_STATUS_NO_ADAPTER;

    // Dword 0 carries the opcode and the fused bits; the driver numbers the
    // command itself.
    LinuxAdminCommand cmd{};
    cmd.opcode = static_cast<KRT_U8>(command->CDW[0] & 0xFF);
    cmd.flags = static_cast<KRT_U8>((command->CDW[0] >> 8) & 0xFF);
    cmd.nsid = command->CDW[1];
    cmd.cdw2 = command->CDW[2];
    setWords(cmd, &command->CDW[10], 6);
    setData(cmd, in, inLen, out, outLen);
    cmd.timeout_ms = timeoutMs(KRT_ADMIN_TIMEOUT_US);
    return submit(m_fd, cmd);
}

void LinuxNVMEDevice::closeHandle()
{
    if (m_lock != nullptr)
        m_lock->close();
    m_lock = nullptr;
    LinuxNvme_Close(m_fd);
    m_fd = -1;
    delete this;
}

Device *CreateLinuxNVMEDeviceInstance(int fd, const char *path, KRT_U16 index)
{
    auto *dev = new (std::nothrow) LinuxNVMEDevice;
    if (dev == nullptr) {
        LinuxNvme_Close(fd);
        return nullptr;
    }
    dev->m_fd = fd;
    if (path != nullptr)
        std::snprintf(dev->name, sizeof dev->name, "%s", path);
    dev->m_lock = CreateKRTLockInstance(index);
    return dev;
}
