// The JSON output's key rule, its text escaping, the record structure it
// builds and how it settles the verdict, without a command or a controller.
#include "util/json_output.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace {

std::string asJson(std::string_view bytes)
{
    std::string out;
    json_output::appendString(out, bytes);
    return out;
}

TEST(JsonText, KeysFromLabels)
{
    EXPECT_EQ(json_output::keyOf("BGA progress:"), "bga_progress");
    EXPECT_EQ(json_output::keyOf("SSD backend RC/Slot ID:"), "ssd_backend_rc_slot_id");
    EXPECT_EQ(json_output::keyOf("  Link width:"), "link_width");
    EXPECT_EQ(json_output::keyOf("eui64[3]:"), "eui64_3");
    EXPECT_EQ(json_output::keyOf("TNVMCAP(GB):"), "tnvmcap_gb");
    EXPECT_EQ(json_output::keyOf("Total # of PD:"), "total_of_pd");
    EXPECT_EQ(json_output::keyOf("size_gb"), "size_gb");  // a key is its own key
    EXPECT_EQ(json_output::keyOf("Gr\xc3\xb6\xc3\x9f"
                                 "e"),
              "gr_e");
    EXPECT_EQ(json_output::keyOf(":"), "value");
}

TEST(JsonText, TextIsValidUtf8WithEveryControlCharacterEscaped)
{
    EXPECT_EQ(asJson("a\"b\\c"), R"("a\"b\\c")");
    EXPECT_EQ(asJson(std::string("\n\t\x01\x7f", 4) + std::string(1, '\0')), R"("\n\t\u0001\u007f\u0000")");
    // Valid sequences stay as they are.
    EXPECT_EQ(asJson("\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80"), "\"\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80\"");
    // C1 controls are escaped; bytes outside a sequence are Latin-1.
    EXPECT_EQ(asJson("\xc2\x85"), R"("\u0085")");
    EXPECT_EQ(asJson("\xff\xfe"), R"("\u00ff\u00fe")");
    EXPECT_EQ(asJson("\xc0\xaf"), R"("\u00c0\u00af")");                      // overlong
    EXPECT_EQ(asJson("\xed\xa0\x80"), R"("\u00ed\u00a0\u0080")");            // a surrogate
    EXPECT_EQ(asJson("\xf4\x90\x80\x80"), R"("\u00f4\u0090\u0080\u0080")");  // past U+10FFFF
    EXPECT_EQ(asJson("ab\xe2\x82"), R"("ab\u00e2\u0082")");                  // cut short
    // Every byte string gives a string a strict reader takes back.
    std::string all;
    for (int i = 0; i < 256; ++i)
        all += static_cast<char>(i);
    const nlohmann::json back = nlohmann::json::parse(asJson(all + all));
    EXPECT_TRUE(back.is_string());
}

// Starts a document afresh: what other tests in this process left noted
// goes into one that nobody reads.
void discardPending()
{
    std::FILE *file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    json_output::setDestination(file);
    json_output::writeDocument({}, 0, std::nullopt);
    json_output::closeDestination();
}

// The next document written to a temporary destination, parsed.
template <class Fill>
nlohmann::json document(Fill fill)
{
    discardPending();
    std::FILE *file = std::tmpfile();
    EXPECT_NE(file, nullptr);
    json_output::setDestination(file);
    fill();
    EXPECT_TRUE(json_output::writeDocument({"x"}, 0, std::nullopt));
    std::rewind(file);
    std::string text(4096, '\0');
    text.resize(std::fread(text.data(), 1, text.size(), file));
    json_output::closeDestination();
    return nlohmann::json::parse(text);
}

TEST(JsonText, RecordsCutShortStillCloseAndKeysStayApart)
{
    discardPending();
    std::FILE *file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    json_output::setDestination(file);
    json_output::numberField("Total # of PD:", "4");  // outside any record
    json_output::beginListing("outer");
    json_output::beginRecord("controller");
    json_output::stringField("Name:", "a");
    json_output::stringField("Name:", "b");
    json_output::beginListing("PCIe links");
    json_output::beginRecord("pcie_link");
    json_output::boolField("Up:", true);
    // No end of the link, the listing or the record: the listing was cut short.
    json_output::noteStatus(0x181, "failed");
    ASSERT_TRUE(json_output::writeDocument({"info", "-o", "hba"}, 1, json_output::ControllerRef{0, 1}));

    std::rewind(file);
    std::string text(4096, '\0');
    text.resize(std::fread(text.data(), 1, text.size(), file));
    json_output::closeDestination();

    ASSERT_FALSE(text.empty());
    EXPECT_EQ(text.back(), '\n');
    EXPECT_EQ(text.find('\n'), text.size() - 1);  // one line
    const nlohmann::json doc = nlohmann::json::parse(text);
    EXPECT_EQ(doc["json_format_version"], nlohmann::json::array({2, 0}));
    EXPECT_EQ(doc["krt_cli"]["exit_status"], 1);
    EXPECT_EQ(doc["controller"]["number"], 1);
    EXPECT_EQ(doc["status"]["value"], 0x181);
    EXPECT_EQ(doc["result"],
              nlohmann::json::parse(R"({"kind": "request_failed", "message": "failed", "status": 385})"));
    ASSERT_EQ(doc["records"].size(), 2u);
    EXPECT_EQ(doc["records"][0], nlohmann::json::parse(R"({"record":"summary","total_of_pd":4})"));
    const nlohmann::json &controller = doc["records"][1];
    EXPECT_EQ(controller["name"], "a");
    EXPECT_EQ(controller["name_2"], "b");
    EXPECT_EQ(controller["pcie_links"], nlohmann::json::parse(R"([{"record":"pcie_link","up":true}])"));
}

}  // namespace

namespace {

using json_output::Verdict;

TEST(JsonVerdict, TheFirstFailureStandsAndSuccessOnlyWhileNothingElse)
{
    using nlohmann::json;
    const struct {
        std::vector<std::pair<Verdict, const char *>> notes;  // a null message: none said
        json result;
    } cases[] = {
        {{}, json::parse(R"({"kind": "ok", "message": null})")},
        {{{Verdict::Ok, "cmd success\n"}, {Verdict::Ok, "\nVD 1 import successfully.\n"}},
         json::parse(R"({"kind": "ok", "message": "VD 1 import successfully."})")},
        // What follows from a failure does not replace it.
        {{{Verdict::NotFound, "\nUnable to get info of PD\n"}, {Verdict::RequestFailed, "cmd failed.\n"}},
         json::parse(R"({"kind": "not_found", "message": "Unable to get info of PD"})")},
        {{{Verdict::UsageError, nullptr}, {Verdict::Ok, "Set debug mode to enable\n"}},
         json::parse(R"({"kind": "usage_error", "message": null})")},
        {{{Verdict::Ok, "Reset success\n"}, {Verdict::Refused, "This command is not available in this build.\n"}},
         json::parse(R"({"kind": "refused", "message": "This command is not available in this build."})")},
        {{{Verdict::NoController, "No NVMe Controller is found."}, {Verdict::UsageError, "x"}},
         json::parse(R"({"kind": "no_controller", "message": "No NVMe Controller is found."})")},
    };
    for (const auto &c : cases) {
        const json doc = document([&] {
            for (const auto &[kind, message] : c.notes) {
                if (message == nullptr)
                    json_output::noteResult(kind);
                else
                    json_output::noteResult(kind, message);
            }
        });
        EXPECT_EQ(doc["result"], c.result);
    }
    // A request's status beside its line; a document starts afresh.
    EXPECT_EQ(document([] { json_output::noteRequestFailed(0x706, "Invalid HD ID (Status Code: 0x706)"); })["result"],
              json::parse(
                  R"j({"kind": "request_failed", "message": "Invalid HD ID (Status Code: 0x706)", "status": 1798})j"));
    EXPECT_EQ(document([] {})["result"]["kind"], "ok");
}

TEST(JsonText, TypedValuesAndTrimmedTexts)
{
    using json_output::Value;
    EXPECT_EQ(Value::array({Value::number(0), Value::null(), Value::number(-3)}).json(), "[0,null,-3]");
    EXPECT_EQ(Value::numbers(std::vector<unsigned long long>{18446744073709551615ull}).json(),
              "[18446744073709551615]");
    EXPECT_EQ(Value::texts({"RAID0", "\"x\""}).json(), R"(["RAID0","\"x\""])");
    EXPECT_EQ(Value::array({}).json(), "[]");
    EXPECT_EQ(Value::number(true).json(), "true");
    EXPECT_EQ(json_output::trimmed(std::string_view("  On \0\0", 7)), "On");
    EXPECT_EQ(json_output::trimmed(std::string_view("\0 \0", 3)), "");
    EXPECT_EQ(json_output::trimmed("a b"), "a b");
}

}  // namespace
