// Fuzzes a policy file and fragments that are written, damaged, exposed to other users, repaired and removed
// while the app runs, and restarts of the app. No key of a file that exists may be lost.

#include "Fuzzers/Fuzzing.h"
#include "Platform/Linux/Files/ManagedPolicyFile.h"
#include "Tests/Fakes/RecordingUnifiedLog.h"
#include "Tests/Fakes/TemporaryFolder.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <optional>
#include <string>

using Fuzzers::require;
using Platform::PropertyList;
using Platform::Linux::Files::ManagedPolicyFile;
using Platform::Linux::Files::PolicyPlaces;

namespace {

namespace fs = std::filesystem;

/// In ascending precedence.
constexpr std::array<const char*, 5> names{"managed.json", "managed.d/1.json", "managed.d/1.plist",
                                           "managed.d/2.json", "managed.d/a.plist"};

struct File {
    bool exists = false;
    bool isDamaged = false;
    bool isExposed = false;
    /// The value of its keys, if this run of the app has read it.
    std::optional<int> known = {};
    int written = 0;
};

class PolicyFolder {
public:
    void apply(unsigned char operation)
    {
        const std::size_t index = operation % names.size();
        File& file = m_files.at(index);
        const auto kind = operation / names.size() % 6;
        if (kind == 0 || kind == 1) {
            write(index, kind == 1);
        } else if (kind == 2) {
            fs::remove(path(index));
            file = {};
        } else if (kind == 5) {
            restart();
        } else if (file.exists) {
            file.isExposed = kind == 3;
            fs::permissions(path(index), fs::perms(file.isExposed ? 0666 : 0644));
        }
        examine();
    }

private:
    [[nodiscard]] fs::path path(std::size_t index) const { return m_folder.path(names.at(index)); }

    /// Each file sets its own key and a key that all files share.
    void write(std::size_t index, bool isDamaged)
    {
        File& file = m_files.at(index);
        const std::string value = std::to_string(++m_lastValue);
        const std::string own = "own" + std::to_string(index);
        const std::string text = R"({")" + own + R"(": )" + value + R"(, "all": )" + value;
        m_folder.write(names.at(index), isDamaged ? text : text + "}");
        file.exists = true;
        file.isDamaged = isDamaged;
        file.written = m_lastValue;
    }

    void restart()
    {
        m_policy.emplace(m_places, m_log);
        m_wasComplete = false;
        for (File& file : m_files)
            file.known.reset();
    }

    void examine()
    {
        m_policy->reload();
        const auto dictionary = m_policy->dictionary();
        for (File& file : m_files) {
            if (file.exists && !file.isDamaged && !file.isExposed)
                file.known = file.written;
        }
        if (m_files.front().isExposed) {
            m_files.front().known.reset();
            require(!dictionary, "an exposed policy file has no configuration");
            return;
        }
        m_wasComplete = m_wasComplete || std::all_of(m_files.begin(), m_files.end(), [](const File& file) {
                            return !file.exists || file.known;
                        });
        PropertyList::Dictionary expected;
        for (std::size_t index = 0; m_wasComplete && index < m_files.size(); ++index) {
            if (const auto value = m_files.at(index).known) {
                expected.insert_or_assign("own" + std::to_string(index), *value);
                expected.insert_or_assign("all", *value);
            }
        }
        require(dictionary ? *dictionary == PropertyList(expected) : expected.empty(),
                "each file has its last valid content, after all were valid once");
    }

    const TemporaryFolder m_folder;
    RecordingUnifiedLog m_unifiedLog;
    const Platform::AdapterLog m_log{m_unifiedLog, "fuzzer"};
    const PolicyPlaces m_places{.files = {m_folder.path("managed.json")},
                                .fragments = m_folder.path("managed.d")};
    std::optional<ManagedPolicyFile> m_policy{std::in_place, m_places, m_log};
    std::array<File, names.size()> m_files{};
    int m_lastValue = 0;
    bool m_wasComplete = false;
};

} // namespace

void Fuzzers::examine(std::string_view input)
{
    constexpr std::size_t maximumOperationCount = 40;
    PolicyFolder folder;
    for (const char operation : input.substr(0, maximumOperationCount))
        folder.apply(static_cast<unsigned char>(operation));
}
