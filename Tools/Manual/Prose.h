#pragma once

#include <vector>

namespace Manual {

/// What a manual page says apart from the command line and the managed keys.
struct Prose {
    struct Entry {
        const char* term;
        const char* text;
    };

    const char* name;
    int section;
    /// For the line of the name.
    const char* tagline;
    /// Paragraphs.
    std::vector<const char*> description;
    std::vector<Entry> files;
    std::vector<Entry> environment = {};
    std::vector<Entry> exitStatus = {};
    /// A command, and what it does.
    std::vector<Entry> examples = {};
    const char* seeAlso = "";
};

Prose applicationProse();
Prose consoleProse();
Prose policyProse();

} // namespace Manual
