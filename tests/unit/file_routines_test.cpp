#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <string>

#include "stream_capture.h"
#include "util/file_io.h"

namespace {

TEST(FileRoutines, OneOpenFileWrittenMeasuredAndReadBack)
{
    const std::string path = ::testing::TempDir() + "krt_file_routines.bin";
    const std::string quoted = "\"" + path + "\"";
    const std::array<unsigned char, 5> data{1, 2, 3, 4, 5};

    ASSERT_EQ(open_file(quoted.c_str(), "wb"), 0);  // the quotes are not part of the name
    EXPECT_EQ(write_file(data.data(), data.size()), data.size());
    close_file();
    close_file();  // a second close is harmless

    ASSERT_EQ(open_file(path.c_str(), "rb"), 0);
    EXPECT_EQ(get_file_length(), 5);
    std::array<unsigned char, 8> back{};
    EXPECT_EQ(read_file(back.data(), 2), 2u);
    EXPECT_EQ(get_file_length(), 5);  // measuring keeps the position
    EXPECT_EQ(read_file(back.data() + 2, 6), 3u);
    EXPECT_EQ(back, (std::array<unsigned char, 8>{1, 2, 3, 4, 5, 0, 0, 0}));
    close_file();
    std::remove(path.c_str());

    EXPECT_EQ(open_file((path + ".missing/x").c_str(), "r"), 1);
    EXPECT_EQ(get_file_length(), 0);
    EXPECT_EQ(read_file(back.data(), 1), 0u);
}

TEST(FileRoutines, RawDumpBreaksEverySixteenBytes)
{
    std::array<unsigned char, 17> bytes{};
    bytes[0] = 0xAB;
    bytes[16] = 0x01;
    krt_unit::StreamCapture out;
    _showRAWData(bytes.data(), 0);
    _showRAWData(bytes.data(), static_cast<long>(bytes.size()));
    std::string line;
    for (int i = 1; i < 16; ++i)
        line += "0x00 ";
    EXPECT_EQ(out.text(), "\n\n0xab " + line + "\n0x01 \n");
}

}  // namespace
