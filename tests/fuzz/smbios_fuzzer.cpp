// SMBIOS tables: the entry point and structure walk of a table file, and
// the walk alone over the same bytes with each kind of limit.
//
// Input: the bus number to look for (1 byte), the walk's count limit (1
// byte), then the file.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include "device/smbios.h"
#include "harness.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size < 2)
        return -1;
    krt_fuzz::setUpProcess();
    const unsigned bus = data[0];
    const unsigned limit = data[1];
    const std::uint8_t *table = data + 2;
    const std::size_t length = size - 2;

    char bdf[16];
    std::snprintf(bdf, sizeof bdf, "%02x:00.0", bus);
    const std::string path = krt_fuzz::fileWith(0, table, length);
    get_SMBIOS_slot_ID(bdf, path.c_str());

    smbios_find_slot(table, length, 0, true, bus);
    smbios_find_slot(table, length, limit, false, bus);
    return 0;
}
