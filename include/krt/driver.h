// The NVMe driver's management interface on the platform library: the
// signatures the tool registers with, the adapter list and the 120-byte
// request record of the admin pass-through.
#pragma once

#include "krt/types.h"

constexpr KRT_U32 NVME_MGMT_VERSION = 0x01000000;  // 1.0.0.0
constexpr const char *NVME_MGMT_NAME = "nvmeMgmt";
constexpr const char *NVME_MGMT_VENDOR = "VMware";
constexpr KRT_U64 NVME_MGMT_INSTANCE = 0;

// Callbacks of the global "nvmeMgmt" signature.
constexpr KRT_U64 NVME_MGMT_CB_LIST_ADAPTERS = 16;  // u32 count (out), adapter array (out)
constexpr KRT_U64 NVME_MGMT_CB_SET_LOG_LEVEL = 17;  // u32 (in), u32 (in)
// Callbacks of a per-adapter signature (named by the adapter's signature text).
constexpr KRT_U64 NVME_MGMT_CB_ADAPTER_INFO = 16;  // u32 (in), 208 bytes (out)
constexpr KRT_U64 NVME_MGMT_CB_IOCTL = 17;         // u32 command (in), usr_io (in/out)
constexpr KRT_U32 NVME_MGMT_ADAPTER_INFO_SIZE = 208;

// Commands of the pass-through callback.
constexpr KRT_U32 NVME_IOCTL_ADMIN_CMD = 1;
constexpr KRT_U32 NVME_IOCTL_IO_CMD = 2;

constexpr int NVME_MAX_ADAPTERS = 64;

#pragma pack(push, 1)

struct nvmeAdapterInfo {
    char name[32];       // vmhba name, NUL-terminated
    char signature[32];  // name of the adapter's own management signature
    KRT_U64 status;
    KRT_U64 cookie;
};
KRT_CHECK_SIZE(nvmeAdapterInfo, 80);
KRT_CHECK_OFFSET(nvmeAdapterInfo, signature, 32);
KRT_CHECK_OFFSET(nvmeAdapterInfo, status, 64);
KRT_CHECK_OFFSET(nvmeAdapterInfo, cookie, 72);

struct nvme_adapter_list {
    KRT_U32 count;
    KRT_U8 pad[4];
    nvmeAdapterInfo adapters[NVME_MAX_ADAPTERS];
};
KRT_CHECK_SIZE(nvme_adapter_list, 8 + 64 * 80);
KRT_CHECK_OFFSET(nvme_adapter_list, adapters, 8);

// Data direction of a pass-through request.
constexpr KRT_U8 XFER_TO_DEV = 0;  // host to controller, or no data
constexpr KRT_U8 XFER_FROM_DEV = 1;

// Completion dword 3 status field.
constexpr KRT_U32 NVME_COMP_SC_SHIFT = 17;
constexpr KRT_U32 NVME_COMP_SC_MASK = 0xFF;
constexpr KRT_U32 NVME_COMP_SCT_SHIFT = 25;
constexpr KRT_U32 NVME_COMP_SCT_MASK = 0x7;

struct usr_io {
    KRT_U32 cmd[16];  // submission entry; dwords 10-15 are CDW10-CDW15
    KRT_U32 comp[4];  // completion entry
    KRT_U8 namespaceID;
    KRT_U8 direction;
    KRT_U16 reserved;
    KRT_U32 status;
    KRT_U32 length;
    KRT_U32 meta_length;
    KRT_U64 timeoutUs;
    KRT_U64 addr;
    KRT_U64 meta_addr;
};
KRT_CHECK_SIZE(usr_io, 120);
KRT_CHECK_OFFSET(usr_io, comp, 64);
KRT_CHECK_OFFSET(usr_io, namespaceID, 80);
KRT_CHECK_OFFSET(usr_io, direction, 81);
KRT_CHECK_OFFSET(usr_io, status, 84);
KRT_CHECK_OFFSET(usr_io, length, 88);
KRT_CHECK_OFFSET(usr_io, meta_length, 92);
KRT_CHECK_OFFSET(usr_io, timeoutUs, 96);
KRT_CHECK_OFFSET(usr_io, addr, 104);
KRT_CHECK_OFFSET(usr_io, meta_addr, 112);

#pragma pack(pop)

// Status the driver places in a completion: (SCT << 8) + SC as the tool sees it.
constexpr KRT_U32 nvme_comp_dw3(KRT_U32 sct, KRT_U32 sc)
{
    return ((sct & NVME_COMP_SCT_MASK) << NVME_COMP_SCT_SHIFT) | ((sc & NVME_COMP_SC_MASK) << NVME_COMP_SC_SHIFT);
}
constexpr KRT_U32 nvme_comp_status(KRT_U32 dw3)
{
    return (((dw3 >> NVME_COMP_SCT_SHIFT) & NVME_COMP_SCT_MASK) << 8) |
           ((dw3 >> NVME_COMP_SC_SHIFT) & NVME_COMP_SC_MASK);
}
