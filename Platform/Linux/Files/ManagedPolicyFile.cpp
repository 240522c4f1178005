#include "Platform/Linux/Files/ManagedPolicyFile.h"

#include "Platform/Linux/Files/PolicyFileReading.h"

#include <fmt/format.h>

#include <utility>

namespace Platform::Linux::Files {

ManagedPolicyFile::ManagedPolicyFile(std::vector<std::filesystem::path> candidates, const AdapterLog& log)
    : m_candidates(std::move(candidates)), m_log(log), m_errorLine(log)
{}

std::optional<PropertyList> ManagedPolicyFile::dictionary()
{
    const std::lock_guard lock(m_mutex);
    // Loaded before reading the file, so a change during the read causes another read.
    if (const std::uint64_t generation = m_generation; generation != m_loadedGeneration) {
        load();
        m_loadedGeneration = generation;
    }
    return m_dictionary;
}

void ManagedPolicyFile::load()
{
    std::vector<PolicyFileReading> skipped;
    PolicyFileReading reading = readFirstPolicyFile(m_candidates, PropertyLists::WithPlaces::no, &skipped);
    for (const PolicyFileReading& untrusted : skipped)
        report(untrusted, "it counts as missing");
    switch (reading.state) {
    case PolicyFileReading::State::good:
        m_dictionary = std::move(reading.document.root);
        break;
    case PolicyFileReading::State::missing:
    case PolicyFileReading::State::untrusted:
        m_dictionary.reset();
        break;
    case PolicyFileReading::State::unreadable:
    case PolicyFileReading::State::malformed:
        report(reading, m_dictionary ? "the last valid configuration stays in effect"
                                     : "there is no earlier configuration to keep");
        return;
    }
    if (skipped.empty())
        m_errorLine.reset();
}

void ManagedPolicyFile::report(const PolicyFileReading& reading, std::string_view consequence)
{
    const bool isNew = m_errorLine.report(
        fmt::format("Managed configuration not applied: {}; {}", reading.diagnostic(), consequence),
        reading.revision);
    if (isNew && m_onError)
        m_onError(reading.state);
}

void ManagedPolicyFile::watch(FileSystemWatcher& watcher, std::function<void()> onChange)
{
    m_watch.emplace(watcher, m_candidates, m_log, [this, onChange = std::move(onChange)] {
        ++m_generation;
        onChange();
    });
}

} // namespace Platform::Linux::Files
