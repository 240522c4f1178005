#include "Platform/PropertyLists/PropertyListReader.h"

#include "Tests/Fakes/Bytes.h"
#include "Tests/Fakes/CaseName.h"
#include "Tests/Platform/Linux/PropertyListDocuments.h"

#include <gtest/gtest.h>

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
constexpr PropertyListFormat xmlFormat = PropertyListFormat::xml;
constexpr PropertyListFormat jsonFormat = PropertyListFormat::json;
constexpr PropertyListFormat binaryFormat = PropertyListFormat::binary;

struct GoodCase {
    const char* name;
    PropertyListFormat format;
    std::string document;
    PropertyList expected;
};

class PropertyListReaderGood : public testing::TestWithParam<GoodCase> {};

TEST_P(PropertyListReaderGood, IsReadInFull)
{
    const PropertyListDocument document = readPropertyList(GetParam().document);
    EXPECT_EQ(document.root, GetParam().expected) << document.root.description();
    EXPECT_STREQ(document.root.typeName(), GetParam().expected.typeName());
    EXPECT_EQ(document.format, GetParam().format);
    EXPECT_TRUE(document.places.byPath.empty());
}

INSTANTIATE_TEST_SUITE_P(
    XML, PropertyListReaderGood,
    testing::Values(
        GoodCase{
            "EveryType", xmlFormat,
            xml("<dict>\n <key>t</key> <string>x</string>\n <key>y</key><true/> <key>n</key><false></false>"
                "<key>l</key><array><integer> 3 </integer><real>3.5</real>"
                "<date>2001-01-02T00:00:01Z</date><data>\n AQ\n ID </data></array></dict>"),
            Dictionary{
                {"t", "x"}, {"y", true}, {"n", false}, {"l", Array{3, 3.5, Date{86401}, bytesOf("\1\2\3")}}}},
        GoodCase{"WhiteSpaceText", xmlFormat, xml("<string>  </string>"), "  "},
        GoodCase{"CDATAAndComments", xmlFormat,
                 xml("<!-- c --><string>a<![CDATA[<&amp;]]> <![CDATA[]]><!-- c -->b</string>"), "a<&amp; b"},
        GoodCase{"References", xmlFormat,
                 xml("<string>&amp;lt;&lt;&gt;&quot;&apos;&#65;&#x1F600;&#13;</string>"), "&lt;<>\"'A😀\r"},
        GoodCase{"LineEnds", xmlFormat, xml("<string>a\r\nb\rc<![CDATA[\r\n]]></string>"), "a\nb\nc\n"},
        GoodCase{"Integers", xmlFormat,
                 xml("<array><integer>-9223372036854775808</integer><integer>18446744073709551615</integer>"
                     "<integer>+7</integer><integer>-0x1f</integer><integer>0X1F</integer></array>"),
                 Array{least, greatest, 7, -31, 31}},
        GoodCase{
            "Reals", xmlFormat,
            xml("<array><real>-infinity</real><real>+INF</real><real>+.5</real><real>-5e-324</real></array>"),
            Array{-infinity, infinity, 0.5, -5e-324}},
        GoodCase{
            "EmptyThings", xmlFormat,
            xml("<array><dict/><array> </array><string/><data></data><dict><key/><true/></dict></array>"),
            Array{Dictionary{}, Array{}, "", Data{}, Dictionary{{"", true}}}},
        GoodCase{"DatesAndPadding", xmlFormat,
                 xml("<array><date>2024-02-29T23:59:59Z</date><data>AQ==</data><data>AQI=</data></array>"),
                 Array{Date{730943999}, bytesOf("\1"), bytesOf("\1\2")}},
        GoodCase{"ByteOrderMarkAndSubset", xmlFormat,
                 "\xEF\xBB\xBF<?xml version='1.0' encoding='us-ascii'?><?pi?>"
                 "<!DOCTYPE plist [<!ELEMENT plist ANY>]><plist><true/></plist><!-- end -->",
                 true},
        GoodCase{"DeepestAllowed", xmlFormat,
                 xml(repeated(64, "<array>") + "<true/>" + repeated(64, "</array>")), nestedArrays(64)}),
    caseName<GoodCase>);

INSTANTIATE_TEST_SUITE_P(
    JSON, PropertyListReaderGood,
    testing::Values(
        GoodCase{
            "EveryType", jsonFormat,
            "\xEF\xBB\xBF \n{\"t\": \"x\", \"y\":true,\"n\":null,\r\n\"l\":[3,3.5,-0.25,false,{},[]] }\t\n",
            Dictionary{{"t", "x"},
                       {"y", true},
                       {"n", {}},
                       {"l", Array{3, 3.5, -0.25, false, Dictionary{}, Array{}}}}},
        GoodCase{"Numbers", jsonFormat,
                 "{\"\":[-9223372036854775808,18446744073709551615,18446744073709551616,1e3,"
                 "0.30000000000000004,1.7976931348623157e308,5e-324]}",
                 Dictionary{{"", Array{least, greatest, 18446744073709551616.0, 1000.0, 0.30000000000000004,
                                       1.7976931348623157e308, 5e-324}}}},
        GoodCase{"Texts", jsonFormat, "{\"\\u006b\\\"\":\"é\\n\\\\\\ud83d\\uDE00\\u0000{[,\"}",
                 Dictionary{{"k\"", "é\n\\😀\0{[,"s}}},
        GoodCase{"DeepestAllowed", jsonFormat,
                 "{\"k\":" + repeated(63, "[") + "true" + repeated(63, "]") + "}",
                 Dictionary{{"k", nestedArrays(63)}}}),
    caseName<GoodCase>);

INSTANTIATE_TEST_SUITE_P(
    Binary, PropertyListReaderGood,
    testing::Values(
        GoodCase{
            "Integers", binaryFormat,
            binary({"\xA7\0\1\0\2\0\3\0\4\0\5\0\6\0\7"s, "\x10\xFF", "\x11\xFF\xFF", "\x12\xFF\xFF\xFF\xFF",
                    "\x13" + std::string(8, '\xFF'), "\x14" + bigEndian(0, 8) + std::string(8, '\xFF'),
                    "\x14" + std::string(16, '\xFF'), "\x14" + bigEndian(0, 8) + bigEndian(5, 8)}),
            Array{255, 65535, 4294967295, -1, greatest, -1, 5}},
        GoodCase{"Scalars", binaryFormat,
                 binary({"\xA6\0\1\0\2\0\3\0\4\0\5\0\6"s, "\x22\x3F\0\0\0"s, "\x23\xC0\x04\0\0\0\0\0\0"s,
                         "\x33\x3F\xF8\0\0\0\0\0\0"s, "\x42\0\1"s, "\0"s, "\x08"}),
                 Array{0.5, -2.5, Date{1.5}, bytesOf("\0\1"s), {}, false}},
        GoodCase{"SharedKeysAndUTF16", binaryFormat,
                 binary({"\xA2\0\1\0\1"s, "\xD1\0\2\0\3"s, "\x51k", "\x64\0a\0\xE9\xD8\x3D\xDE\0"s}),
                 Array{Dictionary{{"k", "aé😀"}}, Dictionary{{"k", "aé😀"}}}},
        GoodCase{"LongCount", binaryFormat, binary({"\x5F\x11\0\x12"s + std::string(18, 'x')}),
                 std::string(18, 'x')},
        GoodCase{"DeepestAllowed", binaryFormat, binaryChain(64, 1), nestedArrays(64)}),
    caseName<GoodCase>);

struct BadCase {
    const char* name;
    std::string document;
    const char* reason;
    std::optional<TextPosition> position = std::nullopt;
};

class PropertyListReaderBad : public testing::TestWithParam<BadCase> {};

TEST_P(PropertyListReaderBad, IsRejectedWithReasonAndPosition)
{
    for (const WithPlaces withPlaces : {WithPlaces::no, WithPlaces::yes}) {
        try {
            const PropertyListDocument document = readPropertyList(GetParam().document, withPlaces);
            FAIL() << "accepted as " << document.root.description();
        } catch (const PropertyListError& error) {
            const std::string what = error.what();
            const auto hasHint = [](const std::string& reason) { return reason.find("typographic") < 200; };
            EXPECT_NE(what.find(GetParam().reason), std::string::npos) << what;
            EXPECT_EQ(hasHint(what), hasHint(GetParam().reason)) << what;
            const TextPosition none{0, 0};
            const TextPosition found = error.position().value_or(none);
            EXPECT_EQ(found, GetParam().position.value_or(none))
                << error.what() << " at " << found.line << ":" << found.column;
        }
    }
}

using At = TextPosition;

INSTANTIATE_TEST_SUITE_P(
    AnyFormat, PropertyListReaderBad,
    testing::Values(BadCase{"Nothing", "", "is empty"}, BadCase{"Blank", "\xEF\xBB\xBF \r\n", "is empty"},
                    BadCase{"Garbage", std::string(10 << 20, '\x9B'), "is neither"},
                    BadCase{"LargestAllowed", std::string(maximumPropertyListBytes, ' '), "is empty"},
                    BadCase{"TooLarge", std::string(maximumPropertyListBytes + 1, ' '), "larger than 16 MiB"},
                    BadCase{"UTF16", "\xFF\xFE<\0"s, "save it as UTF-8"},
                    BadCase{"UTF32", "\0\0\xFE\xFF\0\0\0<"s, "save it as UTF-8"},
                    BadCase{"OtherBinaryVersion", "bplist15", "unsupported version"}),
    caseName<BadCase>);

// The body of an xml() document starts at line 3, column 8.
INSTANTIATE_TEST_SUITE_P(
    XML, PropertyListReaderBad,
    testing::Values(
        BadCase{"HalfWritten", "<plist>\n<dict><key>a</ke", "ends before", At{2, 17}},
        BadCase{"HalfWrittenBetweenElements", "<plist>\n<dict>\n", "ends before", At{3, 1}},
        BadCase{"TenThousandLevels", xml(repeated(10'000, "<array>") + repeated(10'000, "</array>")),
                "more than 64 levels deep", At{3, 8 + 64 * 7}},
        BadCase{"TooManyValues", xml("<array>" + repeated(1'000'000, "<true/>") + "</array>"),
                "more than 1000000 values", At{3, 15 + 999'999 * 7}},
        BadCase{"InvalidUTF8", "<plist>\n<string>é\xC3(</string></plist>", "not valid UTF-8", At{2, 10}},
        BadCase{"OverlongUTF8", "<plist><string>\xE0\x80\xAF", "not valid UTF-8", At{1, 16}},
        BadCase{"SurrogateInUTF8", "<plist><string>\xED\xA0\x80", "not valid UTF-8", At{1, 16}},
        BadCase{"BeyondUnicode", "<plist><string>\xF4\x90\x80\x80", "not valid UTF-8", At{1, 16}},
        BadCase{"NullByte", xml("<string>a\0</string>"s), "control character", At{3, 17}},
        BadCase{"Noncharacter", xml("<string>\xEF\xBF\xBE</string>"), "does not allow", At{3, 16}},
        BadCase{"KeyTwice", xml("<dict><key>a</key>\n<true/> <key>&#97;</key><true/></dict>"),
                "a key appears twice in one dictionary (first on line 3)", At{4, 9}},
        BadCase{"NoValue", xml("<dict><key>a</key><key>b</key><true/></dict>"), "a <key> without a value",
                At{3, 14}},
        BadCase{"NoLastValue", xml("<dict><key>a</key></dict>"), "a <key> without a value", At{3, 14}},
        BadCase{"NoKey", xml("<dict><true/></dict>"), "<true> where a <key> is expected", At{3, 14}},
        BadCase{"KeyInArray", xml("<array><key>a</key></array>"), "a <key> where a value", At{3, 15}},
        BadCase{"StrayText", xml("<array>\n é<true/></array>"), "unexpected text between elements", At{4, 2}},
        BadCase{"BlankCDATA", xml("<array><![CDATA[ ]]></array>"), "unexpected text", At{3, 24}},
        BadCase{"TextInBoolean", xml("<true>x</true>"), "unexpected text", At{3, 14}},
        BadCase{"ElementInText", xml("<string>a<b/></string>"), "<string> contains an unknown element",
                At{3, 17}},
        BadCase{"UnknownElement", xml("<array><set/></array>"), "an unknown element where a value",
                At{3, 15}},
        BadCase{"UnknownEntity", xml("<string>a\n&nbsp;</string>"), "an unknown entity", At{4, 1}},
        BadCase{"BareAmpersand", xml("<string>a & b</string>"), "&amp;", At{3, 18}},
        BadCase{"ForbiddenReference", xml("<string>&#xD800;</string>"), "a character that XML does not allow",
                At{3, 16}},
        BadCase{"OwnEntities", "<!DOCTYPE plist [\n<!ENTITY a 'b'>]><plist/>", "declares entities", At{2, 1}},
        BadCase{"OtherEncoding", "<?xml version='1.0' encoding='latin1'?><plist/>",
                "encoding other than UTF-8", At{1, 1}},
        BadCase{"LateDeclaration", "<!DOCTYPE plist><?xml version='1.0'?><plist/>", "not at the start",
                At{1, 17}},
        BadCase{"TwoDoctypes", "<!DOCTYPE plist>\n<!DOCTYPE plist><plist/>", "misplaced document type",
                At{2, 11}},
        BadCase{"LateDoctype", "<plist/>\n<!DOCTYPE plist>", "misplaced", At{2, 11}},
        BadCase{"TwoRoots", "<plist><true/></plist>\n<plist/>", "second root", At{2, 1}},
        BadCase{"OtherRoot", "<dict/>", "<dict>, not <plist>", At{1, 1}},
        BadCase{"NoRoot", "<!-- c -->", "no root", At{1, 11}},
        BadCase{"TrailingText", "<plist><true/></plist>\n x", "unexpected text", At{2, 2}},
        BadCase{"TwoValues", xml("<true/><true/>"), "more than one value", At{3, 15}},
        BadCase{"NoValueAtAll", xml(" "), "contains no value", At{3, 1}},
        BadCase{"MismatchedTag", xml("<dict></array>"), "does not match", At{3, 16}},
        BadCase{"BadInteger", xml("<integer>12a</integer>"), "<integer> does not contain an integer",
                At{3, 8}},
        BadCase{"LargeInteger", xml("<integer>18446744073709551616</integer>"), "64 bits", At{3, 8}},
        BadCase{"SmallInteger", xml("<integer>-9223372036854775809</integer>"), "64 bits", At{3, 8}},
        BadCase{"BadReal", xml("<real>1.5x</real>"), "<real> does not contain a real", At{3, 8}},
        BadCase{"SignTwice", xml("<real>+-1</real>"), "not contain a real", At{3, 8}},
        BadCase{"HugeReal", xml("<real>1e400</real>"), "in range", At{3, 8}},
        BadCase{"BadDay", xml("<date>2023-02-29T00:00:00Z</date>"), "not contain a date", At{3, 8}},
        BadCase{"BadHour", xml("<date>2023-02-28T24:00:00Z</date>"), "not contain a date", At{3, 8}},
        BadCase{"BadMinute", xml("<date>2023-02-28T23:60:00Z</date>"), "not contain a date", At{3, 8}},
        BadCase{"LeapSecond", xml("<date>2016-12-31T23:59:60Z</date>"), "not contain a date", At{3, 8}},
        BadCase{"BadBase64", xml("<data>A=BC</data>"), "not contain Base64", At{3, 8}},
        BadCase{"PaddingOnly", xml("<data>A===</data>"), "not contain Base64", At{3, 8}},
        BadCase{"ShortBase64", xml("<data>AQI</data>"), "not contain Base64", At{3, 8}}),
    caseName<BadCase>);

INSTANTIATE_TEST_SUITE_P(
    JSON, PropertyListReaderBad,
    testing::Values(
        BadCase{"HalfWritten", R"({"a": {"b": 1)", "ends before", At{1, 14}},
        BadCase{"HalfWrittenString", R"({"a": {"b": "c)", "ends inside a string", At{1, 15}},
        BadCase{"TenThousandLevels", "{\"a\":" + repeated(10'000, "[") + repeated(10'000, "]") + "}",
                "more than 64 levels deep", At{1, 6 + 63}},
        BadCase{"TooManyValues", "{\"a\":[" + repeated(1'000'000, "1,") + "1]}", "more than 1000000 values",
                At{1, 7 + 999'998 * 2}},
        BadCase{"InvalidUTF8", "{\"é\":\n \"é\x80\"}", "not valid UTF-8", At{2, 4}},
        BadCase{"KeyTwice", "{\"x\":{\"a\":1,\n\"b\":{\"a\":2},\n \"\\u0061\":3}}",
                "a key appears twice in one dictionary (first on line 1)", At{3, 2}},
        BadCase{"TrailingGarbage", "{}\n }", "unexpected text after the end", At{2, 2}},
        BadCase{"NullByte", "{\"a\":\0}"s, "an unknown word", At{1, 6}},
        BadCase{"LineBreakInText", "{\"a\":\"é\n\"}", "does not end on its line", At{1, 8}},
        BadCase{"ReturnInText", "{\"a\":\"\r\"}", "does not end on its line", At{1, 7}},
        BadCase{"ControlCharacterInText", "{\"a\":\"\x1f\"}", "a control character", At{1, 7}},
        BadCase{"TrailingComma", "{\"a\":1 ,\n}", "a comma before a closing bracket; remove it", At{1, 8}},
        BadCase{"TrailingCommaInArray", "{\"a\":[1,]}", "a comma before a closing bracket", At{1, 8}},
        BadCase{"TwoCommas", "{\"a\":[1,,2]}", "a value is missing", At{1, 9}},
        BadCase{"NoCommaAfterNumber", "{\"a\":1\"b\":2}", "expected \",\" or \"}\"", At{1, 7}},
        BadCase{"NoCommaAfterText", "{\"a\":\"\"\n\"b\":2}", "expected \",\" or \"}\"", At{2, 1}},
        BadCase{"NoCommaAfterEscape", R"({"a":"x\"y" 1})", "expected \",\" or \"}\"", At{1, 13}},
        BadCase{"NoCommaInArray", "{\"a\":[true null]}", "expected \",\" or \"]\"", At{1, 12}},
        BadCase{"OtherBracket", "{\"a\":[{}}]}", "expected \",\" or \"]\"", At{1, 9}},
        BadCase{"NoColon", "{\"a\" é}", "expected \":\" after a key", At{1, 6}},
        BadCase{"NoValue", "{\"a\": }", "a value is missing", At{1, 7}},
        BadCase{"NoKey", "{1: 2}", "expected a key in quotation marks", At{1, 2}},
        BadCase{"KeyWithoutMarks", "{\"a\":1, b: 2}", "expected a key in quotation marks", At{1, 9}},
        BadCase{"TextWithoutMarks", "{\"a\": é}", "write a string in quotation marks", At{1, 7}},
        BadCase{"WrongWord", "{\"a\":\n nil}", "an unknown word", At{2, 2}},
        BadCase{"WrongEndOfWord", "{\"a\":\n nulL}", "an unknown word", At{2, 2}},
        BadCase{"LeadingZero", "{\"a\": 0123}", "a malformed number", At{1, 7}},
        BadCase{"DigitsAndLetters", "{\"a\": 12é-4}", "a malformed number; write a string", At{1, 7}},
        BadCase{"NoDigitBeforePoint", "{\"a\": .5}", "a malformed number", At{1, 7}},
        BadCase{"NoFraction", "{\"a\": 1.}", "a malformed number", At{1, 7}},
        BadCase{"TypographicKey", "{“a”: 1}", "a typographic quotation mark; write a straight", At{1, 2}},
        BadCase{"TypographicValue", "{\"a\": „b“}", "a typographic quotation mark", At{1, 7}},
        BadCase{"TypographicEnd", "{\"a\": \"b”,\n\"c\": 1}", "contains a typographic quotation mark",
                At{1, 11}},
        BadCase{"TypographicEndOnOneLine", "{\"a\": \"b”, \"c\": 1}", "contains a typographic", At{1, 13}},
        BadCase{"SingleMarks", "{'a': 1}", "a single quotation mark; write a double", At{1, 2}},
        BadCase{"Comment", "{\"a\": 1, // b\n}", "a comment, which JSON does not allow", At{1, 10}},
        BadCase{"BlockComment", "{\"a\": 1 /* b */}", "a comment, which JSON", At{1, 9}},
        BadCase{"ScriptComment", "{\"a\": 1\n#b\n}", "a comment, which JSON", At{2, 1}},
        BadCase{"HalfASurrogatePair", R"({"a":"\uD800\u0041"})", "half of a surrogate pair", At{1, 15}},
        BadCase{"LoneSurrogate", R"({"a":"\ud800"})", "half of a surrogate pair", At{1, 13}},
        BadCase{"SurrogateBeforeEscape", R"({"a":"\uDBFF\n"})", "half of a surrogate pair", At{1, 14}},
        BadCase{"SurrogateBeforeText", R"({"a":"\uD800b"})", "half of a surrogate pair", At{1, 13}},
        BadCase{"LowSurrogate", R"({"a":"\udc00"})", "half of a surrogate pair", At{1, 13}},
        BadCase{"ShortEscape", R"({"a":"\u00zz"})", "without four hexadecimal digits", At{1, 11}},
        BadCase{"UnknownEscape", R"({"a":"\é"})", "an unknown escape", At{1, 8}},
        BadCase{"HugeReal", "{\"a\":\n-1e400}", "a number is out of range", At{2, 1}},
        BadCase{"HugeExponent", "{\"a\":1e99999999999}", "out of range", At{1, 6}}),
    caseName<BadCase>);

/// Returns a document that contains a string or data of a MiB 196 times.
std::string laughs(const std::string& head)
{
    return binary(
        {"\xAE" + repeated(14, "\0\1"s), "\xAE" + repeated(14, "\0\2"s), head + std::string(1 << 20, 'x')});
}

INSTANTIATE_TEST_SUITE_P(
    Binary, PropertyListReaderBad,
    testing::Values(
        BadCase{"OnlyMagic", "bplist00", "ends before the trailer"},
        BadCase{"CutShort", binary({"\xA1\0\1"s, "\x09"}).substr(1).insert(0, "b").erase(20, 1), "cut short"},
        BadCase{"HugeTable",
                "bplist00\x09" + std::string(6, '\0') + "\x8\1" + bigEndian(std::uint64_t{1} << 61, 8) +
                    bigEndian(0, 8) + bigEndian(9, 8),
                "cut short"},
        BadCase{"NoRoot",
                "bplist00\x09" + std::string(6, '\0') + "\1\1" + bigEndian(0, 8) + bigEndian(0, 8) +
                    bigEndian(9, 8),
                "root object that does not exist"},
        BadCase{"ForeignReference", binary({"\xA1\0\1"s}), "an object that does not exist"},
        BadCase{"TableTooLong", binary({"\x09"}).insert(13, 1, '\0'), "cut short"},
        BadCase{"WideOffsets",
                "bplist00\x09"s + '\0' + bigEndian(8, 8) + std::string(6, '\0') + "\x9\1" + bigEndian(1, 8) +
                    bigEndian(0, 8) + bigEndian(9, 8),
                "invalid size"},
        BadCase{"NoReferences",
                "bplist00\x09\x8" + std::string(6, '\0') + "\1"s + '\0' + bigEndian(1, 8) + bigEndian(0, 8) +
                    bigEndian(9, 8),
                "invalid size"},
        BadCase{"InHeader",
                "bplist00\x09\6" + std::string(6, '\0') + "\1\1" + bigEndian(1, 8) + bigEndian(0, 8) +
                    bigEndian(9, 8),
                "outside the object area"},
        BadCase{"OtherCount", binary({"\x4F\x23\0\0\0\0\0\0\0\1x"s}), "invalid count"},
        BadCase{"Loop", binary({"\xA1\0\1"s, "\xD1\0\2\0\0"s, "\x51k"}), "contains itself"},
        BadCase{"TooDeep", binaryChain(65, 1), "more than 64 levels deep"},
        BadCase{"TooManyValues",
                binary({"\xAF\x12" + bigEndian(1'000'000, 4) + repeated(1'000'000, "\0\1"s), "\x09"}),
                "more than 1000000 values"},
        BadCase{"Laughs", binaryChain(30, 14), "more than 1000000 values"},
        BadCase{"LongLaughs", laughs("\x4F\x12\0\x10\0\0"s), "more than 64 MiB"},
        BadCase{"LongASCIILaughs", laughs("\x5F\x12\0\x10\0\0"s), "more than 64 MiB"},
        BadCase{"LongUTF16Laughs", laughs("\x6F\x12\0\x08\0\0"s), "more than 64 MiB"},
        BadCase{"HugeCount", binary({"\xAF\x13\x7F" + std::string(7, '\xFF')}), "extends past"},
        BadCase{"HugeDataCount", binary({"\x4F\x13" + std::string(8, '\xFF')}), "extends past"},
        BadCase{"OneByteTooLong", binary({"\x52x"}), "extends past"},
        BadCase{"WideInteger", binary({"\x14" + bigEndian(1, 8) + bigEndian(0, 8)}), "64 bits"},
        BadCase{"WideNegativeInteger", binary({"\x14" + std::string(8, '\xFF') + bigEndian(5, 8)}),
                "64 bits"},
        BadCase{"EightBitText", binary({"\x51\xE9"}), "not ASCII"},
        BadCase{"LoneSurrogate", binary({"\x62\xD8\x3D\0a"s}), "surrogate"},
        BadCase{"SurrogateAndOther", binary({"\x62\xD8\x3D\xE0\0"s}), "surrogate"},
        BadCase{"LowSurrogates", binary({"\x62\xDE\0\xDE\0"s}), "surrogate"},
        BadCase{"KeyTwice", binary({"\xD2\0\1\0\2\0\3\0\3"s, "\x51k", "\x61\0k"s, "\x09"}),
                "a key appears twice"},
        BadCase{"NumberAsKey", binary({"\xD1\0\1\0\1"s, "\x10\1"}), "key is not a string"},
        BadCase{"Set", binary({"\xC0"}), "set"}, BadCase{"UID", binary({"\x80\1"}), "UID"},
        BadCase{"LongInteger", binary({"\x15" + std::string(32, '\0')}), "longer than 16"},
        BadCase{"HalfReal", binary({"\x21\0\0"s}), "neither 4 nor 8"},
        BadCase{"ShortDate", binary({"\x32\0\0\0\0"s}), "8 bytes"},
        BadCase{"NotADate", binary({"\x33\x7F\xF8\0\0\0\0\0\0"s}), "date"},
        BadCase{"Fill", binary({"\x0F"}), "unknown type"}),
    caseName<BadCase>);

TEST(PropertyListReaderTest, ErrorsDoNotQuoteTheDocument)
{
    struct Case {
        std::string document;
        const char* canary = "sekret";
    };
    const Case cases[] = {
        {R"({"a": sekret})"},
        {R"({"a": 12sekret})"},
        {R"({"a": "sekret" sekret})"},
        {R"({sekret: 1})"},
        {R"({"sekret" sekret})"},
        {R"({"a": "\sekret"})"},
        {R"({"a": "\usekret"})"},
        {R"({"a": “sekret”})"},
        {R"({"a": 'sekret'})"},
        {R"({"a": //sekret)"},
        {R"({"a": "sekret)"},
        {"{\"a\": \"sekret\n\"}"},
        {R"({"sekret": 1, "sekret": 2})"},
        {R"({} sekret)"},
        {R"({"a": 314159e999})", "314159"},
        {"sekret"},
        {"sekret\xFF"},
        {"{\"sekret\xC3\": 1}", "C3"},
        {xml("<dict>sekret</dict>")},
        {xml("<sekret/>")},
        {xml("<dict><key>a</key><sekret>b</sekret></dict>")},
        {xml("<dict><sekret/></dict>")},
        {xml("<dict><key>sekret</key></dict>")},
        {xml("<dict><key>sekret</key><true/><key>sekret</key><true/></dict>")},
        {xml("<integer>sekret</integer>")},
        {xml("<real>sekret</real>")},
        {xml("<date>sekret</date>")},
        {xml("<data>sekre_</data>"), "sekre"},
        {xml("<string>&sekret;</string>")},
        {xml("<string>&#31415926;</string>"), "31415926"},
        {xml("<string>&sekret</string>")},
        {xml("<string><sekret/></string>")},
        {xml("<true>sekret</true>")},
        {xml("<string>sekret</sekret>")},
        {xml("<string sekret>")},
        {xml("<string>\x1F</string>"), "1F"},
        {xml("<true/>") + "sekret"},
        {xml("<true/>") + "<sekret/>"},
        {"<sekret/>"},
        {"<?xml version='1.0' encoding='sekret'?><plist/>"},
        {"<!DOCTYPE plist [<!ENTITY sekret 'sekret'>]><plist/>"},
        {binary({"\xD2\0\1\0\1\0\2\0\2"s, "\x56sekret", "\x09"})},
        {binary({"\xA1se"}), "29541"},
        {binary({"sekret"}), "73"},
    };
    for (const Case& row : cases) {
        try {
            readPropertyList(row.document, WithPlaces::yes);
            ADD_FAILURE() << "accepted: " << row.document;
        } catch (const PropertyListError& error) {
            EXPECT_EQ(error.description().find(row.canary), std::string::npos) << error.description() << "\n"
                                                                               << row.document;
        }
    }
}

struct Spot {
    const char* path;
    std::optional<TextPosition> key;
    TextPosition value;
};

void expectPlaces(const std::string& document, const std::vector<Spot>& expected)
{
    const PropertyListPlaces places = readPropertyList(document, WithPlaces::yes).places;
    EXPECT_EQ(places.byPath.size(), expected.size());
    for (const Spot& spot : expected) {
        const auto found = places.byPath.find(spot.path);
        ASSERT_NE(found, places.byPath.end()) << spot.path;
        EXPECT_EQ(found->second.key, spot.key) << spot.path;
        EXPECT_EQ(found->second.value, spot.value) << spot.path;
    }
}

TEST(PropertyListReaderTest, RecordsPositionsOfTopLevelKeysAndTheirElements)
{
    const std::vector<Spot> inJSON{{"é", At{1, 2}, At{1, 7}},           {"list", At{2, 2}, At{3, 1}},
                                   {"list/0", std::nullopt, At{3, 2}},  {"list/1", std::nullopt, At{3, 10}},
                                   {"list/2", std::nullopt, At{3, 14}}, {"d", At{4, 1}, At{4, 5}}};
    expectPlaces("\xEF\xBB\xBF{\"é\": 12,\n \"list\":\n[\"é\\\"]\", [1],{\"x\":[2]}],\n\"d\":{\"e\":[1]}}",
                 inJSON);
    const std::vector<Spot> inXML{{"é", At{2, 1}, At{2, 14}},
                                  {"list", At{3, 1}, At{4, 2}},
                                  {"list/0", std::nullopt, At{4, 9}},
                                  {"list/1", std::nullopt, At{5, 1}},
                                  {"d", At{6, 1}, At{6, 13}}};
    expectPlaces("<plist><dict>\n<key>é</key> <true/>\n<key>list</key>\n <array><array><true/></array>\n"
                 "<dict><key>x</key><array><true/></array></dict></array>\n<key>d</key><dict><key>x</"
                 "key><array><true/></array></dict></dict></plist>",
                 inXML);
    expectPlaces("<plist><array><array><true/></array></array></plist>", {});
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
                      {"ключ", "key"}};
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
