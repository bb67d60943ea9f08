// Admin commands as the tool forms them, the controller's vendor request
// forms and the reply envelope.
#pragma once

#include "krt/types.h"

// Standard NVMe admin opcodes the tool sends.
constexpr KRT_U8 NVME_ADMIN_GET_LOG_PAGE = 0x02;
constexpr KRT_U8 NVME_ADMIN_IDENTIFY = 0x06;
constexpr KRT_U8 NVME_ADMIN_NS_MGMT = 0x0D;
constexpr KRT_U8 NVME_ADMIN_FW_COMMIT = 0x10;
constexpr KRT_U8 NVME_ADMIN_FW_DOWNLOAD = 0x11;
constexpr KRT_U8 NVME_ADMIN_NS_ATTACH = 0x15;
constexpr KRT_U8 NVME_ADMIN_MI_SEND = 0x1D;
constexpr KRT_U8 NVME_ADMIN_MI_RECEIVE = 0x1E;
constexpr KRT_U8 NVME_ADMIN_FORMAT_NVM = 0x80;
constexpr KRT_U8 NVME_ADMIN_VENDOR_C7 = 0xC7;  // 199

// Identify CNS values.
constexpr KRT_U32 NVME_CNS_NAMESPACE = 0x00;
constexpr KRT_U32 NVME_CNS_CONTROLLER = 0x01;
constexpr KRT_U32 NVME_CNS_PRIMARY_CTRL_CAPS = 0x14;

// Vendor opcodes.
constexpr KRT_U8 KRT_VENDOR_OPCODE = 0xE2;       // direct request (get information and the like)
constexpr KRT_U8 KRT_PD_CMD_FROM_DISK = 0xC2;    // back-end disk command, data from the disk
constexpr KRT_U8 KRT_PD_CMD_TO_DISK = 0xC3;      // back-end disk command, data to the disk or none
constexpr KRT_U8 KRT_PAIR_REQUEST_OPCODE = 250;  // class-form request handed to the pair device
constexpr KRT_U8 KRT_PAIR_SEND_OPCODE = 251;     // tool's name for the send half
constexpr KRT_U8 KRT_PAIR_RECEIVE_OPCODE = 252;  // tool's name for the receive half
constexpr KRT_U8 KRT_PAIR_SEND_WIRE = 203;       // what the send half goes out as
constexpr KRT_U8 KRT_PAIR_RECEIVE_WIRE = 206;    // what the receive half goes out as

// Object classes of the vendor requests (CDW12 byte 0, or dword 0 of a class-form request).
enum KRT_CLASS : KRT_U8 {
    KRT_CLASS_ADAPTER = 0xE0,
    KRT_CLASS_PD = 0xE1,
    KRT_CLASS_VD = 0xE2,
    KRT_CLASS_BGA = 0xE3,
    KRT_CLASS_EVENT = 0xE4,
    KRT_CLASS_NS = 0xE5,
    KRT_CLASS_DUMP = 0xFE,
};

// Class of the controller time request, sent whole in CDW12.
constexpr KRT_U32 KRT_SET_TIME_CDW12 = 992;

#pragma pack(push, 1)

// The caller's form of an admin command: CDW0 low byte is the opcode,
// CDW1 the namespace ID. Only CDW0-2 and CDW10-15 reach the controller.
struct krt_admin_command_format {
    KRT_U32 CDW[18];
    KRT_U16 cdw_flag;  // bit n set: CDW n is meaningful
    KRT_U16 control_id;
    KRT_U16 rsvd0[2];
};
KRT_CHECK_SIZE(krt_admin_command_format, 80);
KRT_CHECK_OFFSET(krt_admin_command_format, cdw_flag, 72);
KRT_CHECK_OFFSET(krt_admin_command_format, control_id, 74);
KRT_CHECK_OFFSET(krt_admin_command_format, rsvd0, 76);

// CDW12 of a direct vendor request.
struct NVME_AP_Opcode {
    KRT_U8 opcode;     // object class
    KRT_U8 subOpcode;  // sub-command
    KRT_U16 unit;      // 16-bit argument
};
KRT_CHECK_SIZE(NVME_AP_Opcode, 4);
KRT_CHECK_OFFSET(NVME_AP_Opcode, unit, 2);

constexpr KRT_U32 krt_cdw12(KRT_U8 opcode, KRT_U8 subOpcode, KRT_U16 unit)
{
    return static_cast<KRT_U32>(opcode) | (static_cast<KRT_U32>(subOpcode) << 8) | (static_cast<KRT_U32>(unit) << 16);
}

constexpr int KRT_BUFFER_SIZE = 4096;
constexpr int KRT_PAIR_DATA_OFFSET = 16;
constexpr int KRT_PAIR_MAX_WORDS = 4;
constexpr int KRT_REPLY_DATA_OFFSET = 8;

// Head of the 4096-byte request buffer of a paired request (the send half).
struct _NVMESendData {
    KRT_U8 sign[4];       // 'K','R','T',0
    KRT_U8 cmd_length;    // vendor command words that follow (0-4)
    KRT_U8 data_offset;   // 16
    KRT_U16 data_length;  // input data length
    KRT_U16 vendor_cmd[KRT_PAIR_MAX_WORDS];
    KRT_U8 data[KRT_BUFFER_SIZE - KRT_PAIR_DATA_OFFSET];
};
KRT_CHECK_SIZE(_NVMESendData, KRT_BUFFER_SIZE);
KRT_CHECK_OFFSET(_NVMESendData, cmd_length, 4);
KRT_CHECK_OFFSET(_NVMESendData, data_offset, 5);
KRT_CHECK_OFFSET(_NVMESendData, data_length, 6);
KRT_CHECK_OFFSET(_NVMESendData, vendor_cmd, 8);
KRT_CHECK_OFFSET(_NVMESendData, data, 16);

// Reply envelope of direct requests and of the receive half of a pair.
struct _NVMEReceiveData {
    KRT_U8 sign[4];  // 'K','R','T'; byte 3 is not checked
    KRT_U8 cmd_status;
    KRT_U8 reserved[3];
    KRT_U8 data[KRT_BUFFER_SIZE - KRT_REPLY_DATA_OFFSET];
};
KRT_CHECK_SIZE(_NVMEReceiveData, KRT_BUFFER_SIZE);
KRT_CHECK_OFFSET(_NVMEReceiveData, cmd_status, 4);
KRT_CHECK_OFFSET(_NVMEReceiveData, data, 8);

#pragma pack(pop)

constexpr KRT_U8 KRT_SIGN[3] = {'K', 'R', 'T'};
// The ASCII words of the send half: CDW11 "ZOLT" and CDW15 "KRT\0", in memory order.
constexpr KRT_U32 KRT_PAIR_CDW11 = 'Z' | ('O' << 8) | ('L' << 16) | (static_cast<KRT_U32>('T') << 24);
constexpr KRT_U32 KRT_PAIR_CDW15 = 'K' | ('R' << 8) | ('T' << 16);
constexpr KRT_U32 KRT_PAIR_CDW10 = KRT_BUFFER_SIZE / 4;

// Time-outs of an admin request, in microseconds.
constexpr KRT_U64 KRT_ADMIN_TIMEOUT_US = 100000000;
constexpr KRT_U64 KRT_FW_COMMIT_TIMEOUT_US = 200000000;
