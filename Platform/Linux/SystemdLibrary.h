#pragma once

#include "Platform/Linux/DynamicLibrary.h"

#define SD_JOURNAL_SUPPRESS_LOCATION
#include <systemd/sd-bus.h>
#include <systemd/sd-id128.h>
#include <systemd/sd-journal.h>

namespace Platform::Linux {

/// The functions of libsystemd that the console needs, under their own names: to read the journal, and to ask
/// the session bus who is on it. The library is loaded by the verbs that do so: with the six that it needs it
/// takes a fifth of the time that the others run.
///
/// Threads: any.
class SystemdLibrary {
    DynamicLibrary m_library{"libsystemd.so.0", "libsystemd0"};

public:
    SystemdLibrary() = default;

// NOLINTNEXTLINE(bugprone-macro-parentheses)
#define QV_FUNCTION(name) decltype(&::name) name = m_library.symbol(#name)
    QV_FUNCTION(sd_bus_call);
    QV_FUNCTION(sd_bus_close_unref);
    QV_FUNCTION(sd_bus_is_ready);
    QV_FUNCTION(sd_bus_message_enter_container);
    QV_FUNCTION(sd_bus_message_new_method_call);
    QV_FUNCTION(sd_bus_message_read_basic);
    QV_FUNCTION(sd_bus_message_unref);
    QV_FUNCTION(sd_bus_open_user);
    QV_FUNCTION(sd_bus_process);
    QV_FUNCTION(sd_bus_wait);
    QV_FUNCTION(sd_id128_get_boot);
    QV_FUNCTION(sd_id128_to_string);
    QV_FUNCTION(sd_journal_add_match);
    QV_FUNCTION(sd_journal_close);
    QV_FUNCTION(sd_journal_get_data);
    QV_FUNCTION(sd_journal_get_events);
    QV_FUNCTION(sd_journal_get_fd);
    QV_FUNCTION(sd_journal_get_realtime_usec);
    QV_FUNCTION(sd_journal_get_timeout);
    QV_FUNCTION(sd_journal_has_persistent_files);
    QV_FUNCTION(sd_journal_has_runtime_files);
    QV_FUNCTION(sd_journal_next);
    QV_FUNCTION(sd_journal_open);
    QV_FUNCTION(sd_journal_previous_skip);
    QV_FUNCTION(sd_journal_process);
    QV_FUNCTION(sd_journal_seek_head);
    QV_FUNCTION(sd_journal_seek_realtime_usec);
    QV_FUNCTION(sd_journal_seek_tail);
#undef QV_FUNCTION
};

/// The library, loaded by the first who asks.
inline const SystemdLibrary& systemd()
{
    static const SystemdLibrary library;
    return library;
}

} // namespace Platform::Linux
