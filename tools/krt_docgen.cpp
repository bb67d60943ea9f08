// Writes the manual page krt_cli(8) and the bash completion of krt_cli from
// the public command table and the commands' own help texts, so that neither
// can tell a user anything the program does not say itself. The examples of
// the manual page are run on the simulator while the page is written.
//
//   krt_docgen --man <file> --completion <file> [--version <text>]
//              [--krtsim <path> --cli <path> --state <path>]
#include <getopt.h>
#include <sys/wait.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "shell/completion.h"
#include "shell/shell.h"
#include "util/state.h"

namespace {

// ---------------------------------------------------------------------------
// The help texts, read as paragraphs of indented lines.

struct Line {
    int indent = 0;
    std::string text;  // without the indentation and trailing blanks
};
using Paragraph = std::vector<Line>;

std::vector<Paragraph> paragraphs(const std::string &help)
{
    std::vector<Paragraph> out;
    Paragraph current;
    std::istringstream in(help);
    std::string raw;
    while (std::getline(in, raw)) {
        size_t end = raw.find_last_not_of(' ');
        if (end == std::string::npos) {
            if (!current.empty())
                out.push_back(current);
            current.clear();
            continue;
        }
        size_t start = raw.find_first_not_of(' ');
        current.push_back({static_cast<int>(start), raw.substr(start, end + 1 - start)});
    }
    if (!current.empty())
        out.push_back(current);
    return out;
}

bool isNameChar(char c)
{
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '-';
}

bool isWord(const std::string &s)
{
    if (s.empty())
        return false;
    for (char c : s) {
        if (std::isalnum(static_cast<unsigned char>(c)) == 0 && c != '_')
            return false;
    }
    return true;
}

// The fixed values an option argument spells out: "<a|b|c>" or one bare word.
std::vector<std::string> fixedValues(const std::string &arg)
{
    std::vector<std::string> values;
    if (arg.size() > 2 && arg.front() == '<' && arg.back() == '>') {
        std::string inner = arg.substr(1, arg.size() - 2);
        if (inner.find('|') == std::string::npos)
            return {};
        std::istringstream parts(inner);
        std::string part;
        while (std::getline(parts, part, '|')) {
            if (!isWord(part))
                return {};
            values.push_back(part);
        }
        return values;
    }
    if (isWord(arg) && std::isalpha(static_cast<unsigned char>(arg[0])) != 0)
        values.push_back(arg);
    return values;
}

// One entry of a help's option list: "-o, --object <hba|pd>", "--list",
// "-c <count>, --count=<count>", "--cdw10 ... --cdw13 <value>".
struct Option {
    std::string form;                      // as the help writes it
    std::vector<std::string> names;        // "-o", "--object", ...
    std::string arg;                       // "<hba|pd>", "raw", or empty
    std::vector<std::string> description;  // runs of text; each later one starts a line
    std::set<std::string> values;          // fixed values of the argument
    bool file = false;                     // the argument names a file
};

// "--cdw10 ... --cdw13": every name of the run.
void expandRun(std::vector<std::string> &names, const std::string &first, const std::string &last)
{
    auto split = [](const std::string &n, std::string &stem, int &number) {
        size_t digits = n.find_last_not_of("0123456789") + 1;
        if (digits == n.size() || digits == 0)
            return false;
        stem = n.substr(0, digits);
        number = std::atoi(n.c_str() + digits);
        return true;
    };
    std::string stemA, stemB;
    int a = 0, b = 0;
    if (!split(first, stemA, a) || !split(last, stemB, b) || stemA != stemB || b <= a || b - a > 16)
        return;
    for (int k = a + 1; k < b; ++k)
        names.push_back(stemA + std::to_string(k));
}

// Reads an option entry at the start of `text`; `descStart` receives where its
// description begins on the same line (text.size() when it has none there).
std::optional<Option> parseOptionEntry(const std::string &text, size_t &descStart)
{
    Option option;
    size_t i = 0;
    bool runFrom = false;
    for (;;) {
        if (i >= text.size() || text[i] != '-')
            return std::nullopt;
        size_t j = i + 1;
        if (j < text.size() && text[j] == '-') {
            ++j;
            while (j < text.size() && isNameChar(text[j]))
                ++j;
            if (j == i + 2)
                return std::nullopt;
        } else {
            if (j >= text.size() || std::isalnum(static_cast<unsigned char>(text[j])) == 0)
                return std::nullopt;
            ++j;
            if (j < text.size() && isNameChar(text[j]))
                return std::nullopt;
        }
        std::string name = text.substr(i, j - i);
        if (runFrom)
            expandRun(option.names, option.names.back(), name);
        option.names.push_back(name);
        runFrom = false;

        // Its argument: "=<x>", "=word", " <x>" or " word".
        std::string arg;
        bool bracketed = false;
        if (j < text.size() && (text[j] == '=' || (text[j] == ' ' && j + 1 < text.size() && text[j + 1] != ' ' &&
                                                   text[j + 1] != '-' && text[j + 1] != '.'))) {
            size_t k = j + 1;
            if (text[k] == '<') {
                size_t close = text.find('>', k);
                if (close == std::string::npos)
                    return std::nullopt;
                arg = text.substr(k, close + 1 - k);
                bracketed = true;
                j = close + 1;
            } else {
                size_t e = k;
                while (e < text.size() && text[e] != ' ' && text[e] != ',')
                    ++e;
                arg = text.substr(k, e - k);
                if (!isWord(arg))
                    return std::nullopt;
                j = e;
            }
            if (option.arg.empty())
                option.arg = arg;
        }

        // What follows: another name, the description, or the end.
        if (j >= text.size()) {
            descStart = text.size();
            break;
        }
        if (text.compare(j, 3, ", -") == 0) {
            i = j + 2;
            continue;
        }
        if (text.compare(j, 6, " ... -") == 0) {
            i = j + 5;
            runFrom = true;
            continue;
        }
        if (text.compare(j, 2, "  ") == 0 || (bracketed && text[j] == ' ')) {
            descStart = text.find_first_not_of(' ', j);
            break;
        }
        return std::nullopt;
    }
    option.form =
        text.substr(0, descStart == text.size() ? text.size() : text.find_last_not_of(' ', descStart - 1) + 1);
    for (const std::string &v : fixedValues(option.arg))
        option.values.insert(v);
    option.file = option.arg.find("file") != std::string::npos;
    return option;
}

// A block of one command's help, in the order the help has it.
struct Block {
    enum Kind { Text, Heading, Preformatted, OptionItem } kind;
    std::vector<std::string> lines;  // Text, Heading, Preformatted
    size_t option = 0;               // OptionItem: index into options
};

struct CommandDoc {
    std::string name;
    std::string summary;                    // first line, without the leading ':'
    std::vector<std::string> summaryExtra;  // lines the summary carries beyond its first
    std::vector<std::string> usage;
    std::vector<Block> blocks;
    std::vector<Option> options;           // as the help describes them
    std::vector<OptionSpelling> accepted;  // as the handler parses them

    Option *find(const std::string &word)
    {
        for (Option &o : options) {
            for (const std::string &n : o.names) {
                if (n == word)
                    return &o;
            }
        }
        return nullptr;
    }
};

bool startsWith(const std::string &s, const char *prefix)
{
    return s.rfind(prefix, 0) == 0;
}

void readOptions(CommandDoc &doc, const Paragraph &para)
{
    doc.blocks.push_back({Block::Heading, {para[0].text}, 0});
    Option *current = nullptr;
    int optionIndent = 0;
    int descColumn = -1;
    for (size_t n = 1; n < para.size(); ++n) {
        const Line &line = para[n];
        size_t descStart = 0;
        if (auto option = parseOptionEntry(line.text, descStart)) {
            if (descStart < line.text.size())
                option->description.push_back(line.text.substr(descStart));
            doc.options.push_back(*option);
            doc.blocks.push_back({Block::OptionItem, {}, doc.options.size() - 1});
            current = &doc.options.back();
            optionIndent = line.indent;
            descColumn = descStart < line.text.size() ? line.indent + static_cast<int>(descStart) : -1;
            continue;
        }
        if (current != nullptr && line.indent > optionIndent) {
            if (descColumn < 0)
                descColumn = line.indent;
            if (line.indent > descColumn || current->description.empty())
                current->description.push_back(line.text);
            else
                current->description.back() += "\n" + line.text;
            continue;
        }
        current = nullptr;
        doc.blocks.push_back({Block::Text, {line.text}, 0});
    }
}

// Adds the values a usage line gives an option ("-o hba", "-a <start|stop>").
void readUsageValues(CommandDoc &doc)
{
    for (const std::string &line : doc.usage) {
        std::vector<std::string> words;
        std::istringstream in(line);
        std::string w;
        while (in >> w) {
            std::string bare;
            for (char c : w) {
                if (c != '[' && c != ']' && c != '(' && c != ')')
                    bare += c;
            }
            words.push_back(bare);
        }
        for (size_t k = 0; k + 1 < words.size(); ++k) {
            if (!startsWith(words[k], "-"))
                continue;
            Option *option = doc.find(words[k]);
            if (option == nullptr)
                continue;
            for (const std::string &v : fixedValues(words[k + 1]))
                option->values.insert(v);
        }
    }
}

CommandDoc readCommand(const Command_Info &entry)
{
    CommandDoc doc;
    doc.name = entry.cmd;
    std::string summary = entry.cmdShortHelp;
    if (startsWith(summary, ":"))
        summary.erase(0, 1);
    std::istringstream lines(summary);
    std::getline(lines, doc.summary);
    for (std::string extra; std::getline(lines, extra);) {
        size_t end = extra.find_last_not_of(' ');
        doc.summaryExtra.push_back(end == std::string::npos ? "" : extra.substr(0, end + 1));
    }

    bool usageSeen = false;
    for (const Paragraph &para : paragraphs(entry.cmdHelp)) {
        const Line &first = para[0];
        if (!usageSeen && first.indent == 0 && startsWith(first.text, "Usage")) {
            usageSeen = true;
            size_t colon = first.text.find(':');
            std::string rest = colon == std::string::npos ? "" : first.text.substr(colon + 1);
            size_t start = rest.find_first_not_of(' ');
            if (start != std::string::npos)
                doc.usage.push_back(rest.substr(start));
            for (size_t n = 1; n < para.size(); ++n)
                doc.usage.push_back(para[n].text);
        } else if (first.indent == 0 && startsWith(first.text, "Options")) {
            readOptions(doc, para);
        } else if (first.indent == 0 && startsWith(first.text, "Example")) {
            Block block{Block::Preformatted, {}, 0};
            for (size_t n = 1; n < para.size(); ++n)
                block.lines.push_back(para[n].text);
            doc.blocks.push_back({Block::Heading, {first.text}, 0});
            doc.blocks.push_back(block);
        } else {
            Block block{Block::Text, {}, 0};
            for (const Line &line : para)
                block.lines.push_back(line.text);
            doc.blocks.push_back(block);
        }
    }
    readUsageValues(doc);
    doc.accepted = optionSpellings(entry);
    return doc;
}

// The help's entry for an option the handler accepts: the one that names its
// short or long form. Null for an option the help does not describe.
const Option *described(const CommandDoc &doc, const OptionSpelling &spelling)
{
    for (const Option &o : doc.options) {
        for (const std::string &n : o.names) {
            if ((spelling.shortName != 0 && n == std::string("-") + spelling.shortName) ||
                (!spelling.longName.empty() && n == "--" + spelling.longName))
                return &o;
        }
    }
    return nullptr;
}

// The accepted options an entry of the help stands for.
std::vector<OptionSpelling> acceptedFor(const CommandDoc &doc, const Option &option)
{
    std::vector<OptionSpelling> out;
    for (const OptionSpelling &spelling : doc.accepted) {
        if (described(doc, spelling) == &option)
            out.push_back(spelling);
    }
    return out;
}

// "-o, --object <object>", "-c <count>, --count[=<count>]": the names the
// handler takes and how each takes its argument; the placeholder is the
// help's, or <value>.
std::string spelled(const OptionSpelling &o, const std::string &placeholder, const char *between)
{
    const std::string arg = placeholder.empty() ? "<value>" : placeholder;
    auto shortForm = [&](bool withArg) {
        std::string f = std::string("-") + o.shortName;
        if (withArg && o.shortArgument == required_argument)
            f += " " + arg;
        else if (withArg && o.shortArgument == optional_argument)
            f += "[" + arg + "]";
        return f;
    };
    auto longForm = [&] {
        std::string f = "--" + o.longName;
        if (o.longArgument == required_argument)
            f += " " + arg;
        else if (o.longArgument == optional_argument)
            f += "[=" + arg + "]";
        return f;
    };
    if (o.shortName == 0)
        return longForm();
    if (o.longName.empty())
        return shortForm(true);
    // Both take the argument alike: name it once, after the long form.
    return shortForm(o.shortArgument != o.longArgument) + between + longForm();
}

std::string placeholderOf(const CommandDoc &doc, const OptionSpelling &o)
{
    const Option *help = described(doc, o);
    return help != nullptr ? help->arg : std::string();
}

std::vector<CommandDoc> publicCommands()
{
    std::vector<CommandDoc> docs;
    for (int i = 0; i < generalCmdTableV1Size(); ++i)
        docs.push_back(readCommand(generalCmdTableV1[i]));
    return docs;
}

// ---------------------------------------------------------------------------
// The manual page.

// Text as roff reads it literally: backslashes and minus signs escaped, and
// no line taken for a request.
std::string roff(const std::string &text)
{
    std::string out;
    bool lineStart = true;
    for (char c : text) {
        if (lineStart && (c == '.' || c == '\''))
            out += "\\&";
        lineStart = c == '\n';
        if (c == '\\')
            out += "\\e";
        else if (c == '-')
            out += "\\-";
        else
            out += c;
    }
    return out;
}

// An option entry or usage line with option names in bold and placeholders
// in italics.
std::string roffSyntax(const std::string &text)
{
    std::string out;
    size_t i = 0;
    while (i < text.size()) {
        char c = text[i];
        bool optionStart = c == '-' && (i == 0 || std::strchr(" [(|,", text[i - 1]) != nullptr) &&
                           i + 1 < text.size() && (isNameChar(text[i + 1]));
        if (optionStart) {
            size_t j = i + 1;
            while (j < text.size() && isNameChar(text[j]))
                ++j;
            out += "\\fB" + roff(text.substr(i, j - i)) + "\\fR";
            i = j;
        } else if (c == '<') {
            size_t close = text.find('>', i);
            if (close == std::string::npos)
                close = text.size() - 1;
            out += "\\fI" + roff(text.substr(i, close + 1 - i)) + "\\fR";
            i = close + 1;
        } else {
            out += roff(std::string(1, c));
            ++i;
        }
    }
    return out;
}

struct Example {
    std::string args;     // the words after krt_cli
    std::string comment;  // what it shows
};

// Run on a fresh `raid` machine, in this order.
const Example kExamples[] = {
    {"version", "The version of this program and the oldest controller firmware it supports."},
    {"info -o pd -i 6", "One physical disk of controller 0."},
    {"vd -a create -r 1 -d 6,7 -n 2", "A RAID1 virtual disk from the two spare SSDs, with two namespaces."},
    {"info -o vd -i 2", "The new virtual disk."},
    {"get -o hba", "The automatic rebuild setting and the rate of background activities."},
    {"vd -a delete -i 2", "The virtual disk deleted again."},
};

struct Simulator {
    std::string krtsim, cli, state;
};

std::string quoted(const std::string &s)
{
    std::string out = "'";
    for (char c : s) {
        if (c == '\'')
            out += "'\\''";
        else
            out += c;
    }
    return out + "'";
}

// Runs `command` and returns what it wrote on standard output.
bool capture(const std::string &command, std::string &output)
{
    FILE *pipe = popen(command.c_str(), "r");
    if (pipe == nullptr)
        return false;
    char buf[4096];
    size_t n = 0;
    while ((n = std::fread(buf, 1, sizeof buf, pipe)) > 0)
        output.append(buf, n);
    int status = pclose(pipe);
    return status != -1 && WIFEXITED(status);
}

void writeExamples(std::ostream &man, const Simulator &sim)
{
    man << ".SH EXAMPLES\n"
           "The output shown is that of the simulated controller (a RAID controller with\n"
           "eight SSDs, two of them spare) that the krt\\-cli\\-sim package provides.\n";
    setenv("KRTSIM_STATE", sim.state.c_str(), 1);
    std::string ignored;
    if (!capture(quoted(sim.krtsim) + " reset raid", ignored)) {
        std::cerr << "krt_docgen: cannot reset the simulated machine\n";
        std::exit(1);
    }
    for (const Example &example : kExamples) {
        std::string output;
        if (!capture(quoted(sim.krtsim) + " exec -- " + quoted(sim.cli) + " " + example.args + " 2>&1", output)) {
            std::cerr << "krt_docgen: cannot run krt_cli " << example.args << "\n";
            std::exit(1);
        }
        man << ".PP\n" << roff(example.comment) << "\n.PP\n.RS 4\n.nf\n";
        man << "# \\fBkrt_cli " << roff(example.args) << "\\fR\n";
        std::istringstream lines(output);
        for (std::string line; std::getline(lines, line);) {
            size_t end = line.find_last_not_of(' ');
            man << roff(end == std::string::npos ? "" : line.substr(0, end + 1)) << "\n";
        }
        man << ".fi\n.RE\n";
    }
}

void writeCommand(std::ostream &man, const CommandDoc &doc)
{
    man << ".SS " << roff(doc.name) << "\n" << roff(doc.summary) << "\n";
    if (!doc.summaryExtra.empty()) {
        man << ".PP\n.RS 4\n.nf\n";
        for (const std::string &line : doc.summaryExtra)
            man << roff(line) << "\n";
        man << ".fi\n.RE\n";
    }
    // What the handler accepts, from its option tables; the help's usage
    // lines follow as the command itself prints them.
    std::string synopsis = "\\fB" + roff(doc.name) + "\\fR";
    for (const OptionSpelling &o : doc.accepted)
        synopsis += " [" + roffSyntax(spelled(o, placeholderOf(doc, o), " | ")) + "]";
    man << ".PP\n" << synopsis << "\n";
    if (!doc.usage.empty()) {
        man << ".PP\n.RS 4\n.nf\n";
        for (const std::string &line : doc.usage)
            man << roffSyntax(line) << "\n";
        man << ".fi\n.RE\n";
    }
    for (const Block &block : doc.blocks) {
        switch (block.kind) {
            case Block::Heading:
                man << ".PP\n" << roff(block.lines[0]) << "\n";
                break;
            case Block::Text:
                man << ".PP\n";
                for (const std::string &line : block.lines)
                    man << roff(line) << "\n";
                break;
            case Block::Preformatted:
                man << ".RS 4\n.nf\n";
                for (const std::string &line : block.lines)
                    man << roff(line) << "\n";
                man << ".fi\n.RE\n";
                break;
            case Block::OptionItem: {
                const Option &option = doc.options[block.option];
                const std::vector<OptionSpelling> names = acceptedFor(doc, option);
                if (names.empty())
                    break;  // a name the help mentions but the handler does not take
                std::string form;
                for (const OptionSpelling &o : names)
                    form += (form.empty() ? "" : ", ") + spelled(o, option.arg, ", ");
                man << ".TP\n" << roffSyntax(form) << "\n";
                for (size_t n = 0; n < option.description.size(); ++n)
                    man << (n > 0 ? ".br\n" : "") << roff(option.description[n]) << "\n";
                break;
            }
        }
    }
}

void writeManPage(std::ostream &man, const std::vector<CommandDoc> &docs, const std::string &version,
                  const std::optional<Simulator> &sim)
{
    man << ".\\\" Generated by krt_docgen from the command tables of krt_cli; do not edit.\n"
           ".TH KRT_CLI 8 \"\" \"krt_cli "
        << roff(version)
        << "\" \"System Administration\"\n"
           ".SH NAME\n"
           "krt_cli \\- manage PCIe NVMe RAID controllers\n"
           ".SH SYNOPSIS\n"
           ".B krt_cli\n"
           "[\\fIadapter\\-id\\fR] \\fIcommand\\fR [\\fIoptions\\fR] [\\fB\\-output\\fR \\fIfile\\fR] "
           "[\\fB\\-\\-vid=0x\\fR\\fIhex\\fR] [\\fB\\-\\-json\\fR]\n"
           ".br\n"
           ".B krt_cli\n"
           "[\\fB\\-\\-vid=0x\\fR\\fIhex\\fR] [\\fB\\-\\-json\\fR]\n"
           ".SH DESCRIPTION\n"
           ".B krt_cli\n"
           "manages PCIe NVMe RAID controllers (NVMe Controllers) on VMware ESXi hosts:\n"
           "the controllers, their back\\-end SSDs (physical disks, PD), the virtual disks (VD)\n"
           "built from them, the namespaces (NS) they expose, background activities,\n"
           "event and debug logs, firmware, SMART and identify data.\n"
           "It reaches the controllers through the host's management library\n"
           "(\\fIlibvmkmgmt.so\\fR).\n"
           ".PP\n"
           "With a command,\n"
           ".B krt_cli\n"
           "runs it once and exits.\n"
           "Without one it starts an interactive shell with the prompt \"> \",\n"
           "line editing and history; \\fBexit\\fR or \\fBquit\\fR leaves it.\n"
           "Fed from a file or a pipe, the shell runs every line and ends with the input.\n"
           ".PP\n"
           "Command names are case\\-insensitive and may be abbreviated as long as the\n"
           "abbreviation is unique.\n"
           "Long options may be abbreviated in the same way and take their parameter as\n"
           "\\fB\\-\\-arg=param\\fR or \\fB\\-\\-arg param\\fR.\n"
           ".SH GLOBAL WORDS\n"
           "These words belong to the program rather than to a command.\n"
           ".TP\n"
           ".I adapter\\-id\n"
           "A leading number selects the NVMe Controller the command addresses (default 0).\n"
           ".TP\n"
           "\\fB\\-output\\fR \\fIfile\\fR\n"
           "Appends everything the command prints to \\fIfile\\fR instead of standard output.\n"
           ".TP\n"
           "\\fB\\-\\-vid=0x\\fR\\fIhex\\fR\n"
           "Manages controllers of another PCI vendor ID.\n"
           "Without an \\fIadapter\\-id\\fR it starts the shell with that filter.\n"
           ".TP\n"
           "\\fB\\-\\-json\\fR\n"
           "Prints one JSON document; see \\fI/usr/share/doc/krt\\-cli/json.md\\fR.\n"
           ".TP\n"
           "\\fB\\-\\-debug\\fR [\\fB\\-a\\fR \\fIenable\\fR|\\fIdisable\\fR]\n"
           "A command word of its own: switches debug output on (or off with\n"
           "\\fB\\-a disable\\fR), after which each command prints the request words it sends\n"
           "and the status of each reply.\n"
           "It lasts for the shell session it is typed in.\n"
           ".SH COMMANDS\n"
           "Each command prints its own help with \\fB\\-h\\fR, or through\n"
           "\\fBhelp\\fR \\fIcommand\\fR.\n";
    for (const CommandDoc &doc : docs)
        writeCommand(man, doc);
    man << ".SH EXIT STATUS\n"
           "The exit status keeps the meaning it has always had, so that scripts written\n"
           "for earlier versions go on working. That meaning is not \"0 for success\":\n"
           "many failures end with 0, each reported by its message.\n"
           "Scripts that must tell success from failure should add \\fB\\-\\-json\\fR and read\n"
           "the document's \\fBresult\\fR, which names every outcome (ok, usage_error,\n"
           "not_found, refused, request_failed, no_controller).\n"
           ".TP\n"
           "0\n"
           "Success, and also:\n"
           ".RS\n"
           ".IP \\(bu 2\n"
           "no NVMe Controller found (every command but \\fBhelp\\fR and \\fBversion\\fR only\n"
           "says so), or an \\fIadapter\\-id\\fR that names none (\"Adapter ID %d is not exist\");\n"
           ".IP \\(bu 2\n"
           "a query that failed or found nothing: \\fBinfo\\fR of any object,\n"
           "\\fBflash \\-q firmware\\fR, and \\fBimport\\fR once its options were accepted,\n"
           "whatever the import's outcome;\n"
           ".IP \\(bu 2\n"
           "a stop (\\fBinit\\fR, \\fBmp\\fR, \\fBrebuild \\-a stop\\fR) refused because another kind\n"
           "of activity runs, or passed over in silence because none runs;\n"
           ".IP \\(bu 2\n"
           "an invalid option value or a missing required option of \\fBvd\\fR, \\fBns\\fR,\n"
           "\\fBinit\\fR, \\fBmp\\fR, \\fBrebuild\\fR, \\fBsmart\\fR, \\fBpassthru\\fR, \\fBidentify\\fR,\n"
           "\\fBspi\\fR, \\fBlog\\fR, \\fBdebuglv\\fR, \\fBreset\\fR, \\fBled\\fR and \\fBinverse\\fR;\n"
           "a duplicated option of \\fBns\\fR or \\fBpassthru\\fR;\n"
           ".IP \\(bu 2\n"
           "\\fBadapter \\-s\\fR with an address no controller has, \\fBflash\\fR without an\n"
           "object (\"Invalid object.\"), also with \\fB\\-q firmware\\fR, \\fBset\\fR\n"
           "with nothing to set (\"Invalid setting(s) for HBA\"), \\fBhelp\\fR with an unknown\n"
           "command name, and a lone \\fB\\-\\-vid=0x\\fR word.\n"
           ".RE\n"
           ".TP\n"
           "1\n"
           "An unknown or ambiguous command; a command word alone where the command\n"
           "needs options (it prints its help); a duplicated option (but see above);\n"
           "the usage errors of \\fBadapter\\fR, \\fBversion\\fR, \\fBinfo\\fR, \\fBevent\\fR,\n"
           "\\fBflash\\fR, \\fBget\\fR, \\fBset\\fR and \\fBimport\\fR; output that could not be\n"
           "written; a failed request whose status has 0 as its low byte (0x100, 0x200,\n"
           "\\&...), so that a script never takes it for success.\n"
           ".TP\n"
           "other\n"
           "The status of the request that failed, as the operating system keeps it\n"
           "(its low 8 bits: 7 for \"Invalid LD ID (Status Code: 0x707)\").\n"
           "A few outcomes keep an older count instead: 34 after \"This feature is not\n"
           "support JBOF.\" (\\fBget\\fR), 19 after \"File is not exist.\" (\\fBspi\\fR), 14 after\n"
           "\"Error action!\" (\\fBvd\\fR), and the length of the message for an SSD image\n"
           "that could not be downloaded (\\fBflash \\-o pd\\fR).\n";
    if (sim)
        writeExamples(man, *sim);
    man << ".SH FILES\n"
           ".TP\n"
           ".I /usr/share/doc/krt\\-cli/json.md\n"
           "The records of the JSON output and their keys.\n"
           ".SH SEE ALSO\n"
           "\\fBkrtsim\\fR, in the krt\\-cli\\-sim package: a simulated controller to try\n"
           "every command on.\n";
}

// ---------------------------------------------------------------------------
// The bash completion.

// A word list for compgen -W, which expands its words: "?" would match the
// names of one-letter files.
std::string joined(const std::set<std::string> &words)
{
    std::string out;
    for (const std::string &w : words) {
        if (!out.empty())
            out += ' ';
        for (char c : w) {
            if (std::strchr("?*[]\\$`", c) != nullptr)
                out += '\\';
            out += c;
        }
    }
    return out;
}

// A command name as a case pattern: "?" matches any one character there.
std::string caseWord(const std::string &name)
{
    return name == "?" ? "\\?" : "'" + name + "'";
}

void writeCompletion(std::ostream &out, const std::vector<CommandDoc> &docs)
{
    std::set<std::string> names;
    for (const CommandDoc &doc : docs)
        names.insert(doc.name);

    out << "# bash completion for krt_cli. Generated by krt_docgen from the command\n"
           "# tables of krt_cli; do not edit.\n"
           "\n"
           "_krt_cli()\n"
           "{\n"
           "    local -a words=()\n"
           "    local cword=0 glue=0 i w cur prev cmd\n"
           "    # Readline splits \"--opt=value\" at '='; put such words together again.\n"
           "    for ((i = 0; i < ${#COMP_WORDS[@]}; i++)); do\n"
           "        w=${COMP_WORDS[i]}\n"
           "        if ((i > 0)) && [[ $w == \"=\" ]]; then\n"
           "            words[${#words[@]} - 1]+=\"=\"\n"
           "            glue=1\n"
           "        elif ((glue)); then\n"
           "            words[${#words[@]} - 1]+=$w\n"
           "            glue=0\n"
           "        else\n"
           "            words+=(\"$w\")\n"
           "        fi\n"
           "        ((i == COMP_CWORD)) && cword=$((${#words[@]} - 1))\n"
           "    done\n"
           "    cur=${words[cword]}\n"
           "    prev=\n"
           "    ((cword > 0)) && prev=${words[cword - 1]}\n"
           "    COMPREPLY=()\n"
           "\n"
           "    if [[ $prev == -output ]]; then\n"
           "        COMPREPLY=($(compgen -f -- \"$cur\"))\n"
           "        return\n"
           "    fi\n"
           "\n"
           "    # The command word: the first that is not a leading controller number\n"
           "    # or one of the program's own words.\n"
           "    cmd=\n"
           "    for ((i = 1; i < cword; i++)); do\n"
           "        w=${words[i]}\n"
           "        case $w in\n"
           "        -output) ((i++)) ;;\n"
           "        --vid=* | --VID=* | --json) ;;\n"
           "        *)\n"
           "            [[ $w =~ ^[0-9]+$ ]] && continue\n"
           "            cmd=${w,,}\n"
           "            break\n"
           "            ;;\n"
           "        esac\n"
           "    done\n"
           "\n"
           "    if [[ -z $cmd ]]; then\n"
           "        if [[ $cur == -* ]]; then\n"
           "            COMPREPLY=($(compgen -W '-output --vid=0x --json --debug' -- \"$cur\"))\n"
           "        else\n"
           "            COMPREPLY=($(compgen -W '"
        << joined(names)
        << "' -- \"$cur\"))\n"
           "        fi\n"
           "        return\n"
           "    fi\n"
           "\n"
           "    # A command word may be any unique abbreviation of a name.\n"
           "    case $cmd in\n";
    for (const CommandDoc &doc : docs) {
        std::string arm;
        for (size_t n = 1; n < doc.name.size(); ++n) {
            const std::string prefix = doc.name.substr(0, n);
            const Command_Info *named = publicCommand(doc.name);
            if (named != nullptr && publicCommand(prefix) == named)
                arm += (arm.empty() ? "" : " | ") + caseWord(prefix);
        }
        if (!arm.empty())
            out << "    " << arm << ") cmd=" << doc.name << " ;;\n";
    }
    out << "    esac\n"
           "\n"
           "    # help takes command names, as the table spells them.\n"
           "    if [[ $cmd == help || $cmd == \\? ]]; then\n"
           "        [[ $cur == -* ]] || COMPREPLY=($(compgen -W '"
        << joined(names)
        << "' -- \"$cur\"))\n"
           "        return\n"
           "    fi\n"
           "\n"
           "    # The value of an option: after it, or after its '='.\n"
           "    local opt=$prev value=$cur\n"
           "    if [[ $cur == --*=* ]]; then\n"
           "        opt=${cur%%=*}\n"
           "        value=${cur#*=}\n"
           "    fi\n"
           "    case \"$cmd $opt\" in\n";

    for (const CommandDoc &doc : docs) {
        for (const OptionSpelling &o : doc.accepted) {
            const Option *help = described(doc, o);
            if (help == nullptr || (help->values.empty() && !help->file))
                continue;
            std::string patterns;
            if (o.shortName != 0 && o.shortArgument == required_argument)
                patterns = "'" + doc.name + " -" + o.shortName + "'";
            if (!o.longName.empty() && o.longArgument != no_argument)
                patterns += (patterns.empty() ? "" : " | ") + ("'" + doc.name + " --" + o.longName + "'");
            if (patterns.empty())
                continue;
            out << "    " << patterns << ")\n";
            if (help->file)
                out << "        COMPREPLY=($(compgen -f -- \"$value\"))\n";
            else
                out << "        COMPREPLY=($(compgen -W '" << joined(help->values) << "' -- \"$value\"))\n";
            out << "        return\n"
                   "        ;;\n";
        }
    }
    out << "    esac\n"
           "\n"
           "    [[ $cur == -* ]] || return\n"
           "    case $cmd in\n";
    for (const CommandDoc &doc : docs) {
        std::set<std::string> spellings;
        for (const OptionSpelling &o : doc.accepted) {
            if (o.shortName != 0)
                spellings.insert(std::string("-") + o.shortName);
            if (!o.longName.empty())
                spellings.insert("--" + o.longName);
        }
        if (spellings.empty())
            continue;
        out << "    " << caseWord(doc.name) << ")\n"
            << "        COMPREPLY=($(compgen -W '" << joined(spellings) << "' -- \"$cur\"))\n"
            << "        ;;\n";
    }
    out << "    esac\n"
           "}\n"
           "complete -F _krt_cli krt_cli\n";
}

int usage()
{
    std::cerr << "usage: krt_docgen --man <file> --completion <file> [--version <text>]\n"
                 "                  [--krtsim <path> --cli <path> --state <path>]\n";
    return 2;
}

}  // namespace

int main(int argc, char **argv)
{
    std::map<std::string, std::string> args;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (!startsWith(argv[i], "--"))
            return usage();
        args[argv[i] + 2] = argv[i + 1];
    }
    if (argc % 2 == 0 || args.count("man") == 0 || args.count("completion") == 0)
        return usage();
    std::optional<Simulator> sim;
    if (args.count("krtsim") != 0 && args.count("cli") != 0 && args.count("state") != 0)
        sim = Simulator{args["krtsim"], args["cli"], args["state"]};

    // Abbreviations are resolved as the program does, over its public table.
    pCmdTable = generalCmdTableV1;
    cmdTableSize = generalCmdTableV1Size();
    std::vector<CommandDoc> docs = publicCommands();
    std::ofstream man(args["man"]);
    writeManPage(man, docs, args.count("version") != 0 ? args["version"] : "", sim);
    std::ofstream completion(args["completion"]);
    writeCompletion(completion, docs);
    man.close();
    completion.close();
    if (!man || !completion) {
        std::cerr << "krt_docgen: cannot write the manual page or the completion\n";
        return 1;
    }
    return 0;
}
