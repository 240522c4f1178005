#pragma once

#include <sstream>
#include <string>
#include <vector>

/// Splits a table into lines, and these into columns at " | ".
inline std::vector<std::vector<std::string>> rowsOf(const std::string& table)
{
    std::vector<std::vector<std::string>> rows;
    std::istringstream lines(table);
    for (std::string line; std::getline(lines, line);) {
        auto& row = rows.emplace_back();
        for (std::size_t begin = 0, end = 0; end != std::string::npos; begin = end + 3) {
            end = line.find(" | ", begin);
            row.push_back(line.substr(begin, end - begin));
        }
    }
    return rows;
}
