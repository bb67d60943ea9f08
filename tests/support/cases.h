// The one driver of the end-to-end case tables: each row is a run of the
// real krt_cli on a fresh simulated machine, checked for its exit status,
// what it printed, the admin commands it sent, and, run again with --json,
// the verdict of its document, which is validated against the schema.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "machine.h"

namespace krt_test {

using Words = std::vector<std::string>;

// What a run must print on standard output.
struct Printed {
    enum Kind { Exact, Prefix, Contains } kind = Exact;
    std::string text;
};
inline Printed exact(std::string text)
{
    return {Printed::Exact, std::move(text)};
}
inline Printed prefix(std::string text)
{
    return {Printed::Prefix, std::move(text)};
}
inline Printed contains(std::string text)
{
    return {Printed::Contains, std::move(text)};
}

struct Case {
    Words words;
    int status = 0;
    Printed out;
    // The verdict of the --json document: ok, usage_error, not_found,
    // refused, request_failed, no_controller.
    std::string kind = "ok";
    // The admin commands the command itself sent (start-up's are left out),
    // one fragment of its command-log line each, in order, e.g.
    // "cdw12=0x000004e3 cdw13=0x00000000 cdw14=0x00030001"; {} for none.
    // Not checked when absent.
    std::optional<Words> sent = std::nullopt;
    // A fixture name or a fixture file of tests/json/fixtures.
    std::string machine = "raid";
    // Steps before the run: {"krtsim", words...}, {"cli", words...} or
    // {"file", name, size} (a file of that many bytes in the machine's folder).
    std::vector<Words> setup = {};
    // Where the case is written, for the failure reports.
    std::string source = {};
};

// Runs every case in order, each on a fresh machine, then validates all the
// JSON documents in one run of the schema validator.
void runCases(const std::vector<Case> &cases);

// The cases of a table file of tests/cases (see tests/cases/README.md), and
// runCases on them.
std::vector<Case> readCases(const std::string &name);
void runCaseFile(const std::string &name);

// JSON documents gathered while a test runs and checked against the
// published schema (docs/krt_cli.schema.json) in one run of the validator
// when it goes away; each refused document is a failure naming `where`.
class SchemaCheck {
  public:
    SchemaCheck() = default;
    SchemaCheck(const SchemaCheck &) = delete;
    SchemaCheck &operator=(const SchemaCheck &) = delete;
    ~SchemaCheck();
    // One document per line of `documents`.
    void add(const std::string &documents, const std::string &where);

  private:
    std::string documents_;
    std::vector<std::string> where_;
};

}  // namespace krt_test
