#include "Platform/ASCII.h"
#include "Platform/PropertyLists/PropertyListFormats.h"
#include "Platform/PropertyLists/XMLScalars.h"

#include <fmt/format.h>
#include <pugixml.hpp>

#include <algorithm>
#include <array>
#include <charconv>
#include <new>

namespace Platform::PropertyLists {

namespace {

bool isXMLCharacter(char32_t codePoint)
{
    if (codePoint < 0x20)
        return codePoint == '\t' || codePoint == '\n' || codePoint == '\r';
    const bool isSurrogate = codePoint >= 0xD800 && codePoint < 0xE000;
    return !isSurrogate && codePoint != 0xFFFE && codePoint != 0xFFFF && codePoint <= 0x10FFFF;
}

bool isText(pugi::xml_node node)
{
    return node.type() == pugi::node_pcdata || node.type() == pugi::node_cdata;
}

std::string reasonOf(pugi::xml_parse_status status)
{
    switch (status) {
    case pugi::status_unrecognized_tag:
        return R"("<" does not start a tag here; write a literal one as "&lt;")";
    case pugi::status_bad_pi:
        return "a processing instruction or XML declaration is malformed or misplaced";
    case pugi::status_bad_comment:
        return "a comment is malformed";
    case pugi::status_bad_cdata:
        return "a CDATA section is malformed or misplaced";
    case pugi::status_bad_doctype:
        return "the document type declaration is malformed or misplaced";
    case pugi::status_bad_attribute:
        return "an attribute is malformed";
    case pugi::status_end_element_mismatch:
        return "an end tag does not match the open element";
    case pugi::status_bad_start_element:
    case pugi::status_bad_end_element:
        return "a tag is malformed";
    default:
        return "is not well-formed XML";
    }
}

/// Returns a name such as "<dict>", or "an unknown element": messages must not quote the document.
std::string described(pugi::xml_node element)
{
    constexpr std::array<std::string_view, 11> known{"plist", "dict", "array", "key",  "string", "integer",
                                                     "real",  "true", "false", "date", "data"};
    const std::string_view name = element.name();
    return std::ranges::find(known, name) != known.end() ? fmt::format("<{}>", name) : "an unknown element";
}

class XMLReader {
public:
    XMLReader(std::string_view text, WithPlaces withPlaces) : m_document(text, withPlaces) {}

    PropertyListDocument read();

private:
    struct Nesting {
        std::size_t depth = 1;
        /// The path prefix for recording the positions of array elements; null if they are not recorded.
        const std::string* path = nullptr;
    };

    using ScalarParser = std::optional<PropertyList> (*)(std::string_view);

    void checkCharacters();
    void parse();
    pugi::xml_node rootElement();
    void checkDeclaration(pugi::xml_node declaration);
    void checkDoctype(pugi::xml_node doctype);
    pugi::xml_node nextElement(pugi::xml_node node);

    PropertyList value(pugi::xml_node element, Nesting nesting);
    PropertyList dictionary(pugi::xml_node element, Nesting nesting);
    PropertyList array(pugi::xml_node element, Nesting nesting);
    PropertyList boolean(pugi::xml_node element, bool value);
    PropertyList scalar(pugi::xml_node element, ScalarParser parser, std::string_view description);

    std::string content(pugi::xml_node element);
    void appendDecoded(std::string& out, pugi::xml_node textNode);
    char32_t decodeReference(std::string_view name, std::size_t offset);

    static std::size_t offsetOf(pugi::xml_node node);
    [[noreturn]] void fail(std::string reason, pugi::xml_node node)
    {
        m_document.fail(std::move(reason), offsetOf(node));
    }

    TextDocument m_document;
    pugi::xml_document m_tree;
};

PropertyListDocument XMLReader::read()
{
    checkCharacters();
    parse();
    const pugi::xml_node root = rootElement();
    const pugi::xml_node only = nextElement(root.first_child());
    if (!only)
        fail("<plist> contains no value", root);
    PropertyList rootValue = value(only, {});
    if (const pugi::xml_node second = nextElement(only.next_sibling()))
        fail("<plist> contains more than one value", second);
    return {std::move(rootValue), PropertyListFormat::xml, m_document.takePlaces()};
}

void XMLReader::checkCharacters()
{
    const std::string_view text = m_document.text();
    for (std::size_t offset = 0; offset < text.size();) {
        const DecodedCharacter character = decodeUTF8(text.substr(offset)).value();
        if (!isXMLCharacter(character.codePoint))
            m_document.fail("a control character that XML does not allow", offset);
        offset += character.length;
    }
}

// White space is kept because a string may consist of it. Line ends are not converted, so that offsets stay
// correct. Text outside the root element is kept so that it can be rejected.
void XMLReader::parse()
{
    constexpr unsigned options = pugi::parse_cdata | pugi::parse_ws_pcdata | pugi::parse_fragment |
                                 pugi::parse_declaration | pugi::parse_doctype;
    const std::string_view text = m_document.text();
    const pugi::xml_parse_result result =
        m_tree.load_buffer(text.data(), text.size(), options, pugi::encoding_utf8);
    if (result.status == pugi::status_out_of_memory)
        throw std::bad_alloc();
    if (result)
        return;
    const auto offset = static_cast<std::size_t>(result.offset);
    if (offset + 1 >= text.size() || text.find('>', offset) == std::string_view::npos)
        m_document.fail("ends before all elements are closed", text.size());
    m_document.fail(reasonOf(result.status), offset);
}

pugi::xml_node XMLReader::rootElement()
{
    pugi::xml_node root;
    pugi::xml_node doctype;
    bool atStart = true;
    for (const pugi::xml_node node : m_tree.children()) {
        if (node.type() == pugi::node_declaration) {
            if (!atStart)
                fail("the XML declaration is not at the start", node);
            checkDeclaration(node);
        } else if (node.type() == pugi::node_doctype) {
            if (doctype || root)
                fail("a misplaced document type declaration", node);
            checkDoctype(doctype = node);
        } else if (node.type() == pugi::node_element) {
            if (root)
                fail("a second root element", node);
            root = node;
        } else {
            nextElement(node);
        }
        atStart = atStart && node.type() == pugi::node_pcdata;
    }
    if (!root)
        m_document.fail("has no root element", m_document.text().size());
    if (std::string_view(root.name()) != "plist")
        fail(fmt::format("the root element is {}, not <plist>", described(root)), root);
    return root;
}

void XMLReader::checkDeclaration(pugi::xml_node declaration)
{
    const pugi::xml_attribute encoding = declaration.attribute("encoding");
    if (encoding && !equalsIgnoringASCIICase(encoding.value(), "utf-8") &&
        !equalsIgnoringASCIICase(encoding.value(), "us-ascii"))
        fail("declares an encoding other than UTF-8; save it as UTF-8", declaration);
}

void XMLReader::checkDoctype(pugi::xml_node doctype)
{
    const std::string_view declaration = doctype.value();
    const std::size_t entity = declaration.find("<!ENTITY");
    if (entity != std::string_view::npos)
        m_document.fail("declares entities, which are not supported", offsetOf(doctype) + entity);
}

/// Returns the first element among `node` and its later siblings. Throws if text other than white space
/// precedes it.
pugi::xml_node XMLReader::nextElement(pugi::xml_node node)
{
    for (; isText(node); node = node.next_sibling()) {
        const std::string_view text = node.value();
        const std::size_t stray = node.type() == pugi::node_cdata ? 0 : text.find_first_not_of(textBlanks);
        if (stray != std::string_view::npos)
            m_document.fail("unexpected text between elements; put text into <string>",
                            offsetOf(node) + stray);
    }
    return node;
}

PropertyList XMLReader::value(pugi::xml_node element, Nesting nesting)
{
    m_document.countValue(offsetOf(element));
    const std::string_view name = element.name();
    if (name == "dict" || name == "array") {
        if (nesting.depth > maximumPropertyListDepth)
            fail(tooDeepReason(), element);
        return name == "dict" ? dictionary(element, nesting) : array(element, nesting);
    }
    if (name == "string")
        return content(element);
    if (name == "true" || name == "false")
        return boolean(element, name == "true");
    if (name == "integer")
        return scalar(element, parseInteger, "an integer of at most 64 bits");
    if (name == "real")
        return scalar(element, parseReal, "a real number in range");
    if (name == "date")
        return scalar(element, parseDate, "a date of the form 2001-12-31T23:59:59Z");
    if (name == "data")
        return scalar(element, parseData, "Base64");
    if (name == "key")
        fail("a <key> where a value is expected", element);
    fail(fmt::format("{} where a value is expected", described(element)), element);
}

PropertyList XMLReader::dictionary(pugi::xml_node element, Nesting nesting)
{
    TextDictionary entries;
    pugi::xml_node key = nextElement(element.first_child());
    while (key) {
        if (std::string_view(key.name()) != "key")
            fail(fmt::format("{} where a <key> is expected", described(key)), key);
        const std::string name = content(key);
        PropertyList& slot = entries.insert(name, offsetOf(key), m_document);
        const pugi::xml_node member = nextElement(key.next_sibling());
        if (!member || std::string_view(member.name()) == "key")
            fail("a <key> without a value", key);
        const bool atTop = nesting.depth == 1;
        if (atTop)
            m_document.notePlace(name, offsetOf(key), offsetOf(member));
        slot = value(member, {nesting.depth + 1, atTop ? &name : nullptr});
        key = nextElement(member.next_sibling());
    }
    return entries.take();
}

PropertyList XMLReader::array(pugi::xml_node element, Nesting nesting)
{
    PropertyList::Array elements;
    pugi::xml_node member = nextElement(element.first_child());
    while (member) {
        if (nesting.path != nullptr)
            m_document.notePlace(fmt::format("{}/{}", *nesting.path, elements.size()), std::nullopt,
                                 offsetOf(member));
        elements.push_back(value(member, {nesting.depth + 1, nullptr}));
        member = nextElement(member.next_sibling());
    }
    return elements;
}

PropertyList XMLReader::boolean(pugi::xml_node element, bool value)
{
    if (const pugi::xml_node child = nextElement(element.first_child()))
        fail(fmt::format("<{}> is not empty", element.name()), child);
    return value;
}

PropertyList XMLReader::scalar(pugi::xml_node element, ScalarParser parser, std::string_view description)
{
    const std::string text = content(element);
    std::optional<PropertyList> parsed = parser(trimmed(text));
    if (!parsed)
        fail(fmt::format("<{}> does not contain {}", element.name(), description), element);
    return *std::move(parsed);
}

/// Returns the decoded text of an element.
std::string XMLReader::content(pugi::xml_node element)
{
    std::string out;
    for (const pugi::xml_node node : element.children()) {
        if (!isText(node))
            fail(fmt::format("<{}> contains {}; only text is allowed there", element.name(), described(node)),
                 node);
        appendDecoded(out, node);
    }
    return out;
}

void XMLReader::appendDecoded(std::string& out, pugi::xml_node textNode)
{
    const bool hasReferences = textNode.type() == pugi::node_pcdata;
    const std::string_view text = textNode.value();
    for (std::size_t index = 0; index < text.size(); ++index) {
        if (text[index] == '\r') {
            out += '\n';
            index += text.substr(index + 1).starts_with('\n') ? 1 : 0;
        } else if (text[index] == '&' && hasReferences) {
            const std::size_t offset = offsetOf(textNode) + index;
            const std::size_t end = text.find(';', index);
            if (end == std::string_view::npos)
                m_document.fail(R"("&" does not start a complete reference; write a literal one as "&amp;")",
                                offset);
            appendUTF8(out, decodeReference(text.substr(index + 1, end - index - 1), offset));
            index = end;
        } else {
            out += text[index];
        }
    }
}

char32_t XMLReader::decodeReference(std::string_view name, std::size_t offset)
{
    constexpr std::array<std::pair<std::string_view, char32_t>, 5> entities{
        {{"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}}};
    if (!name.starts_with('#')) {
        const auto entity = std::ranges::find(entities, name, &std::pair<std::string_view, char32_t>::first);
        if (entity == entities.end())
            m_document.fail(R"(an unknown entity; write a literal "&" as "&amp;")", offset);
        return entity->second;
    }
    const bool hexadecimal = name.starts_with("#x");
    const std::string_view digits = name.substr(hexadecimal ? 2 : 1);
    const char* const end = digits.data() + digits.size();
    std::uint32_t codePoint = 0;
    const auto [parsedTo, failure] = std::from_chars(digits.data(), end, codePoint, hexadecimal ? 16 : 10);
    if (failure != std::errc{} || parsedTo != end || !isXMLCharacter(codePoint))
        m_document.fail("a reference to a character that XML does not allow", offset);
    return codePoint;
}

/// Returns the offset of `node`, including the opening characters of a tag.
std::size_t XMLReader::offsetOf(pugi::xml_node node)
{
    const auto offset = static_cast<std::size_t>(node.offset_debug());
    switch (node.type()) {
    case pugi::node_element:
        return offset - std::string_view("<").size();
    case pugi::node_declaration:
        return offset - std::string_view("<?").size();
    default:
        return offset;
    }
}

} // namespace

PropertyListDocument readXMLPropertyList(std::string_view text, WithPlaces withPlaces)
{
    return XMLReader(text, withPlaces).read();
}

} // namespace Platform::PropertyLists
