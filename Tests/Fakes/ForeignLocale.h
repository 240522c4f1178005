#pragma once

#include "Tests/Fakes/TemporaryFolder.h"

#include <array>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

/// A locale of the tests' own, so that they fail on any machine: it writes 3.5 as "3,5" and has no lower-case
/// letter for "I", like German and Turkish ones.
class ForeignLocale {
public:
    static constexpr const char* name = "foreign";

    /// Compiles it into `folder`, where programs find it with LOCPATH=folder and LC_ALL=foreign.
    static void write(const std::filesystem::path& folder)
    {
        const auto charmap = folder / "charmap";
        const auto source = folder / "source";
        std::ofstream(charmap) << ascii();
        std::ofstream(source) << "LC_CTYPE\nupper <U0041>;<U0049>\nlower <U0061>;<U0069>\n"
                                 "toupper (<U0061>,<U0041>)\ntolower (<U0041>,<U0061>)\nEND LC_CTYPE\n"
                                 "LC_NUMERIC\ndecimal_point \"<U002C>\"\nthousands_sep \"<U002E>\"\n"
                                 "grouping 3;3\nEND LC_NUMERIC\n";
        // It complains about what is left out and ends with 1, but -c makes it write the locale.
        const std::string command = "localedef -c --no-archive -f " + charmap.string() + " -i " +
                                    source.string() + " " + (folder / name).string() + " >/dev/null 2>&1";
        [[maybe_unused]] const int status = std::system(command.c_str());
        if (!exists(folder / name / "LC_NUMERIC"))
            throw std::runtime_error("localedef makes no locale");
    }

    /// Sets it for this process.
    ForeignLocale()
    {
        write(m_folder.path());
        ::setenv("LOCPATH", m_folder.path().c_str(), 1);
        std::array<char, 8> text{};
        if (std::setlocale(LC_ALL, name) == nullptr)
            throw std::runtime_error("the locale cannot be set");
        std::snprintf(text.data(), text.size(), "%g", 3.5);
        if (std::string(text.data()) != "3,5")
            throw std::runtime_error("the locale has no decimal comma");
    }
    ~ForeignLocale()
    {
        std::setlocale(LC_ALL, "C");
        ::unsetenv("LOCPATH");
    }
    ForeignLocale(const ForeignLocale&) = delete;
    ForeignLocale& operator=(const ForeignLocale&) = delete;

private:
    /// A map that claims to be UTF-8, which the toolkit demands.
    static std::string ascii()
    {
        std::string text =
            "<code_set_name> UTF-8\n<escape_char> /\n<mb_cur_min> 1\n<mb_cur_max> 6\nCHARMAP\n";
        for (int character = 0; character < 128; ++character) {
            std::array<char, 24> line{};
            std::snprintf(line.data(), line.size(), "<U%04X> /x%02x a\n", character, character);
            text += line.data();
        }
        return text + "END CHARMAP\n";
    }

    TemporaryFolder m_folder;
};
