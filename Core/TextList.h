#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

namespace Core {

/// A list of strings in one block of memory: 100 000 bundle identifiers take two allocations instead of
/// 100 000, and a third of the memory.
///
/// The strings of one list have at most 4 GiB together. References to elements are valid until the list is
/// changed, moved or destroyed.
class TextList {
public:
    class Iterator {
    public:
        using iterator_category = std::input_iterator_tag;
        using value_type = std::string_view;
        using difference_type = std::ptrdiff_t;
        using pointer = void;
        using reference = std::string_view;

        Iterator(const TextList& list, std::size_t index) : m_list(&list), m_index(index) {}
        std::string_view operator*() const { return (*m_list)[m_index]; }
        Iterator& operator++() { return ++m_index, *this; }
        Iterator operator++(int) { return {*m_list, m_index++}; }
        friend bool operator==(const Iterator&, const Iterator&) = default;

    private:
        const TextList* m_list;
        std::size_t m_index;
    };
    using value_type = std::string_view;
    using const_iterator = Iterator;
    using iterator = Iterator;

    TextList() = default;
    TextList(std::initializer_list<std::string_view> texts)
    {
        for (const std::string_view text : texts)
            push_back(text);
    }

    /// Allocates memory for strings of `characterCount` bytes together.
    void reserve(std::size_t characterCount) { m_characters.reserve(characterCount); }
    void push_back(std::string_view text)
    {
        m_characters.append(text);
        m_ends.push_back(static_cast<std::uint32_t>(m_characters.size()));
    }

    [[nodiscard]] std::size_t size() const { return m_ends.size(); }
    [[nodiscard]] bool empty() const { return m_ends.empty(); }
    [[nodiscard]] std::string_view operator[](std::size_t index) const
    {
        const std::size_t begin = index > 0 ? m_ends[index - 1] : 0;
        return std::string_view(m_characters).substr(begin, m_ends[index] - begin);
    }
    [[nodiscard]] Iterator begin() const { return {*this, 0}; }
    [[nodiscard]] Iterator end() const { return {*this, size()}; }
    /// All strings, without separators.
    [[nodiscard]] std::string_view characters() const { return m_characters; }

    friend bool operator==(const TextList&, const TextList&) = default;

private:
    std::string m_characters;
    /// Where each string ends in `m_characters`.
    std::vector<std::uint32_t> m_ends;
};

} // namespace Core
