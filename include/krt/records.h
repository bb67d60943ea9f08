// Records the controller returns or accepts, all little-endian and packed.
#pragma once

#include "krt/types.h"

#pragma pack(push, 1)

// Head of list requests and replies (PD, VD, background activities).
struct _RequestHeader {
    KRT_U16 size;
    KRT_U8 requestType;
    KRT_U8 reserved1;
    KRT_U16 start;        // first ID wanted
    KRT_U8 numRequested;  // records asked for
    KRT_U8 numReturned;   // filled by the controller
    KRT_U16 nextStart;    // filled by the controller
    KRT_U8 reserved2[6];
};
KRT_CHECK_SIZE(_RequestHeader, 16);
KRT_CHECK_OFFSET(_RequestHeader, start, 4);
KRT_CHECK_OFFSET(_RequestHeader, numRequested, 6);
KRT_CHECK_OFFSET(_RequestHeader, numReturned, 7);
KRT_CHECK_OFFSET(_RequestHeader, nextStart, 8);

struct NVME_Version_Info {
    KRT_U16 MajorVersion;
    KRT_U16 MinorVersion;
    KRT_U16 OEMNumber;
    KRT_U16 BuildNumber;
};
KRT_CHECK_SIZE(NVME_Version_Info, 8);

struct NVME_PCIe_Info {
    KRT_U8 Type;  // 0 end point, 1 root complex, 255 ends the list
    KRT_U8 Id;
    KRT_U8 Speed;      // 1 2.5Gb/s, 2 5Gb/s, 3 8Gb/s
    KRT_U8 LinkWidth;  // 1, 2, 4, 8
};
KRT_CHECK_SIZE(NVME_PCIe_Info, 4);

constexpr int KRT_PCIE_INFO_COUNT = 16;

// Controller information (the adapter-information reply).
struct _NVME_Adapter_Info {
    NVME_Version_Info UEFIVersion;
    NVME_Version_Info FirmwareVersion;
    KRT_U16 VID;
    KRT_U16 SVID;
    KRT_U16 DID;
    KRT_U16 SDID;
    KRT_U8 RevisionID;
    KRT_U8 PortCount;
    KRT_U8 MaxPDPerVD;
    KRT_U8 MaxVD;
    KRT_U8 MaxPD;
    KRT_U8 MaxNSPerVD;
    KRT_U8 MaxNS;
    KRT_U8 Reserved1;
    KRT_U8 Reserved2[4];
    KRT_U32 MaxFlashSize;
    KRT_U16 MaxBufferSize;
    KRT_U16 SupportRAIDMode;
    KRT_U8 Cache;
    KRT_U8 SupportBGAFeature;
    KRT_U8 StripeSizeSupported;
    KRT_U8 SKUID;
    KRT_U32 Features;
    KRT_U32 OEMFeatures;
    KRT_U8 Link[20];
    KRT_U8 Reserved4[4];
    NVME_PCIe_Info PCIeInfo[KRT_PCIE_INFO_COUNT];
    KRT_U8 BuildDate[12];
    KRT_U8 FunctionNumber;
    KRT_U8 DeviceNumber;
    KRT_U8 BusNumber;
    KRT_U8 Reserved5;
};
KRT_CHECK_SIZE(_NVME_Adapter_Info, 160);
KRT_CHECK_OFFSET(_NVME_Adapter_Info, FirmwareVersion, 8);
KRT_CHECK_OFFSET(_NVME_Adapter_Info, VID, 16);
KRT_CHECK_OFFSET(_NVME_Adapter_Info, DID, 20);
KRT_CHECK_OFFSET(_NVME_Adapter_Info, RevisionID, 24);
KRT_CHECK_OFFSET(_NVME_Adapter_Info, PortCount, 25);
KRT_CHECK_OFFSET(_NVME_Adapter_Info, MaxPD, 28);
KRT_CHECK_OFFSET(_NVME_Adapter_Info, MaxNS, 30);
KRT_CHECK_OFFSET(_NVME_Adapter_Info, MaxFlashSize, 36);
KRT_CHECK_OFFSET(_NVME_Adapter_Info, SupportRAIDMode, 42);
KRT_CHECK_OFFSET(_NVME_Adapter_Info, Cache, 44);
KRT_CHECK_OFFSET(_NVME_Adapter_Info, SKUID, 47);
KRT_CHECK_OFFSET(_NVME_Adapter_Info, Features, 48);
KRT_CHECK_OFFSET(_NVME_Adapter_Info, Link, 56);
KRT_CHECK_OFFSET(_NVME_Adapter_Info, PCIeInfo, 80);
KRT_CHECK_OFFSET(_NVME_Adapter_Info, BuildDate, 144);
KRT_CHECK_OFFSET(_NVME_Adapter_Info, FunctionNumber, 156);
KRT_CHECK_OFFSET(_NVME_Adapter_Info, DeviceNumber, 157);
KRT_CHECK_OFFSET(_NVME_Adapter_Info, BusNumber, 158);

// Bits of _NVME_Adapter_Info.Features.
constexpr KRT_U32 KRT_FEATURE_IMPORT = 1u << 1;
constexpr KRT_U32 KRT_FEATURE_RAID = 1u << 2;  // clear: JBOF
constexpr KRT_U32 KRT_FEATURE_NS_MGMT = 1u << 3;
constexpr KRT_U32 KRT_FEATURE_DUMP = 1u << 4;
constexpr KRT_U32 KRT_FEATURE_NMIC = 1u << 5;

struct _NVME_Adapter_Config {
    KRT_U8 AutoRebuildOn;
    KRT_U8 BGARate;
    KRT_U8 reserved[14];
};
KRT_CHECK_SIZE(_NVME_Adapter_Config, 16);

struct _NVME_LED {
    KRT_U16 id;
    KRT_U8 type;
    KRT_U8 secondsAction;  // bits 0-6 seconds, bit 7 action
    KRT_U8 reserved[4];
};
KRT_CHECK_SIZE(_NVME_LED, 8);

struct _NVME_Adapter_Time {
    KRT_U16 hi;
    KRT_U16 mid;
    KRT_U16 lw;
    KRT_U8 reserved[2];
};
KRT_CHECK_SIZE(_NVME_Adapter_Time, 8);

struct _NVME_Rebuild {
    KRT_U16 VDID;
    KRT_U16 PDID;
    KRT_U8 reserved[4];
};
KRT_CHECK_SIZE(_NVME_Rebuild, 8);

struct _NVME_Migrate {
    KRT_U16 ID;
    KRT_U8 RaidMode;
    KRT_U8 MemberCount;
    KRT_U8 SubLDCount;
    KRT_U8 NumParityDisk;
    KRT_U8 reserved[2];
    KRT_U8 PDIDs[32];
};
KRT_CHECK_SIZE(_NVME_Migrate, 40);

// Physical disk (a back-end SSD).
struct _NVME_PD_Info {
    KRT_U16 ID;
    KRT_U8 Status;
    KRT_U8 reserved1[9];
    KRT_U8 Model[40];
    KRT_U8 SerialNo[20];
    KRT_U32 SectorSize;
    KRT_U8 FWVersion[8];
    KRT_U8 reserved2[4];
    KRT_U64 LBA;
    KRT_U16 SSDAdapterID;
    KRT_U16 SSDNSID;
    KRT_U16 Temperature;
    KRT_U16 reserved3;
};
KRT_CHECK_SIZE(_NVME_PD_Info, 104);
KRT_CHECK_OFFSET(_NVME_PD_Info, Status, 2);
KRT_CHECK_OFFSET(_NVME_PD_Info, Model, 12);
KRT_CHECK_OFFSET(_NVME_PD_Info, SerialNo, 52);
KRT_CHECK_OFFSET(_NVME_PD_Info, SectorSize, 72);
KRT_CHECK_OFFSET(_NVME_PD_Info, FWVersion, 76);
KRT_CHECK_OFFSET(_NVME_PD_Info, LBA, 88);
KRT_CHECK_OFFSET(_NVME_PD_Info, SSDAdapterID, 96);
KRT_CHECK_OFFSET(_NVME_PD_Info, SSDNSID, 98);
KRT_CHECK_OFFSET(_NVME_PD_Info, Temperature, 100);

// Bits of _NVME_PD_Info.Status.
constexpr KRT_U8 KRT_PD_ASSIGNED = 1u << 0;
constexpr KRT_U8 KRT_PD_MEDIA_PATROL = 1u << 1;
constexpr KRT_U8 KRT_PD_IMPORTABLE = 1u << 3;
constexpr KRT_U8 KRT_PD_FAILED = 1u << 4;
constexpr KRT_U8 KRT_PD_SMART_CRITICAL = 1u << 5;

constexpr int KRT_VD_MAX_MEMBERS = 32;
constexpr KRT_U16 KRT_PD_MISSING = 0xFFFF;

// Virtual disk.
struct _NVME_VD_Info {
    KRT_U16 ID;
    KRT_U8 Status;
    KRT_U8 Importable;
    KRT_U8 RaidMode;
    KRT_U8 MemberCount;
    KRT_U8 BGAIndex;
    KRT_U8 reserved2;
    KRT_U64 LBA;
    KRT_U16 PDIDs[KRT_VD_MAX_MEMBERS];
    KRT_U8 reserved4;
    KRT_U8 NumParityDisk;
    KRT_U16 StripBlockSize;  // in 512-byte blocks
    KRT_U32 SectorSize;
    KRT_U8 Name[16];  // not necessarily terminated
    KRT_U8 NSIDs[64];
    KRT_U8 reserved3[8];  // pads the record to the 176 bytes the controller sends
};
KRT_CHECK_SIZE(_NVME_VD_Info, 176);
KRT_CHECK_OFFSET(_NVME_VD_Info, Status, 2);
KRT_CHECK_OFFSET(_NVME_VD_Info, RaidMode, 4);
KRT_CHECK_OFFSET(_NVME_VD_Info, MemberCount, 5);
KRT_CHECK_OFFSET(_NVME_VD_Info, LBA, 8);
KRT_CHECK_OFFSET(_NVME_VD_Info, PDIDs, 16);
KRT_CHECK_OFFSET(_NVME_VD_Info, NumParityDisk, 81);
KRT_CHECK_OFFSET(_NVME_VD_Info, StripBlockSize, 82);
KRT_CHECK_OFFSET(_NVME_VD_Info, SectorSize, 84);
KRT_CHECK_OFFSET(_NVME_VD_Info, Name, 88);
KRT_CHECK_OFFSET(_NVME_VD_Info, NSIDs, 104);

// Values of _NVME_VD_Info.Status.
enum KRT_VD_STATE : KRT_U8 {
    KRT_VD_FUNCTIONAL = 0,
    KRT_VD_DEGRADE = 1,
    KRT_VD_DELETED = 2,
    KRT_VD_MISSING = 3,
    KRT_VD_OFFLINE = 4,
    KRT_VD_PARTIALLY_OPTIMAL = 5,
    KRT_VD_FOREIGN = 6,
    KRT_VD_IMPORTABLE = 7,
    KRT_VD_NOT_IMPORTABLE = 8,
    KRT_VD_INITIALIZATION = 9,
    KRT_VD_REBUILDING = 10,
    KRT_VD_ERROR_HANDLING = 11,
};

// RAID mode codes.
enum KRT_RAID_MODE : KRT_U8 {
    KRT_RAID0 = 0x00,
    KRT_RAID1 = 0x01,
    KRT_RAID5 = 0x05,
    KRT_RAID6 = 0x06,
    KRT_JBOD = 0x0F,
    KRT_RAID10 = 0x10,
    KRT_RAID50 = 0x50,
    KRT_RAID60 = 0x60,
    KRT_RAID_UNKNOWN = 0xFF,
};

enum KRT_BGA_TYPE : KRT_U8 {
    KRT_BGA_INIT = 1,
    KRT_BGA_INIT_FULL = 2,
    KRT_BGA_REBUILD = 3,
    KRT_BGA_SYNC = 4,
    KRT_BGA_MIGRATE = 5,
    KRT_BGA_MEDIA_PATROL = 7,
};

enum KRT_BGA_STATUS : KRT_U8 {
    KRT_NVME_BGA_STATUS_NONE = 0,
    KRT_NVME_BGA_STATUS_RUNNING = 1,
    KRT_NVME_BGA_STATUS_PAUSE = 2,
};

// Background activity of one VD or PD.
struct _NVME_BGA_STATUS {
    KRT_U8 Reserved1;
    KRT_U8 BgaType;
    KRT_U8 ID;
    KRT_U8 Percentage;
    KRT_U8 BgaStatus;
    KRT_U8 Reserved2[3];
};
KRT_CHECK_SIZE(_NVME_BGA_STATUS, 8);
KRT_CHECK_OFFSET(_NVME_BGA_STATUS, BgaType, 1);
KRT_CHECK_OFFSET(_NVME_BGA_STATUS, Percentage, 3);
KRT_CHECK_OFFSET(_NVME_BGA_STATUS, BgaStatus, 4);

// Namespace.
struct _NVME_NS_Info {
    KRT_U8 NSID;
    KRT_U8 device_type;  // 0 parent is a PD, 1 parent is a VD
    KRT_U16 ID;          // parent VD or PD
    KRT_U8 Status;       // 0 empty slot; bit 0 valid; bit 2 active
    KRT_U8 VDStatus;
    KRT_U8 reserved1;
    KRT_U8 LBADataSize;
    KRT_U32 SectorSize;
    KRT_U8 reserved2[4];
    KRT_U64 LBA;
    KRT_U8 reserved3[72];
};
KRT_CHECK_SIZE(_NVME_NS_Info, 96);
KRT_CHECK_OFFSET(_NVME_NS_Info, ID, 2);
KRT_CHECK_OFFSET(_NVME_NS_Info, Status, 4);
KRT_CHECK_OFFSET(_NVME_NS_Info, VDStatus, 5);
KRT_CHECK_OFFSET(_NVME_NS_Info, SectorSize, 8);
KRT_CHECK_OFFSET(_NVME_NS_Info, LBA, 16);

constexpr KRT_U8 KRT_NS_VALID = 1u << 0;
constexpr KRT_U8 KRT_NS_ACTIVE = 1u << 2;

#pragma pack(pop)

// Offsets into the 4096-byte Identify Controller data.
constexpr int NVME_ID_VID = 0;
constexpr int NVME_ID_SSVID = 2;
constexpr int NVME_ID_SN = 4;         // 20 bytes
constexpr int NVME_ID_MN = 24;        // 40 bytes
constexpr int NVME_ID_FR = 64;        // 8 bytes
constexpr int NVME_ID_CNTLID = 78;    // 2 bytes
constexpr int NVME_ID_FRMW = 260;     // 1 byte
constexpr int NVME_ID_TNVMCAP = 280;  // 16 bytes
constexpr int NVME_ID_UNVMCAP = 296;  // 16 bytes
constexpr int NVME_ID_SUBNQN = 768;   // 256 bytes
constexpr int NVME_IDENTIFY_SIZE = 4096;
