#include "Core/Constants.h"
#include "Tools/qvctl/Commands.h"
#include "Tools/qvctl/Device.h"
#include "Tools/qvctl/FileChanges.h"
#include "Tools/qvctl/LiveSession.h"
#include "Tools/qvctl/ManagedValues.h"
#include "Tools/qvctl/Output.h"

#include <fmt/format.h>

#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Qvctl {

namespace {

namespace json = boost::json;
using Core::ConfigurationSnapshot;
using Core::ManagedKey;
using namespace Platform;

/// A value that changed since the previous version.
struct Change {
    ManagedKey key;
    std::string text;
};

std::vector<Change> changes(const ConfigurationSnapshot& before, const ConfigurationSnapshot& after,
                            bool isRevealing)
{
    const Core::ValidatedConfig printed = maskedConfig(after.config, isRevealing);
    std::vector<Change> list;
    for (const ManagedKey& key : printedKeys()) {
        if (!isDifferent(key, before.config, after.config))
            continue;
        std::string text = joinedValues(key, printed);
        if (text.empty())
            text = key.isList() ? "none" : "absent";
        list.push_back({key, std::move(text)});
    }
    return list;
}

void printVersion(const ConfigurationSnapshot& snapshot)
{
    std::vector<std::string> present;
    for (const ManagedKey& key : printedKeys()) {
        const std::size_t count = Core::valuesOf(key, snapshot.config).size();
        if (key.isList())
            present.push_back(fmt::format("{} {}", count, count == 1 ? std::string(key.noun) : labelOf(key)));
        else if (count > 0)
            present.push_back(labelOf(key));
    }
    print("{} version {}: {}\n", snapshot.lastUpdated.utcText(),
          toned(Tone::good, std::to_string(snapshot.configVersion)),
          fmt::format("{}", fmt::join(present, ", ")));
}

json::value valueJSON(const ManagedKey& key, const Core::ValidatedConfig& config)
{
    const auto texts = Core::valuesOf(key, config);
    if (key.isList())
        return json::array(texts.begin(), texts.end());
    return texts.empty() ? json::value() : json::value(texts.front());
}

json::object versionJSON(const std::optional<ConfigurationSnapshot>& stored,
                         const std::optional<std::vector<Change>>& changed, bool isRevealing)
{
    const ConfigurationSnapshot snapshot = stored.value_or(ConfigurationSnapshot{});
    const Core::ValidatedConfig printed = maskedConfig(snapshot.config, isRevealing);
    json::object object{{"configVersion", snapshot.configVersion}};
    object["lastUpdated"] = stored ? json::value(snapshot.lastUpdated.utcText()) : json::value();
    for (const ManagedKey& key : printedKeys())
        object[key.codingKey] = valueJSON(key, printed);
    object["changed"] = nullptr;
    if (changed) {
        auto& names = object["changed"].emplace_array();
        for (const Change& change : *changed)
            names.emplace_back(change.key.codingKey);
    }
    return object;
}

/// Prints the snapshot in the shared suite each time it changes.
class Watch {
public:
    explicit Watch(const Options& options) : m_options(options), m_device(options, Device::Access::inspect) {}

    [[nodiscard]] std::filesystem::path suiteFile() const
    {
        return m_device.paths.suite(Core::Constants::appGroupSuiteName);
    }

    [[nodiscard]] const AdapterLog& log() const { return m_device.log(); }

    void begin()
    {
        check();
        if (!m_last)
            printError("waiting for the first configuration in {}", suiteFile());
    }

    void check()
    {
        std::optional<ConfigurationSnapshot> now;
        try {
            now = m_device.storedSnapshot();
        } catch (const CommandError& error) {
            printError("{}", error.what());
            return;
        }
        if (now == m_last)
            return;
        report(now);
        m_last = std::move(now);
    }

private:
    void report(const std::optional<ConfigurationSnapshot>& now)
    {
        std::optional<std::vector<Change>> changed;
        if (m_last || m_hasReported)
            changed = changes(m_last.value_or(ConfigurationSnapshot{}), now.value_or(ConfigurationSnapshot{}),
                              m_options.isRevealing);
        m_hasReported = true;
        if (m_options.isJSON) {
            printJSON(versionJSON(now, changed, m_options.isRevealing));
        } else if (now) {
            printVersion(*now);
            for (const Change& change : changed.value_or(std::vector<Change>{}))
                print("    {}: {}\n", labelOf(change.key), change.text);
        } else {
            print("{}\n", toned(Tone::warning, "snapshot deleted"));
        }
        flushOutput();
    }

    const Options& m_options;
    Device m_device;
    std::optional<ConfigurationSnapshot> m_last;
    bool m_hasReported = false;
};

} // namespace

ExitCode watch(const Options& options)
{
    LiveSession session;
    Watch watch(options);
    // Writers touch this file after each commit.
    const auto bell = watch.suiteFile().replace_extension(".bell");
    const FileChanges changes({.files = {bell}}, watch.log());
    watch.begin();
    while (session.waitFor(changes.descriptor())) {
        changes.reset();
        watch.check();
    }
    return success;
}

} // namespace Qvctl
