// Slot numbers from synthetic SMBIOS table files.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "device/smbios.h"
#include "unit_support.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

// A structure of the given type and formatted length with an empty string set.
Bytes structure(std::uint8_t type, std::uint8_t length)
{
    Bytes s(length, 0);
    s[0] = type;
    s[1] = length;
    s.insert(s.end(), {0, 0});
    return s;
}

// A System Slot structure: slot number, in-use flag and bus number.
Bytes systemSlot(std::uint8_t slot, std::uint8_t usage, std::uint8_t bus, const std::string &text = "")
{
    Bytes s = structure(9, 17);
    s[7] = usage;
    s[9] = slot;
    s[15] = bus;
    s.insert(s.begin() + 17, text.begin(), text.end());
    return s;
}

void fixChecksum(Bytes &b, std::size_t at, std::size_t from, std::size_t len)
{
    std::uint8_t sum = 0;
    for (std::size_t i = from; i < from + len; ++i)
        sum = static_cast<std::uint8_t>(sum + b[i]);
    b[at] = static_cast<std::uint8_t>(b[at] - sum);
}

// The table is read from the start of the file, entry point included: the
// entry point reads as one structure whose length byte is 'S' (83), so the
// first real structure follows 85 bytes in.
Bytes withEntry(const char *anchor, const std::vector<Bytes> &structures)
{
    Bytes b(85, 0);
    std::memcpy(b.data(), anchor, std::strlen(anchor));
    for (const Bytes &s : structures)
        b.insert(b.end(), s.begin(), s.end());
    return b;
}

Bytes sm3(const std::vector<Bytes> &structures, std::uint32_t size = 0)
{
    Bytes b = withEntry("_SM3_", structures);
    b[6] = 24;
    size = size != 0 ? size : static_cast<std::uint32_t>(b.size());
    std::memcpy(&b[12], &size, 4);
    fixChecksum(b, 5, 0, 24);
    return b;
}

Bytes sm2(const std::vector<Bytes> &structures, std::uint16_t count, std::uint8_t minor = 8)
{
    Bytes b = withEntry("_SM_", structures);
    b[5] = 31;
    b[6] = 2;
    b[7] = minor;
    std::memcpy(&b[16], "_DMI_", 5);
    const auto len = static_cast<std::uint16_t>(b.size());
    std::memcpy(&b[22], &len, 2);
    std::memcpy(&b[28], &count, 2);
    fixChecksum(b, 21, 16, 15);
    fixChecksum(b, 4, 0, 31);
    return b;
}

Bytes flipped(Bytes b, std::initializer_list<std::size_t> at)
{
    for (std::size_t i : at)
        b[i] ^= 1;
    return b;
}

// Writes the table file, then looks the controller's slot up in it.
int slotOf(const std::string &path, const Bytes &b, const char *bdf = "3a:00.00")
{
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char *>(b.data()), std::ssize(b));
    return get_SMBIOS_slot_ID(bdf, path.c_str());
}

TEST(Smbios, SlotOfTheControllersBus)
{
    const std::vector<Bytes> mixed = {structure(0, 24), systemSlot(5, 4, 0x10), systemSlot(7, 4, 0x3A, "PCIe Slot"),
                                      structure(127, 4)};
    const std::vector<Bytes> slot7 = {systemSlot(7, 4, 0x3A)};
    const std::vector<Bytes> endFirst = {structure(127, 4), systemSlot(6, 4, 0x3A)};
    const std::vector<Bytes> afterOne = {structure(1, 8), systemSlot(6, 4, 0x3A)};
    Bytes truncated = sm3(slot7), longEntry = sm3(slot7);
    truncated.resize(truncated.size() - 3);
    longEntry[6] = 40;
    TempTree dir;
    const std::string path = dir.file("smbios");
    const struct {
        const char *name;
        Bytes file;
        int slot;
        std::string says = "-";  // what it prints, when checked
        const char *bdf = "3a:00.00";
    } cases[] = {
        {"64-bit entry point", sm3(mixed), 7, ""},
        {"32-bit entry point", sm2(mixed, 5), 7},
        {"no slot on the bus", sm3(mixed), -1, "", "11:00.00"},
        {"last matching in-use slot wins",
         sm3({systemSlot(2, 4, 0x3A), systemSlot(9, 4, 0x3A), systemSlot(4, 3, 0x3A)}), 9},
        {"end-of-table stops the 64-bit walk", sm3(endFirst), -1},
        {"but not the 32-bit one", sm2(endFirst, 3), 6},
        {"count limits the 32-bit walk (entry point counts)", sm2(afterOne, 2), -1},
        {"count reaches the slot", sm2(afterOne, 3), 6},
        {"short headers are skipped uncounted", sm2({{1, 2, 0xAA, 0xBB, 0, 0}, systemSlot(6, 4, 0x3A)}, 2), 6},
        {"bad 64-bit checksum", flipped(sm3(slot7), {5}), -1},
        {"bad 32-bit checksum", flipped(sm2(slot7, 2), {4}), -1},
        {"bad _DMI_ checksum", flipped(sm2(slot7, 2), {21, 4}), -1},
        {"unknown anchor", flipped(sm3(slot7), {0}), -1},
        {"table size beyond the file is cut", sm3(slot7, 1u << 20), 7},
        {"structure past the end of the file", truncated, -1},
        {"short file", Bytes{'_', 'S', 'M'}, -1},
        {"empty file", Bytes{}, -1, path + ": Can't read data beyond EOF\n"},
        {"long entry point", longEntry, -1, "Entry point length too large (40 bytes, expected 24).\n"},
        {"version fixup", sm2(slot7, 2, 33), 7, "SMBIOS version fixup (2.33 -> 2.3).\n"},
    };
    for (const auto &c : cases) {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        EXPECT_EQ(slotOf(path, c.file, c.bdf), c.slot) << c.name;
        const std::string said = testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr();
        if (c.says != "-") {
            EXPECT_EQ(said, c.says) << c.name;
        }
    }
    testing::internal::CaptureStderr();
    EXPECT_EQ(get_SMBIOS_slot_ID("3a:00.00", dir.file("absent").c_str()), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "no table file: quietly no slot";
}

}  // namespace
