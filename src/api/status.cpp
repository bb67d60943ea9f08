// Turns a request's status into the message the user sees.
#include "api/status.h"

#include <cstdio>
#include <string>

#include "api/krt_api.h"
#include "util/json_output.h"

namespace {

struct CodeMessage {
    KRT_U32 code;
    const char *text;
};

constexpr const char kUnknownStatus[] = "Unknown Status";
constexpr const char kUnknownError[] = "Unknown error";

constexpr CodeMessage kGeneric[] = {
    {0, "Successful Completion"},
    {1, "Invalid Command Opcode"},
    {2, "Invalid Field in Command"},
    {3, "Command ID Conflict"},
    {4, "Data Transfer Error"},
    {5, "Commands Aborted due to Power Loss Notification"},
    {6, "Internal Error"},
    {7, "Command Abort Requested"},
    {8, "Command Aborted due to SQ Deletion"},
    {9, "Command Aborted due to Failed Fused Command"},
    {10, "Command Aborted due to Missing Fused Command"},
    {11, "Invalid Namespace or Format"},
    {12, "Command Sequence Error"},
    {13, "Invalid SGL Segment Descriptor"},
    {14, "Invalid Number of SGL Descriptors"},
    {15, "Data SGL Length Invalid"},
    {16, "Metadata SGL Length Invalid"},
    {17, "SGL Descriptor Type Invalid"},
    {18, "Invalid Use of Controller Memory Buffer"},
    {19, "PRP Offset Invalid"},
    {20, "Atomic Write Unit Exceeded"},
    {21, "Operation Denied"},
    {22, "SGL Offset Invalid"},
    {24, "Host Identifier Inconsistent Format"},
    {25, "Keep Alive Timeout Expired"},
    {26, "Keep Alive Timeout Invalid"},
    {27, "Command Aborted due to Preempt and Abort"},
    {28, "Sanitize Failed"},
    {29, "Sanitize In Progress"},
    {30, "SGL Data Block Granularity Invalid"},
    {31, "Command Not Supported for Queue in CMB"},
    {128, "LBA Out of Range"},
    {129, "Capacity Exceeded"},
    {130, "Namespace Not Ready"},
    {131, "Reservation Conflict"},
    {132, "Format In Progress"},
};

constexpr CodeMessage kCommandSpecific[] = {
    {0, "Completion Queue Invalid"},
    {1, "Invalid Queue Identifier"},
    {2, "Invalid Queue Size"},
    {3, "Abort Command Limit Exceeded"},
    {5, "Asynchronous Event Request Limit Exceeded"},
    {6, "Invalid Firmware Slot"},
    {7, "Invalid Firmware Image"},
    {8, "Invalid Interrupt Vector"},
    {9, "Invalid Log Page"},
    {10, "Invalid Format"},
    {11, "Firmware Activation Requires Conventional Reset"},
    {12, "Invalid Queue Deletion"},
    {13, "Feature Identifier Not Saveable"},
    {14, "Feature Not Changeable"},
    {15, "Feature Not Namespace Specific"},
    {16, "Firmware Activation Requires NVM Subsystem Reset"},
    {17, "Firmware Activation Requires Reset"},
    {18, "Firmware Activation Requires Maximum Time Violation"},
    {19, "Firmware Activation Prohibited"},
    {20, "Overlapping Range"},
    {21, "Namespace Insufficient Capacity"},
    {22, "Namespace Identifier Unavailable"},
    {24, "Namespace Already Attached"},
    {25, "Namespace Is Private"},
    {26, "Namespace Not Attached"},
    {27, "Thin Provisioning Not Supported"},
    {28, "Controller List Invalid"},
    {29, "Device Self-test In Progress"},
    {30, "Boot Partition Write Prohibited"},
    {31, "Invalid Controller Identifier"},
    {32, "Invalid Secondary Controller State"},
    {33, "Invalid Number of Controller Resources"},
    {34, "Invalid Resource Identifier"},
};

constexpr CodeMessage kVendor[] = {
    {0, "No error"},
    {1, "Failed"},
    {3, "Invalid request"},
    {4, "Invalid parameter"},
    {5, "Not supported"},
    {6, "Invalid HD ID"},
    {7, "Invalid LD ID"},
    {8, "No resource"},
    {9, "Operation in progress"},
    {51, "LD is not redundant"},
    {52, "LD is not fully inited"},
    {53, "LD is not functional"},
    {54, "LD is functional"},
    {55, "PD size is too small"},
    {56, "Import no table"},
    {57, "Import already in table"},
    {58, "Import foreign"},
    {59, "HD is assigned"},
    {60, "Invalid RAID mode"},
    {61, "Invalid HD count"},
    {62, "Invalid SBS"},
    {63, "No available ID"},
    {64, "HD sector size mismatch"},
    {65, "Create namespace cap out of range"},
    {66, "LD has BGA"},
    {67, "No BGA activity"},
    {68, "Invalid BGA action"},
    {69, "BGA is running"},
    {70, "BGA is not running"},
    {71, "Rebuild source fail."},
    {72, "Rebuild target is too small"},
    {73, "Media patrol is running"},
    {74, "Invalid Namespace count"},
};

template <std::size_t N>
const char *lookup(const CodeMessage (&table)[N], KRT_U32 code, const char *fallback)
{
    for (const CodeMessage &entry : table) {
        if (entry.code == code)
            return entry.text;
    }
    return fallback;
}

constexpr KRT_U32 kSctBits = 0x700;
constexpr KRT_U32 kSctCommandSpecific = 0x100;

}  // namespace

const char *_cssErrorMessage(KRT_U8 code)
{
    return lookup(kCommandSpecific, code, kUnknownError);
}
const char *_vcErrorMessage(KRT_U8 code)
{
    return lookup(kVendor, code, kUnknownError);
}

const char *statusMessage(KRT_U32 status)
{
    if ((status & kSctBits) == kSctBits)
        return _vcErrorMessage(static_cast<KRT_U8>(status & 0xFF));
    if ((status & kSctCommandSpecific) != 0)
        return _cssErrorMessage(static_cast<KRT_U8>(status & 0xFF));
    if (status < 133)
        return lookup(kGeneric, status, kUnknownStatus);
    return kUnknownStatus;
}

void _showStatusCode(KRT_U32 status)
{
    if (status == 0)
        return;
    char code[16];
    std::snprintf(code, sizeof code, "0x%x", status);
    const std::string line = std::string(statusMessage(status)) + " (Status Code: " + code + ")";
    std::printf("%s\n", line.c_str());
    if (json_output::active())
        json_output::noteStatus(status, line);
}
