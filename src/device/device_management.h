// The registry of the controllers found at start-up. Every command reaches a
// controller through it by a zero-based adapter index.
#pragma once

#include "device/device.h"
#include "krt/types.h"

constexpr int KRT_MAX_DEVICES = 1088;
// Where a Linux host's NVMe driver puts the controllers' nodes.
constexpr const char *KRT_DEVICE_DIR = "/dev";

class DeviceManagement {
  public:
    // Every slot starts at the shared placeholder, never null.
    DeviceManagement();
    DeviceManagement(const DeviceManagement &) = delete;
    DeviceManagement &operator=(const DeviceManagement &) = delete;

    // The scan of a Linux host's controller nodes: every "nvme<digits>" of
    // dir, opened read-write and accepted by the same test as ScanV2, then
    // sorted by path. A node the user may not open sets m_sysDenied. The
    // result is the number of nodes named like a controller (0: this host
    // exposes none, e.g. it is not a Linux host).
    int Scan(const char *dir = KRT_DEVICE_DIR);
    // Registers every controller of the driver's adapter list that passes
    // the acceptance test, in list order.
    void ScanV2();
    // Closes every registered device.
    void Final();

    Device *getDevice(KRT_U16 index);
    KRT_U16 getDeviceCount() const { return m_count; }
    const char *getDeviceFun(KRT_U16 index) { return getDevice(index)->bus_dev_fun; }
    const char *getDevicePath(KRT_U16 index) { return getDevice(index)->device_path; }
    int getSlotID(KRT_U16 index) { return getDevice(index)->slot_id; }
    const char *getDeviceSUBNQN(KRT_U16 index) { return getDevice(index)->subnqn; }
    KRT_U16 *getDeviceVID();
    KRT_U8 isSysDenied() const { return m_sysDenied; }
    // One-base numbering is never switched on: the flag is cleared and 0 returned.
    KRT_U8 getOneBaseMode();

    Device *m_devs[KRT_MAX_DEVICES];
    KRT_U16 m_count = 0;
    KRT_U8 m_sysDenied = 0;
    KRT_U8 m_one_base_mode = 0;
    // Where the SMBIOS table is read from.
    const char *m_smbios_path;

  private:
    // Registers a new NVMe device under path when it passes the acceptance
    // test (wrapped, with its PCI address, slot and SUBNQN text); closes it
    // otherwise.
    void admit(Device *nvme, const char *path);
};

DeviceManagement *GetDeviceManagementInstance();

// True when the platform's management library (and so the driver's adapter
// list) can be had: ScanV2 is the way in; otherwise Scan is.
bool DeviceManagement_hasAdapterList();

// The vendor-ID filter of "--vid" (0: none).
extern KRT_U16 gVIDFormCLI;

// Acceptance test: 1 when the device answers Identify as a controller to manage.
int DeviceManagement_identify(Device *dev);
// 1 when the adapter information names the managed controller's device ID.
int DeviceManagement_DeviceID(Device *dev);
// Fills bdf (32 bytes) from the adapter information; the request's status.
KRT_U32 GetBDFfromSimpleAdapterInfo(Device *dev, char *bdf);
// Fills subnqn (at least 92 bytes) from Identify Controller; the request's status.
KRT_U32 get_identify_subnqn(Device *dev, char *subnqn);
