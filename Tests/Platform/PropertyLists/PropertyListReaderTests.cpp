#include "Platform/PropertyLists/PropertyListReader.h"

#include "Tests/Fakes/Bytes.h"
#include "Tests/Platform/PropertyLists/PropertyListDocuments.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

using namespace Platform;
using namespace Platform::PropertyLists;
using namespace std::string_literals;

namespace {

using Array = PropertyList::Array;
using Dictionary = PropertyList::Dictionary;

constexpr auto least = std::numeric_limits<std::int64_t>::min();
constexpr auto greatest = std::numeric_limits<std::uint64_t>::max();
constexpr double infinity = std::numeric_limits<double>::infinity();

struct GoodCase {
    std::string document;
    PropertyList expected;
};

const GoodCase goodXML[] = {
    {xml("<dict>\n <key>t</key> <string>x</string>\n <key>y</key><true/> <key>n</key><false></false>"
         "<key>l</key><array><integer> 3 </integer><real>3.5</real>"
         "<date>2001-01-02T00:00:01Z</date><data>\n AQ\n ID </data></array></dict>"),
     Dictionary{{"t", "x"}, {"y", true}, {"n", false}, {"l", Array{3, 3.5, Date{86401}, bytesOf("\1\2\3")}}}},
    {xml("<string>  </string>"), "  "},
    {xml("<!-- c --><string>a<![CDATA[<&amp;]]> <![CDATA[]]><!-- c -->b</string>"), "a<&amp; b"},
    {xml("<string>&amp;lt;&lt;&gt;&quot;&apos;&#65;&#x1F600;&#13;</string>"), "&lt;<>\"'A😀\r"},
    {xml("<string>a\r\nb\rc<![CDATA[\r\n]]></string>"), "a\nb\nc\n"},
    {xml("<array><integer>-9223372036854775808</integer><integer>18446744073709551615</integer>"
         "<integer>+7</integer><integer>-0x1f</integer><integer>0X1F</integer></array>"),
     Array{least, greatest, 7, -31, 31}},
    {xml("<array><real>-infinity</real><real>+INF</real><real>+.5</real><real>-5e-324</real></array>"),
     Array{-infinity, infinity, 0.5, -5e-324}},
    {xml("<array><dict/><array> </array><string/><data></data><dict><key/><true/></dict></array>"),
     Array{Dictionary{}, Array{}, "", Data{}, Dictionary{{"", true}}}},
    {xml("<array><date>2024-02-29T23:59:59Z</date><data>AQ==</data><data>AQI=</data></array>"),
     Array{Date{730943999}, bytesOf("\1"), bytesOf("\1\2")}},
    {"\xEF\xBB\xBF<?xml version='1.0' encoding='us-ascii'?><?pi?>"
     "<!DOCTYPE plist [<!ELEMENT plist ANY>]><plist><true/></plist><!-- end -->",
     true},
    {xml(repeated(64, "<array>") + "<true/>" + repeated(64, "</array>")), nestedArrays(64)}};

const GoodCase goodJSON[] = {
    {"\xEF\xBB\xBF \n{\"t\": \"x\", \"y\":true,\"n\":null,\r\n\"l\":[3,3.5,-0.25,false,{},[]] }\t\n",
     Dictionary{
         {"t", "x"}, {"y", true}, {"n", {}}, {"l", Array{3, 3.5, -0.25, false, Dictionary{}, Array{}}}}},
    {"{\"\":[-9223372036854775808,18446744073709551615,18446744073709551616,1e3,"
     "0.30000000000000004,1.7976931348623157e308,5e-324]}",
     Dictionary{{"", Array{least, greatest, 18446744073709551616.0, 1000.0, 0.30000000000000004,
                           1.7976931348623157e308, 5e-324}}}},
    {"{\"\\u006b\\\"\":\"é\\n\\\\\\ud83d\\uDE00\\u0000{[,\"}", Dictionary{{"k\"", "é\n\\😀\0{[,"s}}},
    {"{\"k\":" + repeated(63, "[") + "true" + repeated(63, "]") + "}", Dictionary{{"k", nestedArrays(63)}}}};

const GoodCase goodBinary[] = {
    {binary({"\xA7\0\1\0\2\0\3\0\4\0\5\0\6\0\7"s, "\x10\xFF", "\x11\xFF\xFF", "\x12\xFF\xFF\xFF\xFF",
             "\x13" + std::string(8, '\xFF'), "\x14" + bigEndian(0, 8) + std::string(8, '\xFF'),
             "\x14" + std::string(16, '\xFF'), "\x14" + bigEndian(0, 8) + bigEndian(5, 8)}),
     Array{255, 65535, 4294967295, -1, greatest, -1, 5}},
    {binary({"\xA6\0\1\0\2\0\3\0\4\0\5\0\6"s, "\x22\x3F\0\0\0"s, "\x23\xC0\x04\0\0\0\0\0\0"s,
             "\x33\x3F\xF8\0\0\0\0\0\0"s, "\x42\0\1"s, "\0"s, "\x08"}),
     Array{0.5, -2.5, Date{1.5}, bytesOf("\0\1"s), {}, false}},
    {binary({"\xA2\0\1\0\1"s, "\xD1\0\2\0\3"s, "\x51k", "\x64\0a\0\xE9\xD8\x3D\xDE\0"s}),
     Array{Dictionary{{"k", "aé😀"}}, Dictionary{{"k", "aé😀"}}}},
    {binary({"\x5F\x11\0\x12"s + std::string(18, 'x')}), std::string(18, 'x')},
    {binaryChain(64, 1), nestedArrays(64)}};

struct BadCase {
    std::string document;
    const char* reason;
    std::optional<TextPosition> position = std::nullopt;
};

void expectBad(const BadCase& row)
{
    for (const WithPlaces withPlaces : {WithPlaces::no, WithPlaces::yes}) {
        try {
            const PropertyListDocument document = readPropertyList(row.document, withPlaces);
            ADD_FAILURE() << row.document.substr(0, 200) << " accepted as " << document.root.description();
        } catch (const PropertyListError& error) {
            const std::string what = error.what();
            const auto hasHint = [](const std::string& reason) { return reason.find("typographic") < 200; };
            EXPECT_NE(what.find(row.reason), std::string::npos) << what;
            EXPECT_EQ(hasHint(what), hasHint(row.reason)) << what;
            for (const char* content : {"sekret", "31415926", "29541"})
                EXPECT_EQ(error.description().find(content), std::string::npos) << error.description();
            const TextPosition none{0, 0};
            const TextPosition found = error.position().value_or(none);
            EXPECT_EQ(found, row.position.value_or(none))
                << error.what() << " at " << found.line << ":" << found.column;
        }
    }
}

using At = TextPosition;

const BadCase badOfAnyFormat[] = {{"", "is empty"},
                                  {"\xEF\xBB\xBF \r\n", "is empty"},
                                  {std::string(10 << 20, '\x9B'), "is neither"},
                                  {std::string(maximumPropertyListBytes, ' '), "is empty"},
                                  {std::string(maximumPropertyListBytes + 1, ' '), "larger than 16 MiB"},
                                  {"\xFF\xFE<\0"s, "save it as UTF-8"},
                                  {"\0\0\xFE\xFF\0\0\0<"s, "save it as UTF-8"},
                                  {"bplist15", "unsupported version"}};

// The body of an xml() document starts at line 3, column 8.
const BadCase badXML[] = {
    {"<plist>\n<dict><key>a</ke", "ends before", At{2, 17}},
    {xml(repeated(10'000, "<array>") + repeated(10'000, "</array>")), "more than 64 levels deep",
     At{3, 8 + 64 * 7}},
    {xml("<array>" + repeated(1'000'000, "<true/>") + "</array>"), "more than 1000000 values",
     At{3, 15 + 999'999 * 7}},
    {"<plist>\n<string>é\xC3(</string></plist>", "not valid UTF-8", At{2, 10}},
    {"<plist><string>\xF4\x90\x80\x80", "not valid UTF-8", At{1, 16}},
    {xml("<string>a\0</string>"s), "control character", At{3, 17}},
    {xml("<string>\xEF\xBF\xBE</string>"), "does not allow", At{3, 16}},
    {xml("<dict><key>a</key>\n<true/> <key>&#97;</key><true/></dict>"),
     "a key appears twice in one dictionary (first on line 3)", At{4, 9}},
    {xml("<dict><key>a</key><key>b</key><true/></dict>"), "a <key> without a value", At{3, 14}},
    {xml("<dict><key>sekret</key></dict>"), "a <key> without a value", At{3, 14}},
    {xml("<dict><true/></dict>"), "<true> where a <key> is expected", At{3, 14}},
    {xml("<array><key>a</key></array>"), "a <key> where a value", At{3, 15}},
    {xml("<array>\n é<true/></array>"), "unexpected text between elements", At{4, 2}},
    {xml("<array><![CDATA[ ]]></array>"), "unexpected text", At{3, 24}},
    {xml("<true>sekret</true>"), "unexpected text", At{3, 14}},
    {xml("<false><true/></false>"), "<false> is not empty", At{3, 15}},
    {xml("<string>a<sekret/></string>"), "<string> contains an unknown element", At{3, 17}},
    {xml("<array><sekret/></array>"), "an unknown element where a value", At{3, 15}},
    {xml("<string>a\n&sekret;</string>"), "an unknown entity", At{4, 1}},
    {xml("<string>a & b</string>"), "&amp;", At{3, 18}},
    {xml("<string>&#31415926;</string>"), "a character that XML does not allow", At{3, 16}},
    {"<!DOCTYPE plist [\n<!ENTITY sekret 'sekret'>]><plist/>", "declares entities", At{2, 1}},
    {"<?xml version='1.0' encoding='sekret'?><plist/>", "encoding other than UTF-8", At{1, 1}},
    {"<!DOCTYPE plist><?xml version='1.0'?><plist/>", "not at the start", At{1, 17}},
    {"<!DOCTYPE plist>\n<!DOCTYPE plist><plist/>", "misplaced document type", At{2, 11}},
    {"<plist/>\n<!DOCTYPE plist>", "misplaced", At{2, 11}},
    {"<plist><true/></plist>\n<plist/>", "second root", At{2, 1}},
    {"<dict/>", "<dict>, not <plist>", At{1, 1}},
    {"<!-- c -->", "no root", At{1, 11}},
    {"<plist><true/></plist>\n sekret", "unexpected text", At{2, 2}},
    {xml("<true/><true/>"), "more than one value", At{3, 15}},
    {xml(" "), "contains no value", At{3, 1}},
    {xml("<dict></array>"), "does not match", At{3, 16}},
    {xml("<integer>12sekret</integer>"), "<integer> does not contain an integer", At{3, 8}},
    {xml("<integer>18446744073709551616</integer>"), "64 bits", At{3, 8}},
    {xml("<integer>-9223372036854775809</integer>"), "64 bits", At{3, 8}},
    {xml("<real>1.5sekret</real>"), "<real> does not contain a real", At{3, 8}},
    {xml("<real>+-1</real>"), "not contain a real", At{3, 8}},
    {xml("<real>1e400</real>"), "in range", At{3, 8}},
    {xml("<date>2023-02-29T00:00:00Z</date>"), "not contain a date", At{3, 8}},
    {xml("<date>2023-02-28T24:00:00Z</date>"), "not contain a date", At{3, 8}},
    {xml("<date>2023-02-28T23:60:00Z</date>"), "not contain a date", At{3, 8}},
    {xml("<date>2016-12-31T23:59:60Z</date>"), "not contain a date", At{3, 8}},
    {xml("<data>A=sekret</data>"), "not contain Base64", At{3, 8}},
    {xml("<data>A===</data>"), "not contain Base64", At{3, 8}},
    {xml("<data>AQI</data>"), "not contain Base64", At{3, 8}}};

const BadCase badJSON[] = {
    {R"({"a": {"b": 1)", "ends before", At{1, 14}},
    {R"({"a": {"b": "sekret)", "ends inside a string", At{1, 20}},
    {"{\"a\":" + repeated(10'000, "[") + repeated(10'000, "]") + "}", "more than 64 levels deep",
     At{1, 6 + 63}},
    {"{\"a\":[" + repeated(1'000'000, "1,") + "1]}", "more than 1000000 values", At{1, 7 + 999'998 * 2}},
    {"{\"é\":\n \"é\x80\"}", "not valid UTF-8", At{2, 4}},
    {"{\"x\":{\"a\":1,\n\"b\":{\"a\":2},\n \"\\u0061\":3}}",
     "a key appears twice in one dictionary (first on line 1)", At{3, 2}},
    {"{}\n sekret", "unexpected text after the end", At{2, 2}},
    {"{\"a\":\0}"s, "an unknown word", At{1, 6}},
    {"{\"a\":\"é\n\"}", "does not end on its line", At{1, 8}},
    {"{\"a\":\"\r\"}", "does not end on its line", At{1, 7}},
    {"{\"a\":\"\x1f\"}", "a control character", At{1, 7}},
    {"{\"a\":1 ,\n}", "a comma before a closing bracket; remove it", At{1, 8}},
    {"{\"a\":[1,,2]}", "a value is missing", At{1, 9}},
    {"{\"a\":1\"b\":2}", "expected \",\" or \"}\"", At{1, 7}},
    {R"({"a":"x\"y" 1})", "expected \",\" or \"}\"", At{1, 13}},
    {"{\"a\":[true null]}", "expected \",\" or \"]\"", At{1, 12}},
    {"{\"a\":[{}}]}", "expected \",\" or \"]\"", At{1, 9}},
    {"{\"a\" é}", "expected \":\" after a key", At{1, 6}},
    {"{\"a\": }", "a value is missing", At{1, 7}},
    {"{sekret: 2}", "expected a key in quotation marks", At{1, 2}},
    {"{\"a\": é}", "write a string in quotation marks", At{1, 7}},
    {"{\"a\":\n sekret}", "an unknown word", At{2, 2}},
    {"{\"a\": 0123}", "a malformed number", At{1, 7}},
    {"{\"a\": 12é-4}", "a malformed number; write a string", At{1, 7}},
    {"{\"a\": .5sekret}", "a malformed number", At{1, 7}},
    {"{\"a\": 1.}", "a malformed number", At{1, 7}},
    {"{“a”: 1}", "a typographic quotation mark; write a straight", At{1, 2}},
    {"{\"a\": „sekret“}", "a typographic quotation mark", At{1, 7}},
    {"{\"a\": \"b”,\n\"c\": 1}", "contains a typographic quotation mark", At{1, 11}},
    {"{'sekret': 1}", "a single quotation mark; write a double", At{1, 2}},
    {"{\"a\": 1, // sekret\n}", "a comment, which JSON does not allow", At{1, 10}},
    {"{\"a\": 1 /* b */}", "a comment, which JSON", At{1, 9}},
    {"{\"a\": 1\n#b\n}", "a comment, which JSON", At{2, 1}},
    {R"({"a":"\uD800\u0041"})", "half of a surrogate pair", At{1, 13}},
    {R"({"a":"\ud800"})", "half of a surrogate pair", At{1, 7}},
    {R"({"a":"\uD800b"})", "half of a surrogate pair", At{1, 7}},
    {R"({"a":"\udc00"})", "half of a surrogate pair", At{1, 7}},
    {R"({"a":"\u00zz"})", "without four hexadecimal digits", At{1, 7}},
    {R"({"a":"\sekret"})", "an unknown escape", At{1, 8}},
    {R"({"a":"b\ud800 and more text"})", "half of a surrogate pair", At{1, 8}},
    {"{\"a\":\n31415926e400}", "a number is out of range", At{2, 1}},
    {"{\"a\":1e99999999999}", "out of range", At{1, 6}}};

/// Returns a binary document of "true" with the sizes of an offset and of a reference, and the number of
/// objects, in its trailer.
std::string withTrailer(const std::string& sizes, std::uint64_t objectCount, const std::string& offsets = {})
{
    return "bplist00\x09" + offsets + std::string(6, '\0') + sizes + bigEndian(objectCount, 8) +
           bigEndian(0, 8) + bigEndian(9, 8);
}

/// Returns a document that contains a string or data of a MiB 196 times.
std::string laughs(const std::string& head)
{
    return binary(
        {"\xAE" + repeated(14, "\0\1"s), "\xAE" + repeated(14, "\0\2"s), head + std::string(1 << 20, 'x')});
}

const BadCase badBinary[] = {
    {"bplist00", "ends before the trailer"},
    {binary({"\xA1\0\1"s, "\x09"}).substr(1).insert(0, "b").erase(20, 1), "cut short"},
    {withTrailer("\x8\1", std::uint64_t{1} << 61), "cut short"},
    {withTrailer("\1\1", 0), "root object that does not exist"},
    {binary({"\xA1se"}), "an object that does not exist"},
    {binary({"\x09"}).insert(13, 1, '\0'), "cut short"},
    {withTrailer("\x9\1", 1, '\0' + bigEndian(8, 8)), "invalid size"},
    {withTrailer("\1\0"s, 1, "\x8"), "invalid size"},
    {withTrailer("\1\1", 1, "\7"), "outside the object area"},
    {withTrailer("\1\1", 1, "\x9"), "outside the object area"},
    {binary({"\x4F\x23\0\0\0\0\0\0\0\1x"s}), "invalid count"},
    {binary({"\x4F\x14\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\1x"s}), "invalid count"},
    {binary({"\xA1\0\1"s, "\xD1\0\2\0\0"s, "\x51k"}), "contains itself"},
    {binaryChain(65, 1), "more than 64 levels deep"},
    {binary({"\xAF\x12" + bigEndian(500'000, 4) + repeated(500'000, "\0\1"s), "\xD1\0\2\0\2"s, "\x51k"}),
     "more than 1000000 values"},
    {binaryChain(30, 14), "more than 1000000 values"},
    {laughs("\x4F\x12\0\x10\0\0"s), "more than 64 MiB"},
    {laughs("\x5F\x12\0\x10\0\0"s), "more than 64 MiB"},
    {laughs("\x6F\x12\0\x08\0\0"s), "more than 64 MiB"},
    {binary({"\xAF\x13\x7F" + std::string(7, '\xFF')}), "extends past"},
    {binary({"\x4F\x13" + std::string(8, '\xFF')}), "extends past"},
    {binary({"\x52x"}), "extends past"},
    {binary({"\x14" + bigEndian(1, 8) + bigEndian(0, 8)}), "64 bits"},
    {binary({"\x14" + std::string(8, '\xFF') + bigEndian(5, 8)}), "64 bits"},
    {binary({"\x51\xE9"}), "not ASCII"},
    {binary({"\x62\xD8\x3D\0a"s}), "surrogate"},
    {binary({"\x62\xD8\x3D\xE0\0"s}), "surrogate"},
    {binary({"\x62\xDE\0\xDE\0"s}), "surrogate"},
    {binary({"\xD2\0\1\0\1\0\2\0\2"s, "\x56sekret", "\x09"}), "a key appears twice"},
    {binary({"\xD1\0\1\0\1"s, "\x10\1"}), "key is not a string"},
    {binary({"\xC0"}), "set"},
    {binary({"\x80\1"}), "UID"},
    {binary({"\x15" + std::string(32, '\0')}), "longer than 16"},
    {binary({"\x21\0\0"s}), "neither 4 nor 8"},
    {binary({"\x32\0\0\0\0"s}), "8 bytes"},
    {binary({"\x33\x7F\xF8\0\0\0\0\0\0"s}), "date"},
    {binary({"\x0F"}), "unknown type"}};

TEST(PropertyListReaderTest, ReadsGoodDocumentsInFull)
{
    const auto expectGood = [](const auto& rows, PropertyListFormat format) {
        for (const GoodCase& row : rows) {
            const PropertyListDocument document = readPropertyList(row.document);
            EXPECT_EQ(document.root, row.expected) << document.root.description();
            EXPECT_EQ(document.format, format);
            EXPECT_TRUE(document.places.byPath.empty());
        }
    };
    expectGood(goodXML, PropertyListFormat::xml);
    expectGood(goodJSON, PropertyListFormat::json);
    expectGood(goodBinary, PropertyListFormat::binary);
}

TEST(PropertyListReaderTest, RejectsBadDocumentsWithReasonAndPosition)
{
    std::ranges::for_each(badOfAnyFormat, expectBad);
    std::ranges::for_each(badXML, expectBad);
    std::ranges::for_each(badJSON, expectBad);
    std::ranges::for_each(badBinary, expectBad);
}

/// Returns the recorded positions as "path key value" or, for an element of a list, "path value".
std::string placesOf(const std::string& document)
{
    const auto text = [](TextPosition position) {
        return " " + std::to_string(position.line) + ":" + std::to_string(position.column);
    };
    std::string all;
    for (const auto& [path, place] : readPropertyList(document, WithPlaces::yes).places.byPath)
        all += path + (place.key ? text(*place.key) : "") + text(place.value) + "\n";
    return all;
}

TEST(PropertyListReaderTest, RecordsPositionsOfTopLevelKeysAndTheirElements)
{
    EXPECT_EQ(
        placesOf("\xEF\xBB\xBF{\"é\": 12,\n \"list\":\n[\"é\\\"]\", [1],{\"x\":[2]}],\n\"d\":{\"e\":[1]}}"),
        "d 4:1 4:5\nlist 2:2 3:1\nlist/0 3:2\nlist/1 3:10\nlist/2 3:14\né 1:2 1:7\n");
    EXPECT_EQ(
        placesOf("<plist><dict>\n<key>é</key> <true/>\n<key>list</key>\n <array><array><true/></array>\n"
                 "<dict><key>x</key><array><true/></array></dict></array>\n<key>d</key><dict><key>x</"
                 "key><array><true/></array></dict></dict></plist>"),
        "d 6:1 6:13\nlist 3:1 4:2\nlist/0 4:9\nlist/1 5:1\né 2:1 2:14\n");
    EXPECT_EQ(placesOf("<plist><array><array><true/></array></array></plist>"), "");
}

PropertyList sample()
{
    Array many;
    for (int index = 0; index < 300; ++index)
        many.emplace_back(Dictionary{{"index", index * 1000}, {"text", std::string(20, 'x')}});
    return Dictionary{{"many", many},
                      {"integers", Array{0, 255, 256, 65536, 4294967296, -1, least, greatest}},
                      {"reals", Array{0.1, -infinity}},
                      {"texts", Array{"", "é😀", "\0"s, std::string(15, 'z'), std::string(70'000, 'y')}},
                      {"rest", Array{true, false, {}, Date{-0.5}, bytesOf("\0\xFF"s), Array{}, Dictionary{}}},
                      {"ключ\uffff\U00010000", "key"}};
}

TEST(PropertyListReaderTest, ReadsWhatItWrites)
{
    const std::string written = textOf(writeBinaryPropertyList(sample()));
    EXPECT_EQ(readPropertyList(written).root, sample());
    EXPECT_EQ(formatName(readPropertyList(written).format), "binary property list");
    EXPECT_EQ(formatName(readPropertyList(xml("<true/>")).format), "XML property list");
    EXPECT_LT(written.size(), 90'000U) << "repeated strings must be stored once";
    EXPECT_EQ(readPropertyList(textOf(writeBinaryPropertyList("x"))).root, PropertyList("x"));
}

} // namespace
