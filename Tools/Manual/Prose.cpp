#include "Tools/Manual/Prose.h"

namespace Manual {

namespace {

using Entry = Prose::Entry;

constexpr Entry stateFolder{
    "$XDG_DATA_HOME/quorvane-mdm/",
    "State of the app, for the user alone; ~/.local/share/quorvane-mdm/ where XDG_DATA_HOME is not set."};
constexpr Entry sharedSuite{
    "groups/group.com.quorvane.mdm.sqlite",
    "In there: the numbered snapshot of the configuration, which the single-sign-on extension reads."};
constexpr Entry policyFile{"/etc/quorvane-mdm/managed.plist, /etc/quorvane-mdm/managed.json",
                           "The managed configuration, see quorvane-mdm-managed(5)."};
constexpr Entry pushSocket{
    "$XDG_RUNTIME_DIR/quorvane-mdm/push.sock",
    "Where --push local takes payloads; in the state folder where XDG_RUNTIME_DIR is not set."};

constexpr Entry policyVariable{
    "QUORVANE_MANAGED_CONFIGURATION",
    "Policy file in place of those in /etc; --managed-configuration goes before it."};
constexpr Entry dataVariable{"XDG_DATA_HOME", "Folder that holds the state folder."};
constexpr Entry runtimeVariable{"XDG_RUNTIME_DIR", "Folder that holds the socket of --push local."};

constexpr Entry good{"0", "All went well."};
constexpr Entry usage{"64", "The command line is wrong."};
constexpr Entry internal{"70", "A fault of the program."};

} // namespace

Prose applicationProse()
{
    return {
        .name = "quorvane-mdm",
        .section = 1,
        .tagline = "companion app of a managed device",
        .description =
            {"quorvane-mdm takes the configuration that device management delivers for it, validates it, "
             "keeps it as a numbered snapshot that the single-sign-on extension reads from another process, "
             "and follows every change. It registers the device for pushes, uploads the device token to the "
             "organisation's backend and keeps the history of notifications.",
             "One instance runs per user; another launch brings its window to the front and ends. SIGTERM "
             "and SIGINT end it cleanly. Lines go to the journal, or to standard error where there is none; "
             "qvctl log reads them back."},
        .files = {policyFile,
                  stateFolder,
                  {"com.quorvane.mdm.sqlite", "In there: the app's own defaults."},
                  sharedSuite,
                  {"shell.sqlite",
                   "In there: what the user decided about notifications, and the registration for pushes."},
                  pushSocket},
        .environment = {policyVariable,
                        dataVariable,
                        runtimeVariable,
                        {"UNIFIEDPUSH_DISTRIBUTOR", "The only distributor to register with."},
                        {"SSL_CERT_FILE", "Certificates to trust in place of those of the system."},
                        {"QUORVANE_APPEARANCE", "dark or light, whatever the desktop says."},
                        {"QUORVANE_LOG_PRIVATE_DATA",
                         "With show, private texts are logged, which can reveal keys, and a crash may dump "
                         "core. For test devices only."},
                        {"QUORVANE_LOG_DEBUG", "With 1, debug lines are logged as well. For development."},
                        {"QT_QPA_PLATFORM", "With offscreen, runs without a display."}},
        .exitStatus = {good,
                       usage,
                       {"69", "There is no display."},
                       internal,
                       {"78", "The environment names no home folder."}},
        .examples = {{"quorvane-mdm", "Run the app."},
                     {"quorvane-mdm --push local --log-stderr",
                      "Run it for a test, with pushes by qvctl push."},
                     {"QT_QPA_PLATFORM=offscreen quorvane-mdm --managed-configuration ./managed.json",
                      "Try a configuration where nobody looks."}},
        .seeAlso = "qvctl(1), quorvane-mdm-managed(5)"};
}

Prose consoleProse()
{
    return {
        .name = "qvctl",
        .section = 1,
        .tagline = "console for the managed configuration and the notifications of a device",
        .description =
            {"qvctl is the console of the companion app quorvane-mdm, for administrators and testers: what "
             "configuration came, whether it is good, what the app made of it and when.",
             "Only push needs a running app. The verbs that read make, move and mend nothing. Secrets, "
             "values of unknown keys and what notifications say are masked without --reveal. Output has "
             "colors only on a terminal that knows them. What --json prints has a member \"version\", which "
             "is raised when a member changes its meaning; when the verb fails it has a member \"error\"."},
        .files = {policyFile, stateFolder, sharedSuite, pushSocket},
        .environment = {policyVariable,
                        dataVariable,
                        runtimeVariable,
                        {"NO_COLOR", "When set and not empty, the output has no colors."},
                        {"TERM", "When unset, empty or dumb, the output has no colors."}},
        .exitStatus = {good,
                       {"1", "A check of doctor failed."},
                       usage,
                       {"66", "There is no such file, or nothing is stored yet."},
                       {"69", "Something is unavailable: the app does not run, there is no journal, a file "
                              "or standard output cannot be written."},
                       internal,
                       {"78", "The configuration is bad."}},
        .examples = {{"qvctl config schema --format sample > managed.json", "A policy to start from."},
                     {"qvctl config lint managed.json && qvctl config set managed.json",
                      "As root, install it if it has no errors."},
                     {"qvctl watch", "See it applied, and what it changes."},
                     {"qvctl doctor",
                      "Walk the whole chain, from the policy file to the backend, and name what is wrong."},
                     {"qvctl config explain", "Why each key has the value it has."},
                     {"qvctl log --since 10m --level warning", "What went wrong lately."},
                     {"echo '{\"aps\": {\"alert\": \"Hello\"}}' | qvctl push -",
                      "Send a notification to the app."}},
        .seeAlso = "quorvane-mdm(1), quorvane-mdm-managed(5), journalctl(1)"};
}

Prose policyProse()
{
    return {.name = "quorvane-mdm-managed",
            .section = 5,
            .tagline = "managed configuration of quorvane-mdm",
            .description =
                {"Device management delivers the managed configuration as one file: "
                 "/etc/quorvane-mdm/managed.plist or /etc/quorvane-mdm/managed.json (the property list wins "
                 "if both are there), or the one that --managed-configuration or "
                 "QUORVANE_MANAGED_CONFIGURATION names. It is an XML property list, a binary property list "
                 "or a JSON object; the content decides, not the name. At most 16 MiB, 64 levels and a "
                 "million values are read, and no key may stand twice in one dictionary.",
                 "The file, and each folder above it, must belong to root or to the user and must not be "
                 "writable by anybody else (a sticky folder such as /tmp passes). Otherwise it counts as "
                 "missing, and an error line in the log says why.",
                 "A change is applied when the file has rested for half a second; where nothing but other "
                 "keys changed, nothing is applied. A file that cannot be read or understood never replaces "
                 "a good one: the last good configuration stays in force, and an error line says what is "
                 "wrong, with line and column where they are known.",
                 "Keys are case-sensitive and may all be left out. A value of another type than those "
                 "accepted counts as missing, as does a blank text; white space at the ends of texts is "
                 "taken away. Of a list, entries that are no bundle identifiers (letters of the English "
                 "alphabet, digits, full stops and hyphens, with at least one full stop) are left out. Other "
                 "keys are ignored. qvctl config lint tells of all this before it happens."},
            .files = {policyFile},
            .seeAlso = "quorvane-mdm(1), qvctl(1)"};
}

} // namespace Manual
