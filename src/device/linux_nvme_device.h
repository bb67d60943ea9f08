// The NVMe device of a Linux host: the controller's node (/dev/nvmeN), held
// open from the scan to the end of the process, takes one admin command per
// ioctl. Same operations and rules as the driver-list NVMe device.
#pragma once

#include "device/device.h"

class LinuxNVMEDevice final : public Device {
  public:
    KRT_U32 sendCommand(KRT_U8 opcode, KRT_U32 nsid, const KRT_U32 *cdws, KRT_U8 count, const void *in, KRT_U16 inLen,
                        void *out, KRT_U16 outLen) override;
    KRT_U32 sendNVM(KRT_U8 opcode, KRT_U32 nsid, const KRT_U32 *cdws, KRT_U8 count, const void *in, KRT_U16 inLen,
                    void *out, KRT_U16 outLen) override;
    KRT_U32 sendPassthruAdmin(const krt_admin_command_format *cmd, const void *in, KRT_U16 inLen, void *out,
                              KRT_U16 outLen) override;
    // Closes the node and the lock, and frees the device.
    void closeHandle() override;
    Device *getNVMEDevice() override { return this; }

    int m_fd = -1;       // the open node; -1 when it could not be opened
    char name[64] = {};  // the node's path
};

// A device over an open node (the device owns fd from here on); index
// numbers its lock as on the driver-list platform. Null when allocation
// fails, in which case fd is closed.
Device *CreateLinuxNVMEDeviceInstance(int fd, const char *path, KRT_U16 index);
