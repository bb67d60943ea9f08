// One simulated controller answering admin commands: Identify, the direct
// vendor requests (opcode 0xE2) and the paired send/receive requests.
#pragma once

#include <span>

#include "krt/driver.h"
#include "layout.h"

namespace krtsim {

// What a matching fault rule does to this command (FAULT_NONE: nothing).
struct FaultAction {
    KRT_U8 effect = FAULT_NONE;
    KRT_U32 value = 0;
};

// Executes one admin command on adapter `index` of the state (whose lock
// the caller holds). cmd is the 16-dword submission entry; data is the
// caller's buffer, written only for direction XFER_FROM_DEV and never past
// its size. Returns the completion status, (SCT << 8) + SC; 0 is success.
KRT_U32 executeAdmin(SimState &state, int index, const KRT_U32 (&cmd)[16], KRT_U8 direction, std::span<KRT_U8> data,
                     const FaultAction &fault);

// Brings every background activity of an adapter up to the clock.
void advanceActivities(SimAdapter &adapter, KRT_U64 nowMillis);

// The host shuts down and boots again: firmware committed for the next reset
// becomes the running firmware of each controller and SSD; images downloaded
// but not committed are lost.
void rebootMachine(SimState &state, KRT_U64 nowMillis);

// The wire records, as the controller builds them from its state.
_NVME_PD_Info pdRecord(const SimPd &pd, int id, bool overlong);
_NVME_VD_Info vdRecord(const SimAdapter &adapter, int id, bool overlong);
_NVME_NS_Info nsRecord(const SimAdapter &adapter, const SimNs &ns, bool overlong);
_NVME_BGA_STATUS bgaRecord(const SimBga &bga, int id);

// Vendor status codes of the reply envelope.
enum VendorStatus : KRT_U8 {
    VS_OK = 0,
    VS_FAILED = 1,
    VS_INVALID_REQUEST = 3,
    VS_INVALID_PARAMETER = 4,
    VS_NOT_SUPPORTED = 5,
    VS_INVALID_HD = 6,
    VS_INVALID_LD = 7,
    VS_NO_RESOURCE = 8,
    VS_LD_NOT_REDUNDANT = 51,
    VS_LD_NOT_FUNCTIONAL = 53,
    VS_LD_FUNCTIONAL = 54,
    VS_IMPORT_NO_TABLE = 56,
    VS_IMPORT_ALREADY_IN_TABLE = 57,
    VS_IMPORT_FOREIGN = 58,
    VS_HD_ASSIGNED = 59,
    VS_INVALID_RAID_MODE = 60,
    VS_INVALID_HD_COUNT = 61,
    VS_INVALID_SBS = 62,
    VS_NO_AVAILABLE_ID = 63,
    VS_SECTOR_SIZE_MISMATCH = 64,
    VS_NS_CAP_OUT_OF_RANGE = 65,
    VS_LD_HAS_BGA = 66,
    VS_NO_BGA = 67,
    VS_INVALID_BGA_ACTION = 68,
    VS_REBUILD_TARGET_TOO_SMALL = 72,
    VS_INVALID_NS_COUNT = 74,
};

// NVMe status the controller completes with: (SCT << 8) + SC.
constexpr KRT_U32 SCT_COMMAND_SPECIFIC = 1;
constexpr KRT_U32 SCT_VENDOR = 7;
constexpr KRT_U32 SC_NS_ALREADY_ATTACHED = 0x118;
constexpr KRT_U32 SC_NS_IS_PRIVATE = 0x119;
constexpr KRT_U32 SC_NS_NOT_ATTACHED = 0x11A;
constexpr KRT_U32 SC_CONTROLLER_LIST_INVALID = 0x11C;
constexpr KRT_U32 SC_INVALID_LOG_PAGE = 0x109;
constexpr KRT_U32 SC_INVALID_OPCODE = 0x01;
constexpr KRT_U32 SC_INVALID_FIELD = 0x02;
constexpr KRT_U32 SC_INVALID_NAMESPACE = 0x0B;

}  // namespace krtsim
