// The Identify Controller (CNS 1) and Identify Namespace (CNS 0) data, NVMe
// 1.3 layout, 4096 bytes each. Shared by the tool and the simulator.
#pragma once

#include "krt/types.h"

// Identify CNS values beyond those the tool itself sends (krt/admin.h).
constexpr KRT_U32 NVME_CNS_ACTIVE_NS_LIST = 0x02;
constexpr KRT_U32 NVME_CNS_ALLOCATED_NS_LIST = 0x10;
constexpr KRT_U32 NVME_CNS_CONTROLLER_LIST = 0x13;

#pragma pack(push, 1)

struct _krt_id_ctrl {
    KRT_U16 vid;
    KRT_U16 ssvid;
    KRT_U8 sn[20];
    KRT_U8 mn[40];
    KRT_U8 fr[8];
    KRT_U8 rab;
    KRT_U8 ieee[3];
    KRT_U8 mic;
    KRT_U8 mdts;
    KRT_U16 cntlid;
    KRT_U32 ver;
    KRT_U8 rsvd84[172];
    KRT_U16 oacs;
    KRT_U8 acl;
    KRT_U8 aerl;
    KRT_U8 frmw;
    KRT_U8 lpa;
    KRT_U8 elpe;
    KRT_U8 npss;
    KRT_U8 avscc;
    KRT_U8 apsta;
    KRT_U16 wctemp;
    KRT_U16 cctemp;
    KRT_U8 rsvd270[10];
    KRT_U64 tnvmcap[2];  // 128-bit byte count: low, high
    KRT_U64 unvmcap[2];
    KRT_U8 rsvd312[200];
    KRT_U8 sqes;
    KRT_U8 cqes;
    KRT_U16 maxcmd;
    KRT_U32 nn;
    KRT_U16 oncs;
    KRT_U16 fuses;
    KRT_U8 fna;
    KRT_U8 vwc;
    KRT_U16 awun;
    KRT_U16 awupf;
    KRT_U8 nvscc;
    KRT_U8 rsvd531;
    KRT_U16 acwu;
    KRT_U8 rsvd534[2];
    KRT_U32 sgls;
    KRT_U8 rsvd540[228];
    KRT_U8 subnqn[256];
    KRT_U8 rsvd1024[3072];
};
KRT_CHECK_SIZE(_krt_id_ctrl, 4096);
KRT_CHECK_OFFSET(_krt_id_ctrl, ssvid, 2);
KRT_CHECK_OFFSET(_krt_id_ctrl, sn, 4);
KRT_CHECK_OFFSET(_krt_id_ctrl, mn, 24);
KRT_CHECK_OFFSET(_krt_id_ctrl, fr, 64);
KRT_CHECK_OFFSET(_krt_id_ctrl, rab, 72);
KRT_CHECK_OFFSET(_krt_id_ctrl, ieee, 73);
KRT_CHECK_OFFSET(_krt_id_ctrl, mic, 76);
KRT_CHECK_OFFSET(_krt_id_ctrl, mdts, 77);
KRT_CHECK_OFFSET(_krt_id_ctrl, cntlid, 78);
KRT_CHECK_OFFSET(_krt_id_ctrl, oacs, 256);
KRT_CHECK_OFFSET(_krt_id_ctrl, acl, 258);
KRT_CHECK_OFFSET(_krt_id_ctrl, aerl, 259);
KRT_CHECK_OFFSET(_krt_id_ctrl, frmw, 260);
KRT_CHECK_OFFSET(_krt_id_ctrl, lpa, 261);
KRT_CHECK_OFFSET(_krt_id_ctrl, elpe, 262);
KRT_CHECK_OFFSET(_krt_id_ctrl, npss, 263);
KRT_CHECK_OFFSET(_krt_id_ctrl, avscc, 264);
KRT_CHECK_OFFSET(_krt_id_ctrl, tnvmcap, 280);
KRT_CHECK_OFFSET(_krt_id_ctrl, unvmcap, 296);
KRT_CHECK_OFFSET(_krt_id_ctrl, sqes, 512);
KRT_CHECK_OFFSET(_krt_id_ctrl, cqes, 513);
KRT_CHECK_OFFSET(_krt_id_ctrl, nn, 516);
KRT_CHECK_OFFSET(_krt_id_ctrl, oncs, 520);
KRT_CHECK_OFFSET(_krt_id_ctrl, fuses, 522);
KRT_CHECK_OFFSET(_krt_id_ctrl, fna, 524);
KRT_CHECK_OFFSET(_krt_id_ctrl, vwc, 525);
KRT_CHECK_OFFSET(_krt_id_ctrl, awun, 526);
KRT_CHECK_OFFSET(_krt_id_ctrl, awupf, 528);
KRT_CHECK_OFFSET(_krt_id_ctrl, nvscc, 530);
KRT_CHECK_OFFSET(_krt_id_ctrl, acwu, 532);
KRT_CHECK_OFFSET(_krt_id_ctrl, sgls, 536);
KRT_CHECK_OFFSET(_krt_id_ctrl, subnqn, 768);

// The SUBNQN line shows the field's first bytes and then a number kept at
// this offset of the field (byte 828 of the page).
constexpr int KRT_ID_SUBNQN_TEXT = 60;

struct _krt_lba_format {
    KRT_U16 ms;  // metadata bytes per block
    KRT_U8 ds;   // data size, a power of two
    KRT_U8 rp;   // relative performance in bits 0-1; the other bits reserved
};
KRT_CHECK_SIZE(_krt_lba_format, 4);
KRT_CHECK_OFFSET(_krt_lba_format, ds, 2);
KRT_CHECK_OFFSET(_krt_lba_format, rp, 3);

// NVMe defines 64 LBA formats, but the count byte can name 256 and the
// display follows it, so the table is sized for 256: the later entries lie
// in the reserved and vendor-specific part of the page.
constexpr int KRT_ID_NS_LBAF_ROOM = 256;

struct _krt_id_ns {
    KRT_U64 nsze;
    KRT_U64 ncap;
    KRT_U64 nuse;
    KRT_U8 nsfeat;
    KRT_U8 nlbaf;  // number of LBA formats, 0-based
    KRT_U8 flbas;
    KRT_U8 mc;
    KRT_U8 dpc;
    KRT_U8 dps;
    KRT_U8 nmic;
    KRT_U8 rescap;
    KRT_U8 fpi;
    KRT_U8 dlfeat;
    KRT_U16 nawun;
    KRT_U16 nawupf;
    KRT_U16 nacwu;
    KRT_U8 rsvd40[80];
    KRT_U8 eui64[8];
    _krt_lba_format lbaf[KRT_ID_NS_LBAF_ROOM];
    KRT_U8 rsvd1152[2944];
};
KRT_CHECK_SIZE(_krt_id_ns, 4096);
KRT_CHECK_OFFSET(_krt_id_ns, ncap, 8);
KRT_CHECK_OFFSET(_krt_id_ns, nuse, 16);
KRT_CHECK_OFFSET(_krt_id_ns, nsfeat, 24);
KRT_CHECK_OFFSET(_krt_id_ns, nlbaf, 25);
KRT_CHECK_OFFSET(_krt_id_ns, flbas, 26);
KRT_CHECK_OFFSET(_krt_id_ns, mc, 27);
KRT_CHECK_OFFSET(_krt_id_ns, dpc, 28);
KRT_CHECK_OFFSET(_krt_id_ns, dps, 29);
KRT_CHECK_OFFSET(_krt_id_ns, nmic, 30);
KRT_CHECK_OFFSET(_krt_id_ns, rescap, 31);
KRT_CHECK_OFFSET(_krt_id_ns, fpi, 32);
KRT_CHECK_OFFSET(_krt_id_ns, dlfeat, 33);
KRT_CHECK_OFFSET(_krt_id_ns, nawun, 34);
KRT_CHECK_OFFSET(_krt_id_ns, nawupf, 36);
KRT_CHECK_OFFSET(_krt_id_ns, nacwu, 38);
KRT_CHECK_OFFSET(_krt_id_ns, eui64, 120);
KRT_CHECK_OFFSET(_krt_id_ns, lbaf, 128);

#pragma pack(pop)
