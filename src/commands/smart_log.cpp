#include "commands/smart_log.h"

#include <cstdint>
#include <cstdio>

#include "util/fields.h"
#include "util/state.h"

namespace {

// The labels of the list stand in 54 columns followed by ": ".
constexpr int kSmartLabelWidth = 54;
constexpr char kSmartSeparator[] = ": ";
constexpr int kKelvinAtZeroCelsius = 273;

// A data unit is 1000 blocks of 512 bytes; the GB figure is decimal.
long double unitsInGigabytes(long double units)
{
    return units * 512 / 1000 / 1000;
}

void printSmartLog(const _krt_smart_log &log, int controllerOnly, bool calculator)
{
    std::fputs("\nNVME SMART Information :\n", stream);
    std::fputs(
        "Notice: Please refer to NVMe Specific v1.3, Get Log Page - SMART / Health Information Log definition\n\n",
        stream);
    const FieldWriter out(stream, kSmartLabelWidth, kSmartSeparator);
    out.beginRecord("smart_log");
    out.hex("Critical Warning", log.critical_warning, 2);
    const int kelvin = log.temperature;
    if (!calculator && kelvin == 0) {
        out.num("Composite Temperature", 0);
    } else {
        out.num("Composite Temperature", kelvin - kKelvinAtZeroCelsius, " Celsius");
    }
    out.num("Available Spare", log.avail_spare, "%");
    out.num("Available Spare Threshold", log.spare_thresh, "%");
    out.num("Percentage Used", log.percent_used, "%");
    if (controllerOnly == 0) {
        const long double read = smartCounter(log.data_units_read);
        const long double written = smartCounter(log.data_units_written);
        if (calculator) {
            out.extWithGigabytes("Data Units Read", read, unitsInGigabytes(read));
            out.extWithGigabytes("Data Units Written", written, unitsInGigabytes(written));
        } else {
            out.ext("Data Units Read", read);
            out.ext("Data Units Written", written);
        }
        out.ext("Host Read Commands", smartCounter(log.host_reads));
        out.ext("Host Write Commands", smartCounter(log.host_writes));
        out.ext("Controller Busy Time", smartCounter(log.ctrl_busy_time));
        out.ext("Power Cycles", smartCounter(log.power_cycles));
        out.ext("Power On Hours", smartCounter(log.power_on_hours));
        out.ext("Unsafe Shutdowns", smartCounter(log.unsafe_shutdowns));
        out.ext("Media and Data Integrity Errors", smartCounter(log.media_errors));
        out.ext("Num Err Log Entries", smartCounter(log.num_err_log_entries));
        // The minute and transition counts are shown as signed numbers, as
        // they always have been.
        out.num("Warning Composite Temperature Time", static_cast<std::int32_t>(log.warning_temp_time));
        out.num("Critical Composite Temperature Time", static_cast<std::int32_t>(log.critical_comp_time));
        out.num("Thermal Management Temperature 1 Transition Count", static_cast<std::int32_t>(log.tmt1tc));
        out.num("Thermal Management Temperature 2 Transition Count", static_cast<std::int32_t>(log.tmt2tc));
        out.num("Total Time For Thermal Management Temperature 1", static_cast<std::int32_t>(log.ttftmt1));
        out.num("Total Time For Thermal Management Temperature 2", static_cast<std::int32_t>(log.ttftmt2));
    }
    out.endRecord();
    std::fputc('\n', stream);
}

}  // namespace

long double smartCounter(const KRT_U8 (&bytes)[16])
{
    long double value = 0;
    for (int i = 15; i >= 0; --i) {
        value = value * 256 + bytes[i];
    }
    return value;
}

void showLogSmartInfo(const _krt_smart_log &log, int controller_only)
{
    printSmartLog(log, controller_only, true);
}

void showLogSmartInfo_no_calculator(const _krt_smart_log &log, int controller_only)
{
    printSmartLog(log, controller_only, false);
}
