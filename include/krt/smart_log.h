// The NVMe SMART / Health Information log page (log identifier 2), as a
// controller, a back-end SSD or a namespace reports it. Shared by the tool
// and the simulator.
#pragma once

#include "krt/types.h"

constexpr KRT_U8 NVME_LOG_SMART = 0x02;
constexpr int NVME_SMART_LOG_SIZE = 512;
// CDW10 of a Get Log Page that reads the whole SMART log: log 2, 128 dwords.
constexpr KRT_U32 NVME_SMART_LOG_CDW10 = 0x007F0002;

#pragma pack(push, 1)

// The 128-bit counters are little-endian byte arrays: no host type holds them.
struct _krt_smart_log {
    KRT_U8 critical_warning;  // bit mask
    KRT_U16 temperature;      // composite temperature, kelvin
    KRT_U8 avail_spare;       // percent
    KRT_U8 spare_thresh;      // percent
    KRT_U8 percent_used;
    KRT_U8 rsvd6[26];
    KRT_U8 data_units_read[16];  // units of 1000 x 512 bytes
    KRT_U8 data_units_written[16];
    KRT_U8 host_reads[16];
    KRT_U8 host_writes[16];
    KRT_U8 ctrl_busy_time[16];  // minutes
    KRT_U8 power_cycles[16];
    KRT_U8 power_on_hours[16];
    KRT_U8 unsafe_shutdowns[16];
    KRT_U8 media_errors[16];
    KRT_U8 num_err_log_entries[16];
    KRT_U32 warning_temp_time;   // minutes
    KRT_U32 critical_comp_time;  // minutes
    KRT_U16 temp_sensor[8];
    KRT_U32 tmt1tc;  // thermal management temperature 1 transition count
    KRT_U32 tmt2tc;
    KRT_U32 ttftmt1;  // total time for thermal management temperature 1
    KRT_U32 ttftmt2;
    KRT_U8 rsvd232[280];
};
KRT_CHECK_SIZE(_krt_smart_log, NVME_SMART_LOG_SIZE);
KRT_CHECK_OFFSET(_krt_smart_log, temperature, 1);
KRT_CHECK_OFFSET(_krt_smart_log, avail_spare, 3);
KRT_CHECK_OFFSET(_krt_smart_log, spare_thresh, 4);
KRT_CHECK_OFFSET(_krt_smart_log, percent_used, 5);
KRT_CHECK_OFFSET(_krt_smart_log, data_units_read, 32);
KRT_CHECK_OFFSET(_krt_smart_log, data_units_written, 48);
KRT_CHECK_OFFSET(_krt_smart_log, host_reads, 64);
KRT_CHECK_OFFSET(_krt_smart_log, host_writes, 80);
KRT_CHECK_OFFSET(_krt_smart_log, ctrl_busy_time, 96);
KRT_CHECK_OFFSET(_krt_smart_log, power_cycles, 112);
KRT_CHECK_OFFSET(_krt_smart_log, power_on_hours, 128);
KRT_CHECK_OFFSET(_krt_smart_log, unsafe_shutdowns, 144);
KRT_CHECK_OFFSET(_krt_smart_log, media_errors, 160);
KRT_CHECK_OFFSET(_krt_smart_log, num_err_log_entries, 176);
KRT_CHECK_OFFSET(_krt_smart_log, warning_temp_time, 192);
KRT_CHECK_OFFSET(_krt_smart_log, critical_comp_time, 196);
KRT_CHECK_OFFSET(_krt_smart_log, temp_sensor, 200);
KRT_CHECK_OFFSET(_krt_smart_log, tmt1tc, 216);
KRT_CHECK_OFFSET(_krt_smart_log, tmt2tc, 220);
KRT_CHECK_OFFSET(_krt_smart_log, ttftmt1, 224);
KRT_CHECK_OFFSET(_krt_smart_log, ttftmt2, 228);

#pragma pack(pop)
