#pragma once

#include <span>

namespace Manual {

/// What a manual page says that no parser knows.
struct Prose {
    struct Entry {
        const char* term;
        const char* text;
    };

    const char* name;
    int section;
    /// For the line of the name.
    const char* tagline;
    std::span<const char* const> description;
    std::span<const Entry> files;
    std::span<const Entry> environment;
    std::span<const Entry> exitStatus;
    /// A command, and what it is good for.
    std::span<const Entry> examples;
    const char* seeAlso;
};

const Prose& applicationProse();
const Prose& consoleProse();
const Prose& policyProse();

} // namespace Manual
