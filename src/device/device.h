// A device is the object every request to a controller goes through. Three
// kinds exist: the NVMe device talks to the driver one admin command at a
// time; the paired-command device wraps an NVMe device and carries the
// controller's management requests as a send/receive pair; the default
// device is the shared placeholder whose operations all fail.
#pragma once

#include "krt/admin.h"
#include "krt/types.h"

struct KRTLock;

class Device {
  public:
    Device() = default;
    Device(const Device &) = delete;
    Device &operator=(const Device &) = delete;

    KRTLock *m_lock = nullptr;

    // All results: 0 success, (SCT << 8) + SC from the controller, 1 refused
    // or failed locally, -22 (as unsigned) when the adapter cannot be opened.
    virtual KRT_U32 sendCommand(KRT_U8 opcode, KRT_U32 nsid, const KRT_U32 *cdws, KRT_U8 count, const void *in,
                                KRT_U16 inLen, void *out, KRT_U16 outLen) = 0;
    virtual KRT_U32 sendNVM(KRT_U8 opcode, KRT_U32 nsid, const KRT_U32 *cdws, KRT_U8 count, const void *in,
                            KRT_U16 inLen, void *out, KRT_U16 outLen) = 0;
    virtual KRT_U32 sendPassthruAdmin(const krt_admin_command_format *cmd, const void *in, KRT_U16 inLen, void *out,
                                      KRT_U16 outLen) = 0;
    // Frees the device (and what it owns). The placeholder stays.
    virtual void closeHandle() = 0;
    // The device that talks to the driver.
    virtual Device *getNVMEDevice() = 0;

    char bus_dev_fun[32] = {};   // "bb:dd.ff"
    char device_path[256] = {};  // the driver's adapter name
    char subnqn[256] = {};       // selection text from Identify Controller
    int slot_id = 0;             // motherboard slot from SMBIOS, -1 when not found

  protected:
    virtual ~Device() = default;
};

constexpr KRT_U32 KRT_STATUS_LOCAL_FAILURE = 1;
constexpr KRT_U32 KRT_STATUS_NO_ADAPTER = static_cast<KRT_U32>(-22);
constexpr KRT_U32 KRT_STATUS_PAIR_NVM = 5;

// An NVMe device on the driver's adapter of that name; index numbers its
// lock. Null when allocation fails.
Device *CreateNVMEDeviceInstance(const char *name, KRT_U16 index);
// A paired-command device that owns inner. Null when allocation fails.
Device *CreatePairCMDDeviceInstance(Device *inner);
// The shared placeholder.
Device *CreateDefaultDeviceInstance();
