// Every command of both tables with the options people type, so that every
// decoder and printer meets whatever a controller answers: the reply target
// runs the one each input chooses, the fault matrix runs them all in turn.
// The reply seeds name a line by its index: new lines go at the end.
#pragma once

#include <string>
#include <vector>

namespace krt_fuzz {

// `image` and `spi` are files the commands read, `out` one they write.
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

}  // namespace krt_fuzz
