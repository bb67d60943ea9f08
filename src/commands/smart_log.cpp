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

void subjectFields(const FieldWriter &out, const SmartSubject &subject)
{
    using json_output::Value;
    const int base = g_oneBaseMode == 1 ? 1 : 0;
    switch (subject.kind) {
        case SmartSubject::Kind::Controller:
            out.extra("subject", Value::text("controller"));
            break;
        case SmartSubject::Kind::PhysicalDisk:
            out.extra("subject", Value::text("physical_disk"));
            break;
        case SmartSubject::Kind::Namespace:
            out.extra("subject", Value::text("namespace"));
            break;
    }
    out.extra("nvme_controller_id", Value::number(subject.controller + base));
    if (subject.kind == SmartSubject::Kind::PhysicalDisk)
        out.extra("pd_id", Value::number(subject.id));
    if (subject.kind == SmartSubject::Kind::Namespace)
        out.extra("ns_id", Value::number(subject.id));
}

void printSmartLog(const _krt_smart_log &log, int controllerOnly, bool calculator, const SmartSubject &subject)
{
    using json_output::Value;
    const FieldWriter out(stream, kSmartLabelWidth, kSmartSeparator);
    out.heading("\nNVME SMART Information :\n");
    out.heading(
        "Notice: Please refer to NVMe Specific v1.3, Get Log Page - SMART / Health Information Log definition\n\n");
    out.beginRecord("smart_log");
    subjectFields(out, subject);
    out.hex("Critical Warning", log.critical_warning, 2);
    const int kelvin = log.temperature;
    if (!calculator && kelvin == 0) {
        // Not reported.
        out.typed("Composite Temperature", "0", Value::null(), "composite_temperature_celsius");
    } else {
        out.num("Composite Temperature", kelvin - kKelvinAtZeroCelsius, " Celsius");
    }
    out.extra("composite_temperature_kelvin", Value::number(kelvin));
    out.num("Available Spare", log.avail_spare, "%");
    out.num("Available Spare Threshold", log.spare_thresh, "%");
    out.num("Percentage Used", log.percent_used, "%");
    if (controllerOnly == 0) {
        const long double read = smartCounter(log.data_units_read);
        const long double written = smartCounter(log.data_units_written);
        if (calculator) {
            out.extWithGigabytes("Data Units Read", read, unitsInGigabytes(read), decimal128(log.data_units_read));
            out.extWithGigabytes("Data Units Written", written, unitsInGigabytes(written),
                                 decimal128(log.data_units_written));
        } else {
            out.ext("Data Units Read", read, decimal128(log.data_units_read));
            out.ext("Data Units Written", written, decimal128(log.data_units_written));
        }
        const auto counter = [&out](const char *label, const KRT_U8(&bytes)[16]) {
            out.ext(label, smartCounter(bytes), decimal128(bytes));
        };
        counter("Host Read Commands", log.host_reads);
        counter("Host Write Commands", log.host_writes);
        counter("Controller Busy Time", log.ctrl_busy_time);
        counter("Power Cycles", log.power_cycles);
        counter("Power On Hours", log.power_on_hours);
        counter("Unsafe Shutdowns", log.unsafe_shutdowns);
        counter("Media and Data Integrity Errors", log.media_errors);
        counter("Num Err Log Entries", log.num_err_log_entries);
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

void showLogSmartInfo(const _krt_smart_log &log, int controller_only, const SmartSubject &subject)
{
    printSmartLog(log, controller_only, true, subject);
}

void showLogSmartInfo_no_calculator(const _krt_smart_log &log, int controller_only, const SmartSubject &subject)
{
    printSmartLog(log, controller_only, false, subject);
}
