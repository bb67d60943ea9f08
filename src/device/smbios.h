// Motherboard slot numbers from the host's SMBIOS table: the System Slot
// structure whose bus number is the controller's.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

constexpr const char *SMBIOS_TABLE_PATH = "/dev/char/mem/smbios";

// Reads len bytes at offset base of the file. On success returns true with
// out holding at most len bytes (cut to what the file holds); messages of a
// failure go to standard error.
bool read_SM_file(const char *path, std::size_t base, std::size_t len, std::vector<std::uint8_t> &out);

// Walks a structure table. limit 0: no count limit, stop at end-of-table
// (type 127); otherwise count at most limit structures and ignore type 127.
// Returns the slot of the last in-use System Slot on that bus, or -1.
int smbios_find_slot(const std::uint8_t *table, std::size_t size, unsigned limit, bool stopAtEnd, unsigned bus);

// Slot of the controller at PCI address text "bb:dd.ff" from the SMBIOS file
// at path, or -1.
int get_SMBIOS_slot_ID(const char *bdf, const char *path = SMBIOS_TABLE_PATH);
