// Fuzzes the redaction of a support bundle: no word of a configured value may be left in a message or in
// JSON.

#include "Core/ManagedKeys.h"
#include "Fuzzers/Fuzzing.h"
#include "Platform/ASCII.h"
#include "Platform/Encoding.h"
#include "Platform/PropertyLists/PropertyListReader.h"
#include "Tools/qvctl/Bundle/Redaction.h"

#include <boost/json.hpp>

using Fuzzers::require;
using Platform::PropertyList;
using Platform::PropertyLists::PropertyListError, Platform::PropertyLists::readPropertyList;
using Qvctl::Bundle::Redaction;

namespace {

namespace json = boost::json;
using Words = std::set<std::string, std::less<>>;

bool isPartOfWord(char character)
{
    return Platform::isASCIILetter(character) || Platform::isASCIIDigit(character) || character == '-' ||
           character == '_' || character == '.' || static_cast<unsigned char>(character) >= 0x80;
}

/// Returns whether messages quote this word of their own.
bool isVocabulary(std::string_view word)
{
    return word == "Authorization" || word == "X-Device-Id" || Core::findManagedKey(word) != nullptr;
}

/// Returns the words of `text` that a bundle must not contain, in lower case. Shorter words may be part of
/// any other text.
Words secretWords(std::string_view text)
{
    Words words;
    std::string word;
    const auto end = [&] {
        word.erase(word.find_last_not_of('.') + 1);
        const bool isSecret = word.size() >= 3 && !isVocabulary(word);
        std::transform(word.begin(), word.end(), word.begin(), Platform::lowerCaseASCII);
        if (isSecret && word != "http" && word != "https")
            words.insert(word);
        word.clear();
    };
    for (const char character : text) {
        if (isPartOfWord(character))
            word += character;
        else
            end();
    }
    end();
    return words;
}

/// Adds the strings in `value`, and the names of its unknown keys.
void collectTexts(const PropertyList& value, std::vector<std::string>& texts)
{
    if (const auto* array = value.array()) {
        for (const PropertyList& element : *array)
            collectTexts(element, texts);
    } else if (const auto* dictionary = value.dictionary()) {
        for (const auto& [key, member] : *dictionary) {
            texts.push_back(key);
            collectTexts(member, texts);
        }
    } else if (value.text() != nullptr) {
        texts.push_back(*value.text());
    }
}

/// Returns `redacted` without tokens such as "[14 bytes, hash 029e2873199a1b00]".
std::string withoutTokens(std::string redacted)
{
    constexpr std::string_view hash = " bytes, hash ";
    constexpr std::size_t digitCount = 16;
    for (std::size_t found = 0; (found = redacted.find(hash, found)) != std::string::npos;) {
        const std::size_t open = redacted.rfind('[', found);
        require(open != std::string::npos && redacted.size() > found + hash.size() + digitCount &&
                    redacted[found + hash.size() + digitCount] == ']',
                "a token is whole");
        redacted.replace(open, found + hash.size() + digitCount + 1 - open, " ");
        found = open;
    }
    return redacted;
}

/// Redacts `text`, a part of a value, in messages and in JSON.
void requireHidden(const Redaction& redaction, const std::string& text)
{
    const Words secrets = secretWords(text);
    const auto requireHiddenIn = [&](const std::string& redacted) {
        const Words left = secretWords(withoutTokens(redacted));
        require(std::none_of(secrets.begin(), secrets.end(),
                             [&](const std::string& word) { return left.contains(word); }),
                "no word of a value is left");
    };
    for (const std::string& message : {text, "1 '" + text + "' 2", "https://" + text + "/2"})
        requireHiddenIn(redaction.redact(message));
    const json::value redacted =
        redaction.redactJSON(json::object{{"2", json::array{text, json::object{{text, 1}}}}});
    const json::array& members = redacted.at("2").as_array();
    requireHiddenIn(std::string(members.at(0).as_string()));
    requireHiddenIn(members.at(1).as_object().begin()->key());
}

} // namespace

void Fuzzers::examine(std::string_view input)
{
    const auto document = accepted<PropertyListError>([&] { return readPropertyList(input); });
    const PropertyList value = document ? document->root : PropertyList(std::string(input));
    constexpr std::size_t maximumTextCount = 50;
    std::vector<std::string> texts;
    collectTexts(PropertyList(PropertyList::Array{value}), texts);
    texts.resize(std::min(texts.size(), maximumTextCount));

    Redaction redaction;
    redaction.hide(value);
    for (const std::string& text : texts)
        redaction.hideText(text);
    for (const std::string& text : texts) {
        requireHidden(redaction, text);
        // Commands escape what a terminal must not show.
        requireHidden(redaction, Platform::printable(text));
    }
    // Every fixed string in a description is shorter.
    constexpr std::size_t longestFixedString = 20;
    const std::string described = json::serialize(redaction.describe(value));
    for (const std::string& text : texts) {
        if (text.size() > longestFixedString && text.find('"') == std::string::npos)
            require(described.find(text) == std::string::npos, "a description contains no value");
    }
}
