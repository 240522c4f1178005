#include "Platform/URLReference.h"

#include <gtest/gtest.h>

using Platform::resolveURLReference;

namespace {

/// Checks that each reference resolves to `resolved`; null if it is invalid.
void expectResolutions(const char* base, const char* resolved, const std::vector<const char*>& references)
{
    for (const char* reference : references)
        EXPECT_EQ(resolveURLReference(base, reference).value_or("nothing"),
                  resolved != nullptr ? resolved : "nothing")
            << base << " + " << reference;
}

// RFC 3986, sections 5.4.1 and 5.4.2.
TEST(URLReferenceTest, ResolvesTheExamplesOfRFC3986)
{
    const std::pair<const char*, std::vector<const char*>> cases[] = {
        {"g:h", {"g:h"}},
        {"http:g", {"http:g"}},
        {"http://g", {"//g"}},
        {"http://a/", {"../..", "../../"}},
        {"http://a/g", {"/g", "../../g", "../../../g", "../../../../g", "/./g", "/../g"}},
        {"http://a/b/", {"..", "../"}},
        {"http://a/b/g", {"../g", "./../g"}},
        {"http://a/b/c/", {".", "./"}},
        {"http://a/b/c/g", {"g", "./g"}},
        {"http://a/b/c/g/", {"g/", "./g/."}},
        {"http://a/b/c/h", {"g/../h"}},
        {"http://a/b/c/y", {"g;x=1/../y"}},
        {"http://a/b/c/g/h", {"g/./h"}},
        {"http://a/b/c/g;x=1/y", {"g;x=1/./y"}},
        {"http://a/b/c/d;p?y", {"?y"}},
        {"http://a/b/c/d;p?q", {""}},
        {"http://a/b/c/d;p?q#s", {"#s"}}};
    for (const auto& [resolved, references] : cases)
        expectResolutions("http://a/b/c/d;p?q", resolved, references);
    for (const std::string same : {"g?y", "g#s", "g?y#s", ";x", "g;x", "g;x?y#s", "g.", ".g", "g..", "..g",
                                   ":x", "g?y/./x", "g?y?/../x", "g#s/./x", "g#s?/../x"})
        expectResolutions("http://a/b/c/d;p?q", ("http://a/b/c/" + same).c_str(), {same.c_str()});
}

TEST(URLReferenceTest, RemovesOnlyDotSegments)
{
    const std::string folder = "https://A.b:8443/%41%2F/%2e/%2E%2e/";
    const std::pair<const char*, std::string> cases[] = {
        {"a%2Fb", folder + "a%2Fb"},
        {"%2e%2e%2f%2e%2e/..%2F", folder + "%2e%2e%2f%2e%2e/..%2F"},
        {"%2e%2E/.", folder + "%2e%2E/"},
        {"..", "https://A.b:8443/%41%2F/%2e/"},
        {"../../../../%25%00%7e~", "https://A.b:8443/%25%00%7e~"},
        {"a//../b//", folder + "a/b//"},
        {"?%2f%2e/../", folder + "x?%2f%2e/../"},
        {"", folder + "x?%2F"},
        {"//user%40:@h:/a/..", "https://user%40:@h:/"}};
    for (const auto& [reference, resolved] : cases)
        expectResolutions((folder + "x?%2F#f").c_str(), resolved.c_str(), {reference});
    expectResolutions("https://a#f", "https://a/b", {"b"});
    expectResolutions("a:", "a:b", {"b"});
    expectResolutions("https://a", "https://a?q", {"?q"});
    expectResolutions("https://a", "https://a//b", {"..//b"});
    expectResolutions("a.b/c/", "d:e", {"d:e", "d:./e"});
    expectResolutions("a.b/c/", "a.b/c/d:e", {"./d:e"});
    expectResolutions("a.b/c/", "//h", {"//h"});
    // The result would parse as a host or a scheme.
    expectResolutions("a/", nullptr, {"..//b"});
    expectResolutions("x:/", nullptr, {"..//b"});
    expectResolutions("a", nullptr, {"./b:c"});
}

} // namespace
