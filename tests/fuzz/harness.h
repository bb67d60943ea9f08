// What the fuzz targets share: an in-process driver answering each request
// from a script (the input), a process kept off devices, terminal and file
// tree, and one run of the tool as start-up makes it, undone after. The
// fault matrix takes the command lines from here too.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace krt_fuzz {

// A script holds one record per request, in order: kind (1 byte), code (2
// bytes LE), length (2 bytes LE), data. kind % 4 = 0: success; 1: driver
// status `code`, clean completion; 2: completion status `code` (SCT << 8 |
// SC); 3: the driver call fails with error `code`. The data (at most a
// page, the rest zero) fills the request's buffer whatever the kind.
enum class Kind : std::uint8_t { Success = 0, DriverStatus = 1, Completion = 2, CallFails = 3 };

// How requests are answered once the script is used up.
enum class WhenExhausted {
    Healthy,  // as a controller with nothing configured: signed, empty replies
    Fail,     // every request fails at the driver
};

// Once per process (idempotent): output to /dev/null, getopt quiet, the
// fake driver in place of the platform library.
void setUpProcess();

// One run: `adapters` controllers listed (`listCount` the count the list
// claims), requests answered from script[0..size), then as `after` says;
// the controllers registered and their records filled as start-up does.
void beginRun(unsigned adapters, std::uint32_t listCount, const std::uint8_t *script, std::size_t size,
              WhenExhausted after, bool debug);
// Releases what the run opened and resets the process-wide state.
void endRun();

// A command line as the shell takes it (at most 2047 characters of it).
int runLine(const std::string &line);

// A file of the given bytes for options that name one: a /proc/self/fd
// path, valid until the next call with the same slot (0..3).
std::string fileWith(int slot, const std::uint8_t *data, std::size_t size);

// Every command of both tables with the options people type, so that every
// decoder and printer meets whatever a controller answers (the reply target
// runs one, the fault matrix all). The reply seeds name a line by its
// index: new lines go at the end. `out` is a file the commands write.
inline std::vector<std::string> commandLines(const std::string &image, const std::string &spi, const std::string &out)
{
    return {"adapter --list", "adapter -i 1", "adapter -n nqn.2026-01.io.krt:nvme-controller:serial:KRT00001001",
            "info -o hba", "info -o pd", "info -o pd -i 1", "info -o vd", "info -o vd -i 0", "info -o ns",
            "info -o ns -t host", "info -o ns -t vd -v 0", "event", "event -c 0", "event -c 20", "log -a show",
            "log -a show --outputfile " + out, "get -o hba", "smart -i 1", "smart -o hba", "smart -o ns -n 1",
            "identify -c 1", "identify -c 1 --rawdata", "identify -c 0 -n 1", "identify -c 0 -n 1 --rawdata",
            "identify -c 2", "passthru -i 1 -r read -o 0x06 --cdw10 1 -d 4096",
            "passthru -i 1 -r read -o 2 -n 0xffffffff --cdw10 0x7f0002 -d 512", "spi -t read",
            "spi -t write --inputfile " + spi, "flash -o hba -q firmware", "flash -o pd -i 1 -q firmware",
            "flash -o hba -f " + image + " -s 2 -c 1", "flash -o hba -c 2 -s 2", "flash -o hba -t raw -f " + image,
            "flash -o pd -i 1 -f " + image + " -s 1 -c 1", "inverse -a get", "inverse -a inverse", "ns --list",
            "ns -p ctrl", "ns -a create -i 1 -c 1 -l 10", "ns -a share -i 1 -s yes", "ns -a attach -i 1 -d 1",
            "ns -a detach -i 1 -d 1", "ns -a attach -e 001e000000000201 -d 1",
            "ns -a init -i 1 -n 2 --waiveconfirmation", "vd -a create -r 5 -d 6,7,8 -b 256 -n 2",
            "vd -a create -r 0 -d 9", "vd -a delete -i 0", "log -a on", "set -o hba -i 0 -a on -r medium",
            "led -o rc -i 2 -a qb", "reset -t perstn -a cycle -i 2", "init -i 1", "mp -i 0 -a stop",
            "rebuild -i 1 -a start -d 7", "import -l 1", "import -l 0 -p 1 -n 0xff", "debuglv -t 1", "version",
            // Help, the hidden commands and the rarer options.
            "?", "help", "help info vd nothing", "--debug", "adapter -i 0", "info -o hd -i 31", "info -o ld -i 7",
            "info -o ns -t vd -v 255", "info -o hba -output " + out, "1 info -o pd", "get -o hba -i 0",
            "passthru -i 1 -r read -o 2 --cdw10 0x7f0003 -d 512 --showcmd --outputfile " + out,
            "spi -t read --outputfile " + out, "vpd", "dumphba", "gpio", "vpdread", "gen", "reg", "dvf", "protect",
            "i2c", "pcie", "sriov", "hotkey", "getoemdata", "mi_passthruread", "mi_passthruwrite", "vm_cmd",
            "log -a off", "inverse -a noinverse", "led -o ep -i 0 -a on", "reset -i 2", "reset -t power -a cycle -i 1",
            "init -i 1 -a stop", "mp -i 0", "rebuild -i 1 -a stop"};
}

// The command lines with files in slots 0-2: a raw one-segment image whose
// words add up to 0, an SPI area, an empty file to write.
const std::vector<std::string> &linesWithFiles();

}  // namespace krt_fuzz
