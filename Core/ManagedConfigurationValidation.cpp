#include "Core/ManagedConfigurationValidation.h"

#include "Core/ManagedKeys.h"
#include "Core/UnicodeText.h"
#include "Platform/ASCII.h"

#include <algorithm>
#include <array>
#include <set>

namespace Core {

namespace {

using Platform::PropertyList;
using FindingKind = ValidationFinding::Kind;

/// Collects the findings of one key; discards them if `sink` is null.
class FindingCollector {
public:
    FindingCollector(std::vector<ValidationFinding>* sink, std::string_view key) : m_sink(sink), m_key(key) {}

    [[nodiscard]] bool isCollecting() const { return m_sink != nullptr; }
    void add(FindingKind kind, std::optional<std::size_t> index = std::nullopt)
    {
        if (m_sink != nullptr)
            m_sink->push_back({kind, m_key, index});
    }

private:
    std::vector<ValidationFinding>* m_sink;
    std::string_view m_key;
};

constexpr std::string_view https = "https://";

constexpr bool isBundleIdCharacter(char character)
{
    return Platform::isASCIILetter(character) || Platform::isASCIIDigit(character) || character == '.' ||
           character == '-';
}

/// Kinds of characters in an entry of a list, as bits.
enum CharacterKind : unsigned char { ordinary = 0, dot = 1, forbidden = 2 };

/// The kind of each character, by its code. A list may have millions of characters.
constexpr auto characterKinds = [] {
    std::array<CharacterKind, 256> kinds{};
    for (std::size_t code = 0; code < kinds.size(); ++code)
        kinds[code] = !isBundleIdCharacter(static_cast<char>(code)) ? forbidden
                      : code == '.'                                 ? dot
                                                                    : ordinary;
    return kinds;
}();

/// Returns the scheme at the start of `text`, if any: "ftp" for "ftp://host", "https" for "https:/host".
std::optional<std::string_view> leadingScheme(std::string_view text)
{
    // RFC 3986, section 3.1
    const auto isSchemeCharacter = [](char character) {
        return isBundleIdCharacter(character) || character == '+';
    };
    const std::string_view scheme = text.substr(0, text.find(':'));
    text.remove_prefix(scheme.size());
    const bool isHTTP = Platform::equalsIgnoringASCIICase(scheme, "http") ||
                        Platform::equalsIgnoringASCIICase(scheme, "https");
    const bool hasSeparator = text.starts_with("://") || (isHTTP && text.starts_with(":/"));
    return hasSeparator && !scheme.empty() && std::all_of(scheme.begin(), scheme.end(), isSchemeCharacter)
               ? std::optional(scheme)
               : std::nullopt;
}

/// Returns why a trimmed entry is not a bundle identifier; absent if it is one.
std::optional<FindingKind> bundleIdProblem(std::string_view entry)
{
    if (entry.empty())
        return FindingKind::entryEmpty;
    unsigned kinds = 0;
    for (const char character : entry)
        kinds |= characterKinds[static_cast<unsigned char>(character)];
    if ((kinds & forbidden) != 0)
        return FindingKind::entryHasForbiddenCharacter;
    return (kinds & dot) != 0 ? std::nullopt : std::optional(FindingKind::entryHasNoDot);
}

/// Collects the valid ones of the entries of a list.
class BundleIdFilter {
public:
    explicit BundleIdFilter(FindingCollector findings) : m_findings(findings) {}

    void add(std::string_view piece)
    {
        const std::size_t index = m_count++;
        const std::string_view entry = trimmed(piece);
        if (const auto problem = bundleIdProblem(entry)) {
            m_findings.add(*problem, index);
            return;
        }
        if (m_findings.isCollecting() && !m_seen.insert(entry).second)
            m_findings.add(FindingKind::entryRepeated, index);
        accepted.push_back(entry);
    }

    TextList accepted;

private:
    FindingCollector m_findings;
    std::size_t m_count = 0;
    std::set<std::string_view> m_seen;
};

/// Returns whether all elements are strings.
bool areTexts(const PropertyList::Array& array, FindingCollector findings)
{
    bool areTexts = true;
    for (std::size_t index = 0; index < array.size(); ++index) {
        if (array[index].text() != nullptr)
            continue;
        areTexts = false;
        findings.add(FindingKind::elementNotText, index);
    }
    return areTexts;
}

/// Calls `visit` for each piece of `text` between its commas, at least once.
template <typename Visit>
void forEachPiece(std::string_view text, Visit visit)
{
    for (auto comma = text.find(','); comma != std::string_view::npos; comma = text.find(',')) {
        visit(text.substr(0, comma));
        text.remove_prefix(comma + 1);
    }
    visit(text);
}

TextList parseBundleIdList(const PropertyList& value, FindingCollector findings)
{
    BundleIdFilter filter(findings);
    if (const auto* text = value.text()) {
        filter.accepted.reserve(text->size());
        forEachPiece(*text, [&](std::string_view piece) { filter.add(piece); });
    } else if (const auto* array = value.array()) {
        // One element of the wrong type invalidates the whole array.
        if (areTexts(*array, findings)) {
            for (const PropertyList& element : *array)
                filter.add(*element.text());
        }
    } else {
        findings.add(FindingKind::wrongType);
    }
    return std::move(filter.accepted);
}

std::optional<std::string> readScalarString(const PropertyList& value, FindingCollector findings)
{
    if (const auto* text = value.text()) {
        const std::string_view content = trimmed(*text);
        if (content.empty()) {
            findings.add(FindingKind::blank);
            return std::nullopt;
        }
        if (content.size() != text->size())
            findings.add(FindingKind::whiteSpaceTrimmed);
        if (hasQuotationMarks(content))
            findings.add(FindingKind::quotationMarks);
        return std::string(content);
    }
    if (value.isNumber()) {
        findings.add(value.boolean() != nullptr ? FindingKind::booleanTakenAsText
                                                : FindingKind::numberTakenAsText);
        return value.numberText();
    }
    findings.add(FindingKind::wrongType);
    return std::nullopt;
}

std::optional<std::string> normalizeBaseDomain(const std::optional<std::string>& domain,
                                               FindingCollector findings)
{
    constexpr std::string_view http = "http://";
    const std::string_view text = trimmed(domain ? std::string_view(*domain) : std::string_view());
    if (text.empty())
        return std::nullopt;
    const bool isSecure = hasPrefixIgnoringCase(text, https);
    const bool isPlain = hasPrefixIgnoringCase(text, http);
    const std::string_view rest = text.substr(isSecure ? https.size() : isPlain ? http.size() : 0);
    if (leadingScheme(rest)) {
        findings.add(FindingKind::schemeUnsupported);
    } else {
        if (!isSecure)
            findings.add(isPlain ? FindingKind::schemeUpgraded : FindingKind::schemeAdded);
        if (const auto slash = rest.find('/'); slash != std::string_view::npos && slash + 1 < rest.size())
            findings.add(FindingKind::carriesPath);
    }
    return isSecure ? std::string(text) : std::string(https).append(rest);
}

void read(const PropertyList& value, const ManagedKey& key, FindingCollector findings,
          std::optional<std::string>& text)
{
    text = readScalarString(value, findings);
    if (key.kind == ManagedKey::Kind::address)
        text = normalizeBaseDomain(text, findings);
}

void read(const PropertyList& value, const ManagedKey&, FindingCollector findings, TextList& list)
{
    list = parseBundleIdList(value, findings);
}

} // namespace

std::vector<std::string_view> splitAtCommas(std::string_view text)
{
    std::vector<std::string_view> pieces;
    forEachPiece(text, [&](std::string_view piece) { pieces.push_back(piece); });
    return pieces;
}

std::optional<std::string_view> unsupportedScheme(std::string_view baseDomain)
{
    return hasPrefixIgnoringCase(baseDomain, https) ? leadingScheme(baseDomain.substr(https.size()))
                                                    : std::nullopt;
}

ValidatedConfig validateManagedConfiguration(const PropertyList::Dictionary& managed,
                                             std::vector<ValidationFinding>* findings)
{
    ValidatedConfig config;
    forEachValue(config, [&](const ManagedKey& key, auto& member) {
        if (const auto found = managed.find(key.name); found != managed.end())
            read(found->second, key, {findings, key.name}, member);
    });
    return config;
}

} // namespace Core
