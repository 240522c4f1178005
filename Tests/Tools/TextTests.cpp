// Times, redacted text and archives.

#include "Platform/PropertyLists/PropertyListReader.h"
#include "Tests/Fakes/ForeignLocale.h"
#include "Tests/Fakes/TemporaryFolder.h"
#include "Tools/qvctl/Bundle/Archive.h"
#include "Tools/qvctl/Bundle/Redaction.h"
#include "Tools/qvctl/TimeText.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <regex>

namespace json = boost::json;
using namespace Qvctl;
using Platform::PropertyLists::readPropertyList;

namespace {

TEST(TimeTextTest, ParsesAgesAndTimes)
{
    const Platform::Date now{1'000'000};
    const std::pair<const char*, const char*> cases[] = {
        {"90s", "2001-01-12T13:45:10.000Z"},
        {"10m", "2001-01-12T13:36:40.000Z"},
        {"2h", "2001-01-12T11:46:40.000Z"},
        {"3d", "2001-01-09T13:46:40.000Z"},
        {"2026-11-21T15:04:05Z", "2026-11-21T15:04:05.000Z"},
        {"2026-11-21 15:04:05.25Z", "2026-11-21T15:04:05.250Z"},
        {"2026-07-01", "2026-06-30T22:00:00.000Z"}, // Local, in summer.
        {"2026-01-01T00:30", "2025-12-31T23:30:00.000Z"},
        {"2024-02-29T00:00Z", "2024-02-29T00:00:00.000Z"},
        {"9999-12-31T23:59Z", "9999-12-31T23:59:00.000Z"},
    };
    const ForeignLocale locale;
    ::setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    ::tzset();
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(timeFromText(text, now).value_or(Platform::Date{}).utcText(), expected) << text;
    for (const char* text : {"2026-02-29T00:00Z", "2026-11-21T24:00Z", "2026-11-21T15:60Z",
                             "2026-11-21T15:04:61Z", "2026-11-21Z", "10", "-10m", "10w", "9999999999s", ""})
        EXPECT_FALSE(timeFromText(text, now)) << text;
}

TEST(TimeTextTest, NamesTheAgeInOneUnit)
{
    const Platform::Date now{1'000'000'000};
    const std::pair<double, const char*> cases[] = {
        {0, "just now"},     {-0.9, "just now"},   {1, "1 s ago"},    {59.9, "59 s ago"},
        {60, "1 min ago"},   {3599, "59 min ago"}, {3600, "1 h ago"}, {86'399, "23 h ago"},
        {86'400, "1 d ago"}, {4e8, "4629 d ago"},  {-200, "in 3 min"}};
    for (const auto& [age, expected] : cases)
        EXPECT_EQ(relativeTime({now.secondsSinceReferenceDate - age}, now), expected);
}

TEST(RedactionTest, HashesLikeTheReference)
{
    // The authors' vectors; the last one is in Appendix A of the paper, too.
    const std::pair<std::size_t, std::uint64_t> vectors[] = {
        {0, 0x726fdb47dd0e0e31U}, {8, 0x93f5f5799a932462U}, {15, 0xa129ca6149be45e5U}};
    Bundle::HashKey key;
    std::string text;
    for (unsigned char byte = 0; byte < key.size(); ++byte) {
        key.at(byte) = std::byte{byte};
        text += static_cast<char>(byte);
    }
    for (const auto& [size, hash] : vectors)
        EXPECT_EQ(Bundle::sipHash(key, text.substr(0, size)), hash) << size;
}

TEST(RedactionTest, ReplacesValuesByLengthAndHash)
{
    Bundle::Redaction redaction;
    redaction.hideHome("/home/somebody");
    redaction.hideText("somebody");
    redaction.hide(
        readPropertyList(
            R"({"base_domain": "https://MDM.acme.corp:8443/mdm/v1", "device_id": 4711, "shoe size": [43.5],
                "api_key": "a\u0007b"})")
            .root);
    const std::pair<const char*, const char*> cases[] = {
        {"The Mdm.acme.corp:8443/mdm/v1.", "The [13 bytes, hash H]:[4 bytes, hash H]/[3 bytes, hash H]/v1."},
        {"~/a of Somebody", "~/a of [8 bytes, hash H]"},
        {"/home/somebody/a, /home/somebody2", "~/a, ~2"},
        {"inside [0].shoe, a.Size.b", "inside [0].[4 bytes, hash H], a.[4 bytes, hash H].b"},
        {R"(a\x07b)", R"(a\[4 bytes, hash H])"}, // As messages escape it.
        {"key shoe has no value", "key [4 bytes, hash H] has no value"},
        {"device_id 4711, 43.5 and 12", "device_id [4 bytes, hash H], [4 bytes, hash H] and 12"},
        {R"("x y" has no "."; did you mean "api_key"?)",
         R"([3 bytes, hash H] has no "."; did you mean "api_key"?)"},
        {R"(one " quotation mark)", R"(one " quotation mark)"},
    };
    static const std::regex hash("[0-9a-f]{16}");
    for (const auto& [text, redacted] : cases)
        EXPECT_EQ(std::regex_replace(redaction.redact(text), hash, "H"), redacted);
    EXPECT_EQ(redaction.token("a"), redaction.token("a"));
    EXPECT_NE(redaction.token("a"), Bundle::Redaction().token("a")) << "bundles must not be comparable";
    const auto checked =
        redaction.redactJSON(json::parse(R"({"kind": "shoe", "shoe": ["size"], "effective": "b"})"));
    EXPECT_EQ(std::regex_replace(json::serialize(checked), hash, ""),
              R"({"kind":"shoe","[4 bytes, hash ]":["[4 bytes, hash ]"],"effective":"[1 bytes, hash ]"})");
}

TEST(ArchiveTest, HoldsFilesOfAnySize)
{
    const TemporaryFolder folder;
    std::vector<Bundle::BundleFile> files;
    for (const std::size_t size : {0, 1, 511, 512, 513})
        files.push_back({std::to_string(size), "", std::string(size, 'x')});
    folder.write("archive", Bundle::makeArchive(files));
    const std::string script = "cd " + folder.path().string() +
                               " && tar -xzf archive && rm archive && [ \"$(stat -c %n=%s * | xargs)\" = "
                               "'0=0 1=1 511=511 512=512 513=513' ]";
    EXPECT_EQ(std::system(script.c_str()), 0);
}

} // namespace
