// The one driver of the end-to-end case tables: each row is a run of the
// real krt_cli on a fresh simulated machine, checked for its exit status,
// what it printed, the admin commands it sent, and, run again with --json,
// the verdict of its document, which is validated against the schema.
#pragma once

#include <string>
#include <vector>

#include "machine.h"

namespace krt_test {

using Words = std::vector<std::string>;

// Runs every case of a table file of tests/cases (see tests/cases/README.md)
// in order, each on a fresh copy of its machine, then validates all their
// JSON documents in one run of the schema validator.
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
