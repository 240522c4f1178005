#include "Platform/Linux/Files/ManagedPolicyFile.h"

#include <fmt/format.h>

#include <utility>
#include <vector>

namespace Platform::Linux::Files {

using State = PolicyFileReading::State;

ManagedPolicyFile::ManagedPolicyFile(PolicyPlaces places, const AdapterLog& log)
    : m_places(std::move(places)), m_log(log), m_file(log), m_folderLine(log)
{}

std::optional<PropertyList> ManagedPolicyFile::dictionary()
{
    const std::lock_guard lock(m_mutex);
    // Loaded before reading the files, so a change during the read causes another read.
    if (const std::uint64_t generation = m_generation; generation != m_loadedGeneration) {
        load();
        m_loadedGeneration = generation;
    }
    return m_dictionary;
}

void ManagedPolicyFile::load()
{
    const bool isFileKnown = loadFile();
    const bool areFragmentsKnown = loadFragments();
    m_wasComplete = m_wasComplete || (isFileKnown && areFragmentsKnown);
    m_dictionary = m_wasComplete && m_isFileTrusted ? combinedParts() : std::nullopt;
}

/// Reads the policy file. Returns false if it exists but its content is not known.
bool ManagedPolicyFile::loadFile()
{
    std::vector<PolicyFileReading> skipped;
    PolicyFileReading reading = readFirstPolicyFile(m_places.files, PropertyLists::WithPlaces::no, &skipped);
    for (const PolicyFileReading& untrusted : skipped)
        report(m_file.errorLine, untrusted, "it counts as missing");
    m_isFileTrusted = reading.state != State::missing || skipped.empty();
    switch (reading.state) {
    case State::good:
        m_file.content = std::move(reading.document.root);
        break;
    case State::missing:
    case State::untrusted:
        m_file.content.reset();
        break;
    case State::unreadable:
    case State::malformed:
        report(m_file.errorLine, reading,
               m_file.content ? "the last valid configuration stays in effect"
                              : "there is no earlier configuration to keep");
        return m_file.content.has_value();
    }
    if (skipped.empty())
        m_file.errorLine.reset();
    return m_isFileTrusted;
}

/// Reads the fragments. Returns false if the content of one is not known.
bool ManagedPolicyFile::loadFragments()
{
    if (m_places.fragments.empty())
        return true;
    const FragmentReadings readings = readFragments(m_places.fragments);
    const PolicyFileReading& folder = readings.folder;
    if (folder.state != State::good && folder.state != State::missing) {
        report(m_folderLine, folder,
               m_isFolderKnown ? "the fragments that were last read in it stay in effect"
                               : consequence(false));
        return m_isFolderKnown;
    }
    m_folderLine.reset();
    m_isFolderKnown = true;
    std::map<std::string, Part> before = std::exchange(m_fragments, {});
    bool areKnown = true;
    for (const PolicyFileReading& reading : readings.files) {
        const std::string path = reading.path.string();
        auto node = before.extract(path);
        if (node)
            m_fragments.insert(std::move(node));
        else
            m_fragments.try_emplace(path, m_log);
        areKnown = loadFragment(reading) && areKnown;
    }
    return areKnown;
}

/// Updates the part of this fragment. Returns false if its content is not known.
bool ManagedPolicyFile::loadFragment(const PolicyFileReading& reading)
{
    Part& part = m_fragments.at(reading.path.string());
    if (reading.state == State::good) {
        part.content = reading.document.root;
        part.errorLine.reset();
        return true;
    }
    report(part.errorLine, reading, consequence(part.content.has_value()));
    return part.content.has_value();
}

void ManagedPolicyFile::report(ErrorLine& errorLine, const PolicyFileReading& reading,
                               std::string_view consequence)
{
    const bool isNew = errorLine.report(
        fmt::format("Managed configuration not applied: {}; {}", reading.diagnostic(), consequence),
        reading.revision);
    if (isNew && m_onError)
        m_onError(reading.state);
}

/// What happens to a fragment that cannot be used.
const char* ManagedPolicyFile::consequence(bool isKnown) const
{
    return isKnown         ? "the last valid content of this file stays in effect"
           : m_wasComplete ? "its keys are not used until it is corrected"
                           : "no change is applied until it is corrected";
}

std::optional<PropertyList> ManagedPolicyFile::combinedParts() const
{
    std::vector<PropertyList> parts;
    if (m_file.content)
        parts.push_back(*m_file.content);
    for (const auto& [path, fragment] : m_fragments) {
        if (fragment.content)
            parts.push_back(*fragment.content);
    }
    return parts.empty() ? std::nullopt : std::optional(combined(parts));
}

void ManagedPolicyFile::reload()
{
    // A file system may have been mounted over a watched folder.
    if (m_watch)
        m_watch->renew();
    ++m_generation;
}

void ManagedPolicyFile::watch(FileSystemWatcher& watcher, std::function<void()> onChange)
{
    m_watch.emplace(watcher, m_places, m_log, [this, onChange = std::move(onChange)] {
        ++m_generation;
        onChange();
    });
}

} // namespace Platform::Linux::Files
