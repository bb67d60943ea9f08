// Slot numbers from synthetic SMBIOS table files.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "device/smbios.h"
#include "guard_temp_tree.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

// A System Slot structure: slot number, in-use flag and bus number.
Bytes systemSlot(std::uint8_t slot, std::uint8_t usage, std::uint8_t bus, bool withString = false)
{
    Bytes s(17, 0);
    s[0] = 9;
    s[1] = 17;
    s[7] = usage;
    s[9] = slot;
    s[15] = bus;
    if (withString) {
        for (char c : std::string("PCIe Slot"))
            s.push_back(static_cast<std::uint8_t>(c));
        s.push_back(0);
        s.push_back(0);
    } else {
        s.push_back(0);
        s.push_back(0);
    }
    return s;
}

Bytes structure(std::uint8_t type, std::uint8_t length)
{
    Bytes s(length, 0);
    s[0] = type;
    s[1] = length;
    s.push_back(0);
    s.push_back(0);
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
constexpr std::size_t kFirst = 85;

Bytes sm3(const std::vector<Bytes> &structures)
{
    Bytes b(kFirst, 0);
    std::memcpy(b.data(), "_SM3_", 5);
    b[6] = 24;
    for (const Bytes &s : structures)
        b.insert(b.end(), s.begin(), s.end());
    const auto size = static_cast<std::uint32_t>(b.size());
    std::memcpy(&b[12], &size, 4);
    fixChecksum(b, 5, 0, 24);
    return b;
}

Bytes sm2(const std::vector<Bytes> &structures, std::uint16_t count, std::uint8_t minor = 8)
{
    Bytes b(kFirst, 0);
    std::memcpy(b.data(), "_SM_", 4);
    b[5] = 31;
    b[6] = 2;
    b[7] = minor;
    std::memcpy(&b[16], "_DMI_", 5);
    for (const Bytes &s : structures)
        b.insert(b.end(), s.begin(), s.end());
    const auto len = static_cast<std::uint16_t>(b.size());
    std::memcpy(&b[22], &len, 2);
    std::memcpy(&b[28], &count, 2);
    fixChecksum(b, 21, 16, 15);
    fixChecksum(b, 4, 0, 31);
    return b;
}

class Smbios : public ::testing::Test {
  protected:
    std::string write(const Bytes &b)
    {
        std::string path = dir.file("smbios");
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char *>(b.data()), static_cast<std::streamsize>(b.size()));
        return path;
    }
    int slotOf(const Bytes &b, const char *bdf = "3a:00.00") { return get_SMBIOS_slot_ID(bdf, write(b).c_str()); }

    TempTree dir;
};

TEST_F(Smbios, BothEntryPointsFindTheSlotOfTheBus)
{
    const std::vector<Bytes> table = {structure(0, 24), systemSlot(5, 4, 0x10), systemSlot(7, 4, 0x3A, true),
                                      structure(127, 4)};
    EXPECT_EQ(slotOf(sm3(table)), 7);
    EXPECT_EQ(slotOf(sm2(table, 5)), 7);
    EXPECT_EQ(slotOf(sm3(table), "10:00.00"), 5);
    EXPECT_EQ(slotOf(sm3(table), "11:00.00"), -1);
}

TEST_F(Smbios, LastMatchingSlotWinsAndUnusedSlotsDoNot)
{
    const std::vector<Bytes> table = {systemSlot(2, 4, 0x3A), systemSlot(9, 4, 0x3A), systemSlot(4, 3, 0x3A)};
    EXPECT_EQ(slotOf(sm3(table)), 9);
}

TEST_F(Smbios, EndOfTableStopsOnlyTheSixtyFourBitWalk)
{
    const std::vector<Bytes> table = {structure(127, 4), systemSlot(6, 4, 0x3A)};
    EXPECT_EQ(slotOf(sm3(table)), -1);
    EXPECT_EQ(slotOf(sm2(table, 3)), 6);
}

TEST_F(Smbios, StructureCountLimitsTheThirtyTwoBitWalk)
{
    const std::vector<Bytes> table = {structure(1, 8), systemSlot(6, 4, 0x3A)};
    EXPECT_EQ(slotOf(sm2(table, 2)), -1) << "the entry point itself is the first structure";
    EXPECT_EQ(slotOf(sm2(table, 3)), 6);
}

TEST_F(Smbios, ShortHeadersAreSkippedUncounted)
{
    Bytes bad = {1, 2, 0xAA, 0xBB, 0, 0};
    EXPECT_EQ(slotOf(sm2({bad, systemSlot(6, 4, 0x3A)}, 2)), 6);
}

TEST_F(Smbios, BadChecksumsAndFormatsFindNothing)
{
    const std::vector<Bytes> table = {systemSlot(7, 4, 0x3A)};
    Bytes b = sm3(table);
    b[5] ^= 1;
    EXPECT_EQ(slotOf(b), -1);

    b = sm2(table, 2);
    b[4] ^= 1;
    EXPECT_EQ(slotOf(b), -1);
    b = sm2(table, 2);
    b[21] ^= 1;  // the _DMI_ part's sum
    b[4] ^= 1;
    EXPECT_EQ(slotOf(b), -1);

    b = sm3(table);
    b[0] = 'X';
    EXPECT_EQ(slotOf(b), -1);

    testing::internal::CaptureStderr();
    b = sm3(table);
    b[6] = 40;
    EXPECT_EQ(slotOf(b), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Entry point length too large (40 bytes, expected 24).\n");
}

TEST_F(Smbios, VersionFixupsAreAnnounced)
{
    testing::internal::CaptureStdout();
    EXPECT_EQ(slotOf(sm2({systemSlot(7, 4, 0x3A)}, 2, 33)), 7);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "SMBIOS version fixup (2.33 -> 2.3).\n");
}

TEST_F(Smbios, ShortAndMissingFiles)
{
    // Table size beyond the file: the read is cut to what the file holds.
    Bytes b = sm3({systemSlot(7, 4, 0x3A)});
    const std::uint32_t huge = 1u << 20;
    std::memcpy(&b[12], &huge, 4);
    b[5] = 0;
    fixChecksum(b, 5, 0, 24);
    EXPECT_EQ(slotOf(b), 7);

    // A structure running past the end of the file stops the walk.
    b = sm3({systemSlot(7, 4, 0x3A)});
    b.resize(b.size() - 3);
    EXPECT_EQ(slotOf(b), -1);

    EXPECT_EQ(slotOf(Bytes{'_', 'S', 'M'}), -1);
    testing::internal::CaptureStderr();
    EXPECT_EQ(slotOf(Bytes{}), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), dir.file("smbios") + ": Can't read data beyond EOF\n");
    testing::internal::CaptureStderr();
    EXPECT_EQ(get_SMBIOS_slot_ID("3a:00.00", dir.file("absent").c_str()), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

}  // namespace
