#include "Platform/Encoding.h"

#include <gmock/gmock.h>

using namespace Platform;
using namespace std::string_view_literals;

namespace {

TEST(EncodingTest, EscapesForTerminalsAndLogsAndCleansForNotifications)
{
    // The text, and the results of `printable` and `plainText`.
    const std::tuple<std::string_view, const char*, const char*> cases[] = {
        {"", "", ""},
        {"ü\u0800\U00010000\\x1b", "ü\u0800\U00010000\\x1b", "ü\u0800\U00010000\\x1b"},
        {"a\nb\rc\td", "a\\nb\\rc\\td", "a bc d"},
        {"\0\x1b]0;title\x07\x7f"sv, "\\x00\\x1b]0;title\\x07\\x7f", "]0;title"},
        {"\u0080\u009b\u009f\u00a0", "\\x80\\x9b\\x9f\u00a0", "\u00a0"},
        {"\u202a\u202b\u202c\u202d\u202etxt", "\\u202a\\u202b\\u202c\\u202d\\u202etxt", "txt"},
        {"\u2066\u2067\u2068\u2069", "\\u2066\\u2067\\u2068\\u2069", ""},
        {"\u200e\u200f\u061c", "\\u200e\\u200f\\u061c", ""},
        {"\u2028\u2029", "\\u2028\\u2029", "  "},
        {"\u200d\u2065\u202f\u206a\u2070", "\u200d\u2065\u202f\u206a\u2070",
         "\u200d\u2065\u202f\u206a\u2070"},
        // An overlong escape character, a lone continuation byte, an incomplete character, a surrogate.
        {"\xc0\x9b-\x9b-\xe2\x82(", "\\xc0\\x9b-\\x9b-\\xe2\\x82(", "\ufffd-\ufffd-\ufffd("},
        {"\xed\xa0\x80\uffff-\xff", "\\xed\\xa0\\x80\uffff-\\xff", "\ufffd\ufffd-\ufffd"},
    };
    for (const auto& [text, escaped, plain] : cases) {
        EXPECT_EQ(printable(text), escaped);
        EXPECT_EQ(plainText(text, LineBreaks::replaced), plain) << escaped;
    }
    EXPECT_EQ(printable("a\n\tb\r\n", LineBreaks::kept), "a\n\\tb\\r\n");
    EXPECT_EQ(plainText("a\n\tb\r\n", LineBreaks::kept), "a\n b\n");
}

TEST(EncodingTest, Base64DoesNotDependOnThePieces)
{
    for (std::size_t cut = 0; cut <= 5; ++cut) {
        Base64Writer writer;
        writer.append("\x7F~}|{"sv.substr(0, cut));
        writer.append("\x7F~}|{"sv.substr(cut));
        EXPECT_EQ(std::move(writer).finish(), "f359fHs=") << cut;
    }
}

} // namespace
