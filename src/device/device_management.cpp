#include "device/device_management.h"

#include <dirent.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "device/linux_nvme_device.h"
#include "device/smbios.h"
#include "krt/admin.h"
#include "krt/ids.h"
#include "krt/records.h"
#include "platform/linux_nvme.h"
#include "platform/nvme_lib.h"
#include "platform/vmkmgmt.h"
#include "util/log.h"

KRT_U16 gVIDFormCLI = 0;

namespace {

// The adapter information request shared by the device-ID check and the PCI address.
KRT_U32 readAdapterInfo(Device *dev, KRT_U8 (&reply)[KRT_BUFFER_SIZE])
{
    krt_admin_command_format cmd{};
    cmd.CDW[0] = KRT_VENDOR_OPCODE;
    cmd.CDW[12] = KRT_CLASS_ADAPTER;
    cmd.cdw_flag = 0x1001;
    std::memset(reply, 0, sizeof reply);
    return dev->sendPassthruAdmin(&cmd, nullptr, 0, reply, sizeof reply);
}

KRT_U32 identifyController(Device *dev, KRT_U8 (&data)[NVME_IDENTIFY_SIZE])
{
    const KRT_U32 cdw10 = NVME_CNS_CONTROLLER;
    std::memset(data, 0, sizeof data);
    return dev->sendCommand(NVME_ADMIN_IDENTIFY, 0, &cdw10, 1, nullptr, 0, data, sizeof data);
}

// Offsets of the adapter information within the reply buffer.
constexpr int kInfo = KRT_REPLY_DATA_OFFSET;

}  // namespace

int DeviceManagement_identify(Device *dev)
{
    KRT_U8 data[NVME_IDENTIFY_SIZE];
    if (dev == nullptr || identifyController(dev, data) != 0)
        return 0;
    const KRT_U16 vid = static_cast<KRT_U16>(data[NVME_ID_VID] | (data[NVME_ID_VID + 1] << 8));
    // With "--vid" the user names the vendor: nothing more is asked of it.
    if (gVIDFormCLI != 0)
        return vid == gVIDFormCLI ? 1 : 0;
    if (vid != KRT_PCI_VENDOR_ID)
        return 0;
    return DeviceManagement_DeviceID(dev) == 1 ? 1 : 0;
}

int DeviceManagement_DeviceID(Device *dev)
{
    KRT_U8 reply[KRT_BUFFER_SIZE];
    if (readAdapterInfo(dev, reply) != 0)
        return 0;
    const int at = kInfo + static_cast<int>(offsetof(_NVME_Adapter_Info, DID));
    const KRT_U16 did = static_cast<KRT_U16>(reply[at] | (reply[at + 1] << 8));
    return did == KRT_PCI_DEVICE_ID ? 1 : 0;
}

KRT_U32 GetBDFfromSimpleAdapterInfo(Device *dev, char *bdf)
{
    KRT_U8 reply[KRT_BUFFER_SIZE];
    KRT_U32 rc = readAdapterInfo(dev, reply);
    if (rc != 0)
        return rc;
    const KRT_U8 fn = reply[kInfo + offsetof(_NVME_Adapter_Info, FunctionNumber)];
    const KRT_U8 devNo = reply[kInfo + offsetof(_NVME_Adapter_Info, DeviceNumber)];
    const KRT_U8 bus = reply[kInfo + offsetof(_NVME_Adapter_Info, BusNumber)];
    unsigned device = devNo;
    unsigned function = fn;
    // Some firmware reports device and function packed into one byte.
    if (fn >= 8) {
        device = fn >> 3;
        function = fn & 7;
    }
    std::snprintf(bdf, 32, "%02x:%02x.%02x", static_cast<unsigned>(bus), device, function);
    return 0;
}

KRT_U32 get_identify_subnqn(Device *dev, char *subnqn)
{
    KRT_U8 data[NVME_IDENTIFY_SIZE];
    KRT_U32 rc = identifyController(dev, data);
    if (rc != 0)
        return rc;
    for (int i = 0; i < 60; ++i) {
        const char c = static_cast<char>(data[NVME_ID_SUBNQN + i]);
        subnqn[i] = c == '\0' ? ' ' : c;
    }
    char tail[32] = {};
    std::snprintf(tail, sizeof tail, "%d", static_cast<int>(data[NVME_ID_SUBNQN + 60]));
    std::memcpy(subnqn + 60, tail, sizeof tail);
    return 0;
}

DeviceManagement::DeviceManagement() : m_smbios_path(SMBIOS_TABLE_PATH)
{
    for (auto &slot : m_devs)
        slot = CreateDefaultDeviceInstance();
}

void DeviceManagement::admit(Device *nvme, const char *path)
{
    add_log("device is not null? %d\n", nvme != nullptr ? 1 : 0);
    if (nvme == nullptr)
        return;
    if (DeviceManagement_identify(nvme) != 1) {
        nvme->closeHandle();
        return;
    }
    Device *dev = CreatePairCMDDeviceInstance(nvme);
    if (dev == nullptr) {
        nvme->closeHandle();
        return;
    }
    m_devs[m_count] = dev;
    std::snprintf(dev->device_path, sizeof dev->device_path, "%s", path);
    GetBDFfromSimpleAdapterInfo(nvme, dev->bus_dev_fun);
    dev->slot_id = get_SMBIOS_slot_ID(dev->bus_dev_fun, m_smbios_path);
    add_log("_this->m_devs[_this->m_count]->slot_id=%d\n", dev->slot_id);
    get_identify_subnqn(nvme, dev->subnqn);
    ++m_count;
}

namespace {

// A name holding "nvme" followed by digits only: nvme0n1 (a namespace),
// nvme-fabrics and the like are not controllers.
bool isControllerNode(const char *name)
{
    const char *at = std::strstr(name, "nvme");
    if (at == nullptr || at[4] == '\0')
        return false;
    for (const char *c = at + 4; *c != '\0'; ++c) {
        if (*c < '0' || *c > '9')
            return false;
    }
    return true;
}

}  // namespace

int DeviceManagement::Scan(const char *dir)
{
    DIR *listing = opendir(dir);
    if (listing == nullptr) {
        add_log("open dir %s error: %s\n", dir, std::strerror(errno));
        return 0;
    }
    int nodes = 0;
    while (const dirent *entry = readdir(listing)) {
        if (!isControllerNode(entry->d_name))
            continue;
        ++nodes;
        if (m_count >= KRT_MAX_DEVICES)
            break;
        char path[sizeof Device::device_path];
        // A path cut short would name another node: such an entry is skipped.
        const int length = std::snprintf(path, sizeof path, "%s/%s", dir, entry->d_name);
        if (length < 0 || static_cast<std::size_t>(length) >= sizeof path)
            continue;
        const int fd = LinuxNvme_Open(path);
        if (fd < 0) {
            if (errno == EACCES) {
                m_sysDenied = 1;
            } else {
                add_log("open file %s error: %s\n", path, std::strerror(errno));
            }
            break;
        }
        Device *nvme = CreateLinuxNVMEDeviceInstance(fd, path, m_count);
        admit(nvme, path);
    }
    closedir(listing);

    // The registry's order by path: each neighbour pair whose texts differ
    // is swapped, as the scan has always done. With distinct paths that
    // turns the directory's listing order around.
    for (int pass = 0; pass + 1 < m_count; ++pass) {
        for (int i = 0; i + 1 < m_count - pass; ++i) {
            if (std::strcmp(m_devs[i]->device_path, m_devs[i + 1]->device_path) != 0)
                std::swap(m_devs[i], m_devs[i + 1]);
        }
    }
    return nodes;
}

void DeviceManagement::ScanV2()
{
    nvme_adapter_list *list = adapterList();
    if (Nvme_GetAdapterList(list) != 0) {
        std::printf("Failed to initialize NVMe.");
        std::fflush(stdout);
        return;
    }
    const KRT_U32 count = nvme_adapter_count(list);
    for (KRT_U32 i = 0; i < count; ++i) {
        if (m_count >= KRT_MAX_DEVICES)
            break;
        Device *nvme = CreateNVMEDeviceInstance(list->adapters[i].name, m_count);
        admit(nvme, list->adapters[i].name);
    }
}

void DeviceManagement::Final()
{
    for (KRT_U16 i = 0; i < m_count; ++i) {
        m_devs[i]->closeHandle();
        // A closed device must not be reached again through its slot.
        m_devs[i] = CreateDefaultDeviceInstance();
    }
    m_one_base_mode = 0;
    m_count = 0;
}

Device *DeviceManagement::getDevice(KRT_U16 index)
{
    if (index >= KRT_MAX_DEVICES)
        return CreateDefaultDeviceInstance();
    return m_devs[index];
}

KRT_U16 *DeviceManagement::getDeviceVID()
{
    return &gVIDFormCLI;
}

KRT_U8 DeviceManagement::getOneBaseMode()
{
    m_one_base_mode = 0;
    return 0;
}

bool DeviceManagement_hasAdapterList()
{
    return vmkmgmt_entry_points() != nullptr;
}

DeviceManagement *GetDeviceManagementInstance()
{
    static DeviceManagement instance;
    return &instance;
}
