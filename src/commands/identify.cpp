// identify: Identify Controller and Identify Namespace data.
#include "commands/identify.h"

#include <getopt.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "api/krt_api.h"
#include "commands/commands.h"
#include "commands/verdict.h"
#include "util/fields.h"
#include "util/state.h"
#include "util/text.h"

const char identify_sh[] = ":Get controller identify info.";
const char identify_help[] =
    "Usage:\n"
    "  identify -c <CNS> [-n <NSID>] [--rawdata]\n"
    "\n"
    "Sends an NVMe Identify command to the NVMe Controller and shows the data.\n"
    "\n"
    "Options (numbers are decimal, or hexadecimal with 0x):\n"
    "  -c, --cns <CNS>          0: Identify Namespace (needs -n); 1: Identify Controller;\n"
    "                           any other value: the raw data only. Only the low 8 bits\n"
    "                           are sent. Without -c: Identify Namespace.\n"
    "  -n, --namepsace=<NSID>   namespace ID.\n"
    "  -i, --cntid=<ID>         controller identifier (accepted, not sent).\n"
    "  --rawdata                also show the 4096 bytes as a hex dump.\n"
    "  -h, --help               show this help.\n"
    "\n"
    "Examples:\n"
    "  identify -c 1\n"
    "  identify -c 0 -n 1 --rawdata\n";

namespace {

const char kIdentifyShortOptions[] = "c:i:n:r:\x01:h";
// The long names are spelled as scripts have always typed them. --cntid and
// --namepsace take their value only as "=value"; given bare they have none,
// which is refused like any word that is no number.
const option kIdentifyLongOptions[] = {
    {"cns", required_argument, nullptr, 'c'},
    {"cntid", optional_argument, nullptr, 'i'},
    {"namepsace", optional_argument, nullptr, 'n'},
    {"rawdata", no_argument, nullptr, 'r'},
    {"help", no_argument, nullptr, 'h'},
    {"output", required_argument, nullptr, KRT_OUTPUT_OPTION},
    {nullptr, 0, nullptr, 0},
};

constexpr int kControllerLabelWidth = 24;
constexpr int kNamespaceLabelWidth = 20;

template <std::size_t N>
std::string idText(const KRT_U8 (&field)[N])
{
    return boundedTextNoLeadingBlanks(field, N);
}

// The SUBNQN field's first bytes with anything unprintable blanked, then the
// number kept right after them.
std::string subnqnLine(const _krt_id_ctrl &id)
{
    std::string text(reinterpret_cast<const char *>(id.subnqn), KRT_ID_SUBNQN_TEXT);
    for (char &c : text) {
        if (c < 0x20 || c > 0x7E)
            c = ' ';
    }
    KRT_U32 tail = 0;
    std::memcpy(&tail, id.subnqn + KRT_ID_SUBNQN_TEXT, sizeof tail);
    text += std::to_string(tail);
    return text[0] == '\0' ? std::string("Unknown") : text;
}

// The TNVMCAP/UNVMCAP figures from their low 64 bits; "GB" is 2^30 bytes.
void capacity(const FieldWriter &out, const char *bytesLabel, const char *gbLabel, KRT_U64 bytes)
{
    out.num64(bytesLabel, bytes);
    out.num(gbLabel, static_cast<long>(bytes >> 30));
}

void rawDump(const void *page, long length)
{
    std::fputc('\n', stream);
    dumpContent(page, length);
}

}  // namespace

void _showIDDetail(const _krt_id_ctrl &id)
{
    const FieldWriter out(stream, kControllerLabelWidth);
    out.heading("\nNVME identify Information :\n\n");
    out.beginRecord("identify_controller");
    out.hex("VID:", id.vid);
    out.hex("SSVID:", id.ssvid);
    out.str("SN:", idText(id.sn));
    out.str("MN:", idText(id.mn));
    out.str("FR:", idText(id.fr));
    out.hex("RAB:", id.rab);
    out.hex("IEEE[0]:", id.ieee[0]);
    out.hex("IEEE[1]:", id.ieee[1]);
    out.hex("IEEE[2]:", id.ieee[2]);
    out.hex("MIC:", id.mic);
    out.hex("MDTS:", id.mdts);
    out.hex("OACS:", id.oacs);
    out.hex("ACL:", id.acl);
    out.hex("AERL:", id.aerl);
    out.hex("FRMW:", id.frmw);
    out.hex("LPA:", id.lpa);
    out.hex("ELPE:", id.elpe);
    out.hex("NPSS:", id.npss);
    out.hex("AVSCC:", id.avscc);
    out.hex64("TNVMCAP_LOW:", id.tnvmcap[0]);
    out.hex64("TNVMCAP_HIGH:", id.tnvmcap[1]);
    out.hex64("UNVMCAP_LOW:", id.unvmcap[0]);
    out.hex64("UNVMCAP_HIGH:", id.unvmcap[1]);
    capacity(out, "TNVMCAP(Bytes):", "TNVMCAP(GB):", id.tnvmcap[0]);
    capacity(out, "UNVMCAP(Bytes):", "UNVMCAP(GB):", id.unvmcap[0]);
    out.hex("SQES:", id.sqes);
    out.hex("CQES:", id.cqes);
    out.hex("NN:", id.nn);
    out.hex("ONCS:", id.oncs);
    out.hex("FUSES:", id.fuses);
    out.hex("FNA:", id.fna);
    out.hex("VWC:", id.vwc);
    out.hex("AWUN:", id.awun);
    out.hex("AWUPF:", id.awupf);
    out.hex("NVSCC:", id.nvscc);
    out.hex("ACWU:", id.acwu);
    out.hex("SQLS:", id.sgls);
    out.str("SUBNQN:", subnqnLine(id));
    out.endRecord();
    std::fputc('\n', stream);
}

void _showNSDetail(const _krt_id_ns &ns, KRT_U32 nsid)
{
    const FieldWriter out(stream, kNamespaceLabelWidth);
    out.beginRecord("identify_namespace");
    out.extra("nsid", json_output::Value::number(nsid));
    out.hex64("NSZE:", ns.nsze);
    out.hex64("NCAP:", ns.ncap);
    out.hex64("NUSE:", ns.nuse);
    out.hex("NSFEAT:", ns.nsfeat);
    out.hex("nlbaf:", ns.nlbaf);
    out.hex("flbas:", ns.flbas);
    out.hex("mc:", ns.mc);
    out.hex("dpc:", ns.dpc);
    out.hex("dps:", ns.dps);
    out.hex("nmic:", ns.nmic);
    out.hex("rescap:", ns.rescap);
    out.hex("fpi:", ns.fpi);
    out.hex("dlfeat:", ns.dlfeat);
    out.hex("nawun:", ns.nawun);
    out.hex("nawupf:", ns.nawupf);
    out.hex("nacwu:", ns.nacwu);
    char label[16];
    for (int i = 0; i < 8; ++i) {
        std::snprintf(label, sizeof label, "eui64[%d]:", i);
        out.hex(label, ns.eui64[i]);
    }
    // As one text, the way ns -e takes it.
    std::string eui64;
    for (const KRT_U8 byte : ns.eui64) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", byte);
        eui64 += digits;
    }
    out.extra("eui64", json_output::Value::text(eui64));
    // nlbaf counts from 0: a count of 255 wraps and no format is listed.
    const int formats = (ns.nlbaf + 1) % 256;
    out.beginListing("LBA formats");
    for (int i = 0; i < formats; ++i) {
        out.beginRecord("lba_format");
        out.num("[LBAF]", i);
        out.hex("  MS:", ns.lbaf[i].ms);
        out.hex("  DS:", ns.lbaf[i].ds);
        out.hex("  RP:", ns.lbaf[i].rp);
        out.endRecord();
    }
    out.endListing();
    out.endRecord();
}

int doIdentify(int argc, char **argv, const Command_Info *entry)
{
    unsigned long long cns = 0;
    unsigned long long nsid = 0;
    unsigned long long cntid = 0;
    int cnsCount = 0, cntidCount = 0, nsidCount = 0, rawCount = 0;

    optind = 0;
    int opt;
    while ((opt = getopt_long(argc, argv, kIdentifyShortOptions, kIdentifyLongOptions, nullptr)) != -1) {
        switch (opt) {
            case KRT_OUTPUT_OPTION:
                break;
            case 'c':
                if (!readHexOrDecimal(optarg, &cns)) {
                    tell(Verdict::UsageError, "-c : invalid controller or namepsace structure '%s'\n",
                         optarg ? optarg : "");
                    return 0;
                }
                ++cnsCount;
                break;
            case 'i':
                if (!readHexOrDecimal(optarg, &cntid)) {
                    tell(Verdict::UsageError, "-i : invalid controller identifier '%s'\n", optarg ? optarg : "");
                    return 0;
                }
                ++cntidCount;
                break;
            case 'n':
                if (!readHexOrDecimal(optarg, &nsid)) {
                    tell(Verdict::UsageError, "-n : invalid namepsace id '%s'\n", optarg ? optarg : "");
                    return 0;
                }
                ++nsidCount;
                break;
            case 'r':
                // The short form takes a word and ignores it.
                ++rawCount;
                break;
            case '?':
                unknownOption();  // getopt has said what was wrong
                return 0;
            default:
                printCommandHelp(entry);
                return 0;
        }
    }

    if (cnsCount > 1 || cntidCount > 1 || nsidCount > 1 || rawCount > 1) {
        duplicateOption();
        return 1;
    }
    if (cnsCount == 1 && cns == NVME_CNS_NAMESPACE && nsidCount == 0) {
        optionRequired(argv[0], 'n');
        return 0;
    }

    // Identify data is 4096 bytes whatever the CNS; only its low byte is sent.
    KRT_U8 page[NVME_IDENTIFY_SIZE] = {};
    const KRT_U32 cdw10 = static_cast<KRT_U32>(cns & 0xFF);
    const KRT_U32 status = KRT_Adapter_Admin(gCurrentAdapter, NVME_ADMIN_IDENTIFY, static_cast<KRT_U32>(nsid), &cdw10,
                                             1, nullptr, 0, page, sizeof page);
    if (status != 0) {
        tell(Verdict::RequestFailed, "get identify info failed.\n");
        return static_cast<int>(status);
    }

    if (cns == NVME_CNS_CONTROLLER) {
        _krt_id_ctrl id;
        std::memcpy(&id, page, sizeof id);
        _showIDDetail(id);
    } else if (cns == NVME_CNS_NAMESPACE) {
        _krt_id_ns ns;
        std::memcpy(&ns, page, sizeof ns);
        _showNSDetail(ns, static_cast<KRT_U32>(nsid));
    }
    // Any other structure is only shown raw.
    if (rawCount != 0 || (cns != NVME_CNS_CONTROLLER && cns != NVME_CNS_NAMESPACE)) {
        const FieldWriter out(stream, 0);
        out.beginRecord("identify_data");
        out.extra("cns", json_output::Value::number(cns));
        out.extra("nsid", json_output::Value::number(nsid));
        out.extra("length_bytes", json_output::Value::number(sizeof page));
        out.bytes("data", page, static_cast<long>(sizeof page), rawDump);
        out.endRecord();
    }
    return 0;
}

const CommandOptions identify_options = {kIdentifyShortOptions, kIdentifyLongOptions};
