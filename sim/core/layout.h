// The simulated machine as it sits in the shared state file: a fixed-layout
// image mapped by every process that loads the platform library, so that
// successive tool runs see one set of controllers. Only this build reads it;
// the head's magic, format version and size reject a file from another build.
#pragma once

#include <type_traits>

#include "krt/records.h"
#include "krt/types.h"

namespace krtsim {

using KRT_S32 = std::int32_t;
// The SMART counters are 128 bits wide on the wire.
__extension__ typedef unsigned __int128 SimU128;

constexpr char kStateMagic[8] = {'K', 'R', 'T', 'S', 'I', 'M', 'S', 'T'};
constexpr KRT_U32 kStateFormat = 11;

constexpr int kMaxAdapters = 64;  // the driver's adapter list holds no more
constexpr int kMaxPds = 32;       // back-end SSD slots per controller
constexpr int kMaxVds = 32;
constexpr int kMaxNs = 64;
constexpr int kMaxEvents = 256;
constexpr int kMaxFaults = 32;
constexpr int kFwSlots = 7;
constexpr int kSpiSize = 4096;
constexpr int kSpiLogSize = 4096;
constexpr int kBufferSize = 4096;
constexpr int kIdentifySize = 4096;
// A namespace's own Identify data is kept up to its sixteenth LBA format.
constexpr int kNsIdentifyKept = 192;

// The download pace of a new machine: an 8 MiB controller image takes about
// twelve seconds, as on a controller writing its flash.
constexpr KRT_U32 kDefaultFwPace = 1500;
constexpr KRT_U32 kMaxFwPace = 600000;

// A firmware image being downloaded: the controller keeps its length, a
// running CRC and word sum, and the version text found in it, not the bytes.
struct SimFwStage {
    KRT_U32 bytes;    // contiguous bytes received from offset 0
    KRT_U32 crc;      // running CRC-32 (reflected 0xEDB88320, seed ~0, not inverted)
    KRT_U32 wordSum;  // wrapping sum of the image's 32-bit words
    KRT_U8 broken;    // a chunk arrived out of order
    KRT_U8 content;   // a byte other than zero arrived: not a blank image
    KRT_U8 reserved[2];
    char version[16];  // text after "KRTFW:" in the image, if any
};

// Progress is kept in thousandths of a percent so that slow activities still
// move on a one-second clock.
constexpr KRT_U32 kProgressFull = 100000;

struct SimBga {
    KRT_U8 type;    // KRT_BGA_TYPE, 0 = none
    KRT_U8 status;  // KRT_BGA_STATUS
    KRT_U8 target;  // rebuild: the PD being rebuilt, else unused
    KRT_U8 reserved;
    KRT_U32 progress;          // 0..kProgressFull
    KRT_U32 millisPerPercent;  // speed; 0 means the default
    KRT_U32 reserved2;
    KRT_U64 lastMillis;  // clock time the progress was last brought up to date
};

struct SimPd {
    KRT_U8 present;
    KRT_U8 status;        // KRT_PD_* bits
    KRT_U16 slot;         // SSDAdapterID
    KRT_U16 nsid;         // SSDNSID
    KRT_U16 temperature;  // Kelvin, as NVMe reports it
    KRT_U32 sectorSize;
    KRT_U64 lba;
    char model[40];
    char serial[20];
    char fw[8];
    KRT_U8 reserved0[2];
    KRT_U8 criticalWarning;  // SMART critical warning byte
    KRT_U8 percentUsed;
    KRT_U64 powerOnHours;
    KRT_U64 mediaErrors;
    KRT_U64 powerCycles;
    KRT_U64 dataUnitsRead;
    KRT_U64 dataUnitsWritten;
    char fwSlots[kFwSlots][8];
    KRT_U8 activeSlot;  // 1-based
    KRT_U8 nextSlot;    // activated at the next reset, 0: none
    KRT_U8 vid[2];
    KRT_U32 resets;  // slot resets and power cycles seen
    KRT_U8 led;      // locate LED action last set
    KRT_U8 reserved[23];
    SimFwStage stage;
    SimBga bga;  // media patrol of this disk
    // SMART / health figures beyond those above. The data-unit counters are
    // 128 bits on the wire: these are their upper halves.
    KRT_U64 dataUnitsReadHigh;
    KRT_U64 dataUnitsWrittenHigh;
    KRT_U64 unsafeShutdowns;
    KRT_U32 warningTempMinutes;  // minutes spent above the warning temperature
    KRT_U8 availSpare;           // percent
    KRT_U8 smartReserved[3];
    KRT_U8 nsLimit;  // namespaces the disk was initialized for, 0: MaxNSPerVD
    KRT_U8 reserved4[7];
    // The slot's power pin switched off; its reset line (PERST#) held
    // asserted. Either way the controller cannot see the SSD.
    KRT_U8 powerOff;
    KRT_U8 resetHeld;
    KRT_U8 reserved5[6];
    // Figures of a disk whose SMART log was taken from a real one (a
    // capture), where the model would otherwise work them out from those
    // above: smartOwn says which (SMART_OWN_* bits).
    KRT_U32 smartOwn;
    KRT_U16 smartTemperature;  // composite, when it differs from `temperature`
    KRT_U8 spareThreshold;
    KRT_U8 idFrmw;  // Identify FRMW
    KRT_U16 tempSensors[8];
    KRT_U32 criticalTempMinutes;
    KRT_U32 thermal[4];    // TMT1TC, TMT2TC, TTFTMT1, TTFTMT2
    KRT_U64 hostReads[2];  // 128-bit counters: low, high
    KRT_U64 hostWrites[2];
    KRT_U64 busyMinutes[2];
    KRT_U64 errorLogEntries[2];
    KRT_U64 powerOnHoursHigh;
    KRT_U64 powerCyclesHigh;
    KRT_U64 unsafeShutdownsHigh;
    KRT_U64 mediaErrorsHigh;
    // The disk's own Identify texts where they differ from its record
    // (ID_OWN_* bits in idOwn); a firmware activation ends the FR one.
    KRT_U8 idOwn;
    KRT_U8 reserved6[7];
    char idSerial[20];
    char idModel[40];
    char idFr[8];
    KRT_U8 idSubnqn[256];  // empty: the model's own
};

enum SmartOwn : KRT_U32 {
    SMART_OWN_TEMPERATURE = 1u << 0,
    SMART_OWN_SPARE_THRESHOLD = 1u << 1,
    SMART_OWN_TEMP_SENSORS = 1u << 2,
    SMART_OWN_CRITICAL_TEMP = 1u << 3,
    SMART_OWN_THERMAL = 1u << 4,
    SMART_OWN_HOST_READS = 1u << 5,
    SMART_OWN_HOST_WRITES = 1u << 6,
    SMART_OWN_BUSY = 1u << 7,
    SMART_OWN_ERROR_ENTRIES = 1u << 8,
};

enum IdOwn : KRT_U8 {
    ID_OWN_SERIAL = 1u << 0,
    ID_OWN_MODEL = 1u << 1,
    ID_OWN_FR = 1u << 2,
};

struct SimVd {
    KRT_U8 present;
    KRT_U8 status;  // KRT_VD_STATE
    KRT_U8 importable;
    KRT_U8 raidMode;
    KRT_U8 memberCount;
    KRT_U8 numParity;
    KRT_U16 stripBlocks;
    KRT_U32 sectorSize;
    KRT_U32 reserved1;
    KRT_U64 lba;
    KRT_U16 members[KRT_VD_MAX_MEMBERS];
    KRT_U8 name[16];  // not necessarily terminated
    KRT_U8 reserved[32];
    SimBga bga;
};

struct SimNs {
    KRT_U8 nsid;        // 0: slot unused
    KRT_U8 deviceType;  // 0 parent PD, 1 parent VD
    KRT_U16 parent;
    KRT_U8 status;  // KRT_NS_VALID | KRT_NS_ACTIVE
    KRT_U8 lbaDataSize;
    KRT_U8 shared;  // shared between controllers, else private
    KRT_U8 reserved;
    KRT_U32 sectorSize;
    KRT_U32 reserved2;
    KRT_U64 lba;
    KRT_U8 hasOwner;  // private to the controller `owner` (create, share "no")
    KRT_U8 reserved3;
    KRT_U16 owner;
    KRT_U16 reserved4;
    // The namespace's own Identify data (a capture), answered instead of
    // the model's; 0 bytes: the model's.
    KRT_U16 identifyLength;
    KRT_U8 identify[kNsIdentifyKept];
};

struct SimEvent {
    KRT_U32 seq;
    KRT_U32 time;
    char msg[48];
    KRT_U8 reserved[8];
};

struct SimAdapter {
    char name[32];
    char signature[32];
    KRT_U8 vanished;  // listed by the driver but cannot be opened
    KRT_U8 raid;
    KRT_U8 mailboxPending;
    KRT_U8 spiLogOn;
    KRT_U8 debugLevel[2];
    KRT_U8 frmw;          // Identify FRMW byte
    KRT_U8 activeFwSlot;  // 1-based
    KRT_U16 cntlid;
    KRT_U16 ssvid;
    KRT_U32 eventCount;  // events ever logged; the ring keeps the last kMaxEvents
    KRT_U32 spiLogLength;
    KRT_U64 tnvmcap;
    KRT_U64 unvmcap;
    char sn[20];
    char mn[40];
    char fr[8];
    KRT_U8 subnqn[256];
    KRT_U8 eui64[8];
    KRT_U32 spiLogCursor;  // where the next SPI log chunk starts
    KRT_U8 nextFwSlot;     // activated at the next reset, 0: none
    KRT_U8 gpioInverse;
    KRT_U8 adapterLed;
    KRT_U8 reserved[57];
    SimFwStage fwStage;
    _NVME_Adapter_Info info;
    _NVME_Adapter_Config config;
    char fwSlots[kFwSlots][8];
    SimPd pds[kMaxPds];
    SimVd vds[kMaxVds];
    SimNs ns[kMaxNs];
    SimEvent events[kMaxEvents];
    KRT_U8 spi[kSpiSize];
    KRT_U8 spiLog[kSpiLogSize];
    KRT_U8 mailbox[kBufferSize];  // reply of the last paired request
    // The controller's own figures of its SMART log (a capture), where the
    // model works them out from its SSDs: ADAPTER_SMART_* bits in smartOwn.
    KRT_U8 smartOwn;
    KRT_U8 smartCriticalWarning;
    KRT_U8 smartSpare;
    KRT_U8 smartSpareThreshold;
    KRT_U8 smartPercentUsed;
    KRT_U8 identifyOwn;  // identify holds the controller's own Identify data
    KRT_U16 smartTemperature;
    KRT_U8 reserved2[8];
    KRT_U8 identify[kIdentifySize];
};

enum AdapterSmartOwn : KRT_U8 {
    ADAPTER_SMART_CRITICAL = 1u << 0,
    ADAPTER_SMART_TEMPERATURE = 1u << 1,
    ADAPTER_SMART_SPARE = 1u << 2,
    ADAPTER_SMART_SPARE_THRESHOLD = 1u << 3,
    ADAPTER_SMART_PERCENT_USED = 1u << 4,
};

enum FaultEffect : KRT_U8 {
    FAULT_NONE = 0,
    FAULT_STATUS = 1,
    FAULT_BAD_SIGN = 2,
    FAULT_ENVELOPE_STATUS = 3,
    FAULT_OVERLONG = 4,
    FAULT_DELAY = 5,  // executed as usual, answered after value milliseconds
};

struct SimFault {
    KRT_U8 effect;  // FaultEffect; FAULT_NONE marks a free slot
    KRT_U8 matchOpcode;
    KRT_U8 matchCdw12;
    KRT_U8 opcode;
    KRT_S32 adapter;  // -1: every adapter
    KRT_U32 cdw12;
    KRT_S32 remaining;  // -1: fires forever
    KRT_U32 value;      // status (SCT << 8 | SC) or envelope status
};

struct SimClock {
    KRT_U8 frozen;
    KRT_U8 reserved[7];
    KRT_U64 baseMillis;  // simulated time at the last freeze, run or advance
    KRT_U64 realMillis;  // real time at that moment (running clock only)
};

struct SimState {
    char magic[8];
    KRT_U32 format;
    KRT_U32 size;
    KRT_U32 adapterCount;
    KRT_U8 listFails;
    KRT_U8 reserved[3];
    SimClock clock;
    SimFault faults[kMaxFaults];
    // How long a firmware download takes, in milliseconds per MiB of image,
    // waited out in real time by each download command; 0: no wait.
    KRT_U32 fwPace;
    KRT_U8 reserved2[252];
    SimAdapter adapters[kMaxAdapters];
};

static_assert(std::is_trivially_copyable_v<SimState>);
static_assert(std::is_standard_layout_v<SimState>);

}  // namespace krtsim
