#include "Core/ManagedConfigurationValidation.h"

#include "Core/ManagedKeys.h"
#include "Core/UnicodeText.h"
#include "Platform/ASCII.h"

#include <algorithm>
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

bool isBundleIdCharacter(char character)
{
    return Platform::isASCIILetter(character) || Platform::isASCIIDigit(character) || character == '.' ||
           character == '-';
}

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
    if (!std::all_of(entry.begin(), entry.end(), isBundleIdCharacter))
        return FindingKind::entryHasForbiddenCharacter;
    if (entry.find('.') == std::string_view::npos)
        return FindingKind::entryHasNoDot;
    return std::nullopt;
}

std::vector<std::string> filterBundleIds(const std::vector<std::string_view>& pieces,
                                         FindingCollector findings)
{
    std::vector<std::string> accepted;
    accepted.reserve(pieces.size());
    std::set<std::string_view> seen;
    for (std::size_t index = 0; index < pieces.size(); ++index) {
        const std::string_view entry = trimmed(pieces[index]);
        if (const auto problem = bundleIdProblem(entry)) {
            findings.add(*problem, index);
            continue;
        }
        if (findings.isCollecting() && !seen.insert(entry).second)
            findings.add(FindingKind::entryRepeated, index);
        accepted.emplace_back(entry);
    }
    return accepted;
}

std::vector<std::string> parseBundleIdList(const PropertyList& value, FindingCollector findings)
{
    if (const auto* text = value.text())
        return filterBundleIds(splitAtCommas(*text), findings);
    const auto* array = value.array();
    if (array == nullptr) {
        findings.add(FindingKind::wrongType);
        return {};
    }
    std::vector<std::string_view> pieces;
    pieces.reserve(array->size());
    for (std::size_t index = 0; index < array->size(); ++index) {
        if (const auto* text = (*array)[index].text())
            pieces.emplace_back(*text);
        else
            findings.add(FindingKind::elementNotText, index);
    }
    // One element of the wrong type invalidates the whole array.
    return pieces.size() == array->size() ? filterBundleIds(pieces, findings) : std::vector<std::string>();
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

void read(const PropertyList& value, const ManagedKey&, FindingCollector findings,
          std::vector<std::string>& list)
{
    list = parseBundleIdList(value, findings);
}

} // namespace

std::vector<std::string_view> splitAtCommas(std::string_view text)
{
    std::vector<std::string_view> pieces;
    for (auto comma = text.find(','); comma != std::string_view::npos; comma = text.find(',')) {
        pieces.push_back(text.substr(0, comma));
        text.remove_prefix(comma + 1);
    }
    pieces.push_back(text);
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
