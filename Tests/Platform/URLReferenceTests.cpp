#include "Platform/URLReference.h"

#include <gtest/gtest.h>

using Platform::resolveURLReference;

namespace {

struct Case {
    const char* reference;
    /// Null if there is no result.
    const char* resolved;
};

void expectResolutions(const char* base, const std::vector<Case>& cases)
{
    for (const Case& row : cases)
        EXPECT_EQ(resolveURLReference(base, row.reference).value_or("nothing"),
                  row.resolved != nullptr ? row.resolved : "nothing")
            << base << " + " << row.reference;
}

// RFC 3986, sections 5.4.1 and 5.4.2.
TEST(URLReferenceTest, ResolvesTheExamplesOfRFC3986)
{
    expectResolutions("http://a/b/c/d;p?q", {{"g:h", "g:h"},
                                             {"g", "http://a/b/c/g"},
                                             {"./g", "http://a/b/c/g"},
                                             {"g/", "http://a/b/c/g/"},
                                             {"/g", "http://a/g"},
                                             {"//g", "http://g"},
                                             {"?y", "http://a/b/c/d;p?y"},
                                             {"g?y", "http://a/b/c/g?y"},
                                             {"#s", "http://a/b/c/d;p?q#s"},
                                             {"g#s", "http://a/b/c/g#s"},
                                             {"g?y#s", "http://a/b/c/g?y#s"},
                                             {";x", "http://a/b/c/;x"},
                                             {"g;x", "http://a/b/c/g;x"},
                                             {"g;x?y#s", "http://a/b/c/g;x?y#s"},
                                             {"", "http://a/b/c/d;p?q"},
                                             {".", "http://a/b/c/"},
                                             {"./", "http://a/b/c/"},
                                             {"..", "http://a/b/"},
                                             {"../", "http://a/b/"},
                                             {"../g", "http://a/b/g"},
                                             {"../..", "http://a/"},
                                             {"../../", "http://a/"},
                                             {"../../g", "http://a/g"},
                                             {"../../../g", "http://a/g"},
                                             {"../../../../g", "http://a/g"},
                                             {"/./g", "http://a/g"},
                                             {"/../g", "http://a/g"},
                                             {"g.", "http://a/b/c/g."},
                                             {".g", "http://a/b/c/.g"},
                                             {"g..", "http://a/b/c/g.."},
                                             {"..g", "http://a/b/c/..g"},
                                             {"./../g", "http://a/b/g"},
                                             {"./g/.", "http://a/b/c/g/"},
                                             {"g/./h", "http://a/b/c/g/h"},
                                             {"g/../h", "http://a/b/c/h"},
                                             {"g;x=1/./y", "http://a/b/c/g;x=1/y"},
                                             {"g;x=1/../y", "http://a/b/c/y"},
                                             {"g?y/./x", "http://a/b/c/g?y/./x"},
                                             {"g?y/../x", "http://a/b/c/g?y/../x"},
                                             {"g#s/./x", "http://a/b/c/g#s/./x"},
                                             {"g#s/../x", "http://a/b/c/g#s/../x"},
                                             {"http:g", "http:g"}});
}

TEST(URLReferenceTest, RemovesOnlyDotSegments)
{
    expectResolutions("https://A.b:8443/%41%2F/%2e/%2E%2e/x?%2F#f",
                      {{"a%2Fb", "https://A.b:8443/%41%2F/%2e/%2E%2e/a%2Fb"},
                       {"%2e%2e%2f%2e%2e/..%2F", "https://A.b:8443/%41%2F/%2e/%2E%2e/%2e%2e%2f%2e%2e/..%2F"},
                       {"%2e%2E/.", "https://A.b:8443/%41%2F/%2e/%2E%2e/%2e%2E/"},
                       {"..", "https://A.b:8443/%41%2F/%2e/"},
                       {"../../../../%25%00%7e~", "https://A.b:8443/%25%00%7e~"},
                       {"a//../b//", "https://A.b:8443/%41%2F/%2e/%2E%2e/a/b//"},
                       {"/!$&'()*+,;=:@", "https://A.b:8443/!$&'()*+,;=:@"},
                       {"?%2f%2e/../", "https://A.b:8443/%41%2F/%2e/%2E%2e/x?%2f%2e/../"},
                       {"", "https://A.b:8443/%41%2F/%2e/%2E%2e/x?%2F"},
                       {"//user%40:@h:/", "https://user%40:@h:/"}});
    expectResolutions("https://a", {{"b", "https://a/b"}, {"?q", "https://a?q"}, {"..//b", "https://a//b"}});
    expectResolutions("a.b/c/", {{"d:e", "d:e"}, {"./d:e", "a.b/c/d:e"}, {"/..", "/"}, {"//h", "//h"}});
    // The result would parse as a host or a scheme.
    expectResolutions("a/", {{"..//b", nullptr}});
    expectResolutions("x:/", {{"..//b", nullptr}});
    expectResolutions("a", {{"./b:c", nullptr}});
}

} // namespace
