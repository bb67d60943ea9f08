// spi: the controller's 4096-byte SPI data area, read out or written.
#include <getopt.h>
#include <strings.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <string>

#include "api/krt_api.h"
#include "commands/commands.h"
#include "commands/user_file.h"
#include "commands/verdict.h"
#include "krt/logs.h"
#include "util/fields.h"
#include "util/file_io.h"
#include "util/state.h"

const char spi_sh[] = ":Read and write SPI data. Maximal size of SPI data is 4096 bytes.";
const char spi_help[] =
    "\n"
    "Usage: spi -t read [--outputfile <file>]\n"
    "       spi -t write --inputfile <file>\n"
    "\n"
    "Reads the 4096-byte SPI data area of the NVMe Controller, or writes it\n"
    "from a file.\n"
    "\n"
    "Options:\n"
    "  -t, --type <read|write>\n"
    "        read: show the data as a hex listing, or save it into the file\n"
    "        of --outputfile; write: send the file of --inputfile. Required.\n"
    "  --outputfile <file>\n"
    "        With 'read', save the 4096 bytes into <file> instead of showing\n"
    "        them. The file is created, or emptied, as soon as the option is\n"
    "        read.\n"
    "  --inputfile <file>\n"
    "        With 'write', the data to send: its first 4096 bytes, followed by\n"
    "        zero bytes up to 4096 when it is shorter. The whole area is\n"
    "        always written.\n"
    "  -h, --help\n"
    "        Show this help.\n"
    "\n"
    "The two file options share one open file: give only the one that the\n"
    "type needs. A name in double quotes may hold blanks.\n"
    "\n"
    "Examples:\n"
    "  spi -t read\n"
    "  spi -t read --outputfile spi.bin\n"
    "  spi -t write --inputfile spi.bin\n";

namespace {

// The long file options double as the short options -1 and -2.
constexpr int kOutputFileOption = '1';
constexpr int kInputFileOption = '2';

const char kSPIShortOptions[] = "t:1:2:\x01:h";
const option kSPILongOptions[] = {
    {"type", required_argument, nullptr, 't'},
    {"outputfile", required_argument, nullptr, kOutputFileOption},
    {"inputfile", required_argument, nullptr, kInputFileOption},
    {"help", no_argument, nullptr, 'h'},
    {"output", required_argument, nullptr, KRT_OUTPUT_OPTION},
    {nullptr, 0, nullptr, 0},
};

enum class SPIType { None, Read, Write };

// Which file option the one open user file came from, if its open worked.
enum class OpenFile { None, Output, Input };

using SPIBuffer = std::array<KRT_U8, KRT_SPI_SIZE>;

// The bytes read from the area or about to be written to it.
void dataRecord(const char *direction, const KRT_U8 *data, long length)
{
    const FieldWriter out(stream, 0);
    out.beginRecord("spi_data");
    out.extra("direction", json_output::Value::text(direction));
    out.extra("length_bytes", json_output::Value::number(length));
    out.bytes("data", data, length, _showRAWData);
    out.endRecord();
}

int readSPI(SPIBuffer &buffer, OpenFile file, const std::string &fileName)
{
    const KRT_U32 cdws[1] = {KRT_SPI_READ_CDW10};
    const KRT_U32 status = KRT_Adapter_Admin(gCurrentAdapter, NVME_ADMIN_GET_LOG_PAGE, 0, cdws, 1, nullptr, 0,
                                             buffer.data(), static_cast<KRT_U16>(buffer.size()));
    if (status != 0) {
        tell(Verdict::RequestFailed, "Read SPI failed.\n");
        return static_cast<int>(status);
    }
    // Without an output file that opened, the data is shown instead: it is
    // not lost for a mistyped name.
    if (file == OpenFile::Output) {
        if (write_file(buffer.data(), buffer.size()) != buffer.size())
            reportFileError("write", fileName);
        close_file();
    } else {
        dataRecord("read", buffer.data(), static_cast<long>(buffer.size()));
    }
    tell(Verdict::Ok, "Read SPI successful.\n");
    return 0;
}

int writeSPI(SPIBuffer &buffer, bool inputGiven, OpenFile file, const std::string &fileName)
{
    if (!inputGiven) {
        tell(Verdict::UsageError, "Please provide input file.\n");
        return 0;
    }
    if (file != OpenFile::Input) {
        // The result is the length of the message, as it has always been.
        return tell(Verdict::NotFound, "File is not exist.\n");
    }
    const std::size_t n = static_cast<std::size_t>(std::clamp<long>(get_file_length(), 0, KRT_SPI_SIZE));
    if (read_file(buffer.data(), n) != n) {
        reportFileError("read", fileName);
        json_output::noteResult(Verdict::NotFound);
        return 1;
    }
    FieldWriter(stdout, 0).heading("spi write data.....\n");
    dataRecord("write", buffer.data(), static_cast<long>(n));

    // The whole area is written, zero-filled past a short file.
    const KRT_U32 cdws[3] = {KRT_SPI_WRITE_CDW10, 0, KRT_SPI_WRITE_CDW12};
    const KRT_U32 status = KRT_Adapter_Admin(gCurrentAdapter, NVME_ADMIN_VENDOR_C7, 0, cdws, 3, buffer.data(),
                                             static_cast<KRT_U16>(buffer.size()), nullptr, 0);
    if (status != 0) {
        tell(Verdict::RequestFailed, "Write SPI failed.\n");
    } else {
        tell(Verdict::Ok, "Write SPI successful.\n");
    }
    close_file();
    return static_cast<int>(status);
}

}  // namespace

int doSPI(int argc, char **argv, const Command_Info *entry)
{
    UserFileCloser closer;
    SPIType type = SPIType::None;
    int typeCount = 0, outputCount = 0, inputCount = 0;
    OpenFile file = OpenFile::None;
    std::string fileName;

    optind = 0;
    int opt;
    while ((opt = getopt_long(argc, argv, kSPIShortOptions, kSPILongOptions, nullptr)) != -1) {
        switch (opt) {
            case KRT_OUTPUT_OPTION:
                break;
            case 't':
                if (strcasecmp(optarg, "read") == 0) {
                    type = SPIType::Read;
                } else if (strcasecmp(optarg, "write") == 0) {
                    type = SPIType::Write;
                } else {
                    tell(Verdict::UsageError, "-t : invalid type '%s'\n", optarg);
                    return 0;
                }
                ++typeCount;
                break;
            case kOutputFileOption:
            case kInputFileOption: {
                // Both options open the one user file at once; the last
                // one given is the file the command works with.
                const bool output = opt == kOutputFileOption;
                ++(output ? outputCount : inputCount);
                fileName = fileOptionName(optarg);
                const bool opened = openUserFile(fileName, output ? "wb" : "r");
                file = !opened ? OpenFile::None : output ? OpenFile::Output : OpenFile::Input;
                break;
            }
            case 'h':
                printCommandHelp(entry);
                return 0;
            default:
                // getopt has said what was wrong.
                unknownOption();
                return 0;
        }
    }

    if (argc == 1) {
        return bareCommand(entry);
    }
    if (typeCount > 1 || outputCount > 1 || inputCount > 1) {
        duplicateOption();
        return 1;
    }
    if (typeCount == 0) {
        optionRequired(argv[0], 't');
        return 0;
    }

    SPIBuffer buffer{};
    if (type == SPIType::Read)
        return readSPI(buffer, file, fileName);
    return writeSPI(buffer, inputCount != 0, file, fileName);
}

const CommandOptions spi_options = {kSPIShortOptions, kSPILongOptions};
