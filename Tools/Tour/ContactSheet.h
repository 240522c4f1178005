#pragma once

#include <filesystem>
#include <string>
#include <vector>

/// Small copies of many pictures on one page, in a table: each cell has the pictures of one screen in one
/// look.
///
/// Threads: one. Creates a `QGuiApplication`, so the process must not have one.
class ContactSheet {
public:
    /// Adds a picture to a cell. Rows, columns and the pictures of a cell keep the order of the calls.
    void add(const std::string& row, const std::string& column, std::filesystem::path picture);
    /// Writes a PNG. Throws `std::runtime_error` if a picture cannot be read or the file cannot be written.
    void save(const std::filesystem::path& file) const;

private:
    struct Picture {
        std::size_t row, column;
        std::filesystem::path file;
    };

    std::vector<std::string> m_rows;
    std::vector<std::string> m_columns;
    std::vector<Picture> m_pictures;
};
