// The command lines the reply target runs, one chosen by each input: every
// command of both tables with its typical options, so that every decoder
// and printer of a reply meets the replies. Files they name are the given
// image and SPI input; output files go to /dev/null.
#pragma once

#include <string>
#include <vector>

namespace krt_fuzz {

inline std::vector<std::string> commandLines(const std::string &image, const std::string &spiInput)
{
    return {
        "adapter --list",
        "adapter -i 1",
        "adapter -n nqn.2026-01.io.krt:nvme-controller:serial:KRT00001001",
        "info -o hba",
        "info -o pd",
        "info -o pd -i 1",
        "info -o vd",
        "info -o vd -i 0",
        "info -o ns",
        "info -o ns -t host",
        "info -o ns -t vd -v 0",
        "event",
        "event -c 0",
        "event -c 20",
        "log -a show",
        "log -a show --outputfile /dev/null",
        "get -o hba",
        "smart -i 1",
        "smart -o hba",
        "smart -o ns -n 1",
        "identify -c 1",
        "identify -c 1 --rawdata",
        "identify -c 0 -n 1",
        "identify -c 0 -n 1 --rawdata",
        "identify -c 2",
        "passthru -i 1 -r read -o 0x06 --cdw10 1 -d 4096",
        "passthru -i 1 -r read -o 2 -n 0xffffffff --cdw10 0x7f0002 -d 512",
        "spi -t read",
        "spi -t write --inputfile " + spiInput,
        "flash -o hba -q firmware",
        "flash -o pd -i 1 -q firmware",
        "flash -o hba -f " + image + " -s 2 -c 1",
        "flash -o hba -c 2 -s 2",
        "flash -o hba -t raw -f " + image,
        "flash -o pd -i 1 -f " + image + " -s 1 -c 1",
        "inverse -a get",
        "inverse -a inverse",
        "ns --list",
        "ns -p ctrl",
        "ns -a create -i 1 -c 1 -l 10",
        "ns -a share -i 1 -s yes",
        "ns -a attach -i 1 -d 1",
        "ns -a detach -i 1 -d 1",
        "ns -a attach -e 001e000000000201 -d 1",
        "ns -a init -i 1 -n 2 --waiveconfirmation",
        "vd -a create -r 5 -d 6,7,8 -b 256 -n 2",
        "vd -a create -r 0 -d 9",
        "vd -a delete -i 0",
        "log -a on",
        "set -o hba -i 0 -a on -r medium",
        "led -o rc -i 2 -a qb",
        "reset -t perstn -a cycle -i 2",
        "init -i 1",
        "mp -i 0 -a stop",
        "rebuild -i 1 -a start -d 7",
        "import -l 1",
        "import -l 0 -p 1 -n 0xff",
        "debuglv -t 1",
        "version",
    };
}

}  // namespace krt_fuzz
