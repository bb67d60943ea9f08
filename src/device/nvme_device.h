// The NVMe device and the paired-command device, visible for the registry
// and for tests.
#pragma once

#include "device/device.h"
#include "krt/driver.h"

class NVMEDevice final : public Device {
  public:
    KRT_U32 sendCommand(KRT_U8 opcode, KRT_U32 nsid, const KRT_U32 *cdws, KRT_U8 count, const void *in, KRT_U16 inLen,
                        void *out, KRT_U16 outLen) override;
    KRT_U32 sendNVM(KRT_U8 opcode, KRT_U32 nsid, const KRT_U32 *cdws, KRT_U8 count, const void *in, KRT_U16 inLen,
                    void *out, KRT_U16 outLen) override;
    KRT_U32 sendPassthruAdmin(const krt_admin_command_format *cmd, const void *in, KRT_U16 inLen, void *out,
                              KRT_U16 outLen) override;
    void closeHandle() override;
    Device *getNVMEDevice() override { return this; }

    int m_fd = -1;  // unused by the driver path
    char name[64] = {};

  private:
    // Sends one prepared request to the adapter: -22 when it cannot be
    // opened, else the completion's status.
    KRT_U32 submit(usr_io &io, bool reportMissing);
};

class PairCMDDevice final : public Device {
  public:
    explicit PairCMDDevice(Device *inner) : m_nvme_device(inner) {}

    KRT_U32 sendCommand(KRT_U8 opcode, KRT_U32 nsid, const KRT_U32 *cdws, KRT_U8 count, const void *in, KRT_U16 inLen,
                        void *out, KRT_U16 outLen) override;
    KRT_U32 sendNVM(KRT_U8, KRT_U32, const KRT_U32 *, KRT_U8, const void *, KRT_U16, void *, KRT_U16) override
    {
        return KRT_STATUS_PAIR_NVM;
    }
    KRT_U32 sendPassthruAdmin(const krt_admin_command_format *cmd, const void *in, KRT_U16 inLen, void *out,
                              KRT_U16 outLen) override;
    void closeHandle() override;
    Device *getNVMEDevice() override { return m_nvme_device; }

    Device *m_nvme_device;
    KRT_U8 m_in_buffer[KRT_BUFFER_SIZE] = {};
    KRT_U8 m_out_buffer[KRT_BUFFER_SIZE] = {};
};

// How the transport treats an opcode of sendCommand: sent as which wire
// opcode with which time-out, or refused.
struct OpcodeRoute {
    bool allowed;
    KRT_U8 wire;
    KRT_U64 timeoutUs;
};
OpcodeRoute nvme_route_opcode(KRT_U8 opcode);
